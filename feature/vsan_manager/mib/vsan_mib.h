// SPDX-License-Identifier: Apache-2.0
// What every part of the module shares: wire records, the manager's enumerations, the numbers
// of the registration table, opcodes and constants. It must stand alone on any switch.
//
// Everything runs on the agent's thread, one call at a time; nothing is locked.
#ifndef VSAN_MIB_H
#define VSAN_MIB_H

#include <cstddef>
#include <cstdint>

// ---- Wire records -----------------------------------------------------------
//
// Host order inside the module; 32-bit words travel in network order.

// One VSAN, 2108 bytes.
//
//    0 vsanIndex               4 vsanMediaType        8 vsanAdminState
//   12 vsanMtu                16 vsanInorderDelivery 20 vsanInterOperMode
//   24 vsanLoadBalancingType  28 vsanRowStatus       32 vsanOperState
//   36 vsanName, 36 bytes     72 vsanNetworkDropLatency
//   76 the manager's own, 2032 bytes, carried unchanged
struct vsanEntry {
    int32_t vsanIndex; // the row's key
    int32_t vsanMediaType;
    int32_t vsanAdminState;
    int32_t vsanMtu; // bytes
    int32_t vsanInorderDelivery;
    int32_t vsanInterOperMode; // 100 is the default mode
    int32_t vsanLoadBalancingType;
    int32_t vsanRowStatus; // as the manager reports it
    int32_t vsanOperState;
    char vsanName[36]; // NUL-terminated, unless the manager is wrong
    uint32_t vsanNetworkDropLatency;
    uint8_t rest[2032];
};
static_assert(sizeof(vsanEntry) == 2108);
static_assert(offsetof(vsanEntry, vsanOperState) == 32);
static_assert(offsetof(vsanEntry, vsanName) == 36);
static_assert(offsetof(vsanEntry, vsanNetworkDropLatency) == 72);
static_assert(offsetof(vsanEntry, rest) == 76);

// The block in which a vsanEntry travels, both ways: 2632 bytes, the record at
// byte 520. In a request everything around the record is zero.
struct vsanEntry_block {
    uint32_t first_word;
    uint8_t header[516];
    vsanEntry record;
    uint8_t tail[4];
};
static_assert(sizeof(vsanEntry_block) == 2632);
static_assert(offsetof(vsanEntry_block, record) == 520);

// One interface's membership, 16 bytes.
struct vsanIfEntry {
    int32_t ifIndex; // the row's key
    int32_t vsanIfVsan;
    int32_t vsanIfDenyList;
    int32_t vsanIfRowStatus; // the manager leaves this word in its own byte order
};
static_assert(sizeof(vsanIfEntry) == 16);

// One Fibre Channel timer value, 15 bytes without any padding.
struct fc_timer_record {
    uint32_t key; // a vsan_attr_key_t: 7 E_D_TOV, 8 R_A_TOV, 9 D_S_TOV, 10 F_S_TOV
    uint32_t value;
    uint8_t per_vsan; // 1 the value of one VSAN, 0 the switch-wide value
    uint8_t flag;
    uint32_t vsan; // 0 when per_vsan is 0
    uint8_t tail;  // 0 in every request; nothing looks at a reply's
} __attribute__((packed));
static_assert(sizeof(fc_timer_record) == 15);
static_assert(offsetof(fc_timer_record, per_vsan) == 8);
static_assert(offsetof(fc_timer_record, vsan) == 10);
static_assert(offsetof(fc_timer_record, tail) == 14);

// One pair of the membership summary, as the port manager answered; 15 bytes.
struct vsanMembershipSummary_row {
    uint32_t vsanIndex;
    uint32_t ifIndex;
    uint8_t is_static; // nonzero when the membership is configured
    uint8_t unused[6];
} __attribute__((packed));
static_assert(sizeof(vsanMembershipSummary_row) == 15);

// A switch-wide latency, 12 bytes.
struct latency_record {
    uint32_t key; // a vsan_attr_key_t: 17 switch latency, 18 network latency
    uint32_t value;
    uint32_t unused; // 0
};
static_assert(sizeof(latency_record) == 12);

// ---- The manager's enumerations: values must not be renumbered ----------------

enum vsan_attr_key_t : int32_t {
    VSAN_ATTR_VSAN_NAME = 0,
    VSAN_ATTR_STATE = 1,
    VSAN_ATTR_MEDIA = 2,
    VSAN_ATTR_IN_ORDER_DELIVERY = 3,
    VSAN_ATTR_MTU = 4,
    VSAN_ATTR_LOADBALANCING_METHOD = 5,
    VSAN_ATTR_SWITCH_WWN = 6,
    VSAN_ATTR_E_D_TOV = 7,
    VSAN_ATTR_R_A_TOV = 8,
    VSAN_ATTR_D_S_TOV = 9,
    VSAN_ATTR_F_S_TOV = 10,
    VSAN_ATTR_MAX_VSAN = 11,
    VSAN_ATTR_DEFAULT_VSAN = 12,
    VSAN_ATTR_RESERVED_VSAN = 13,
    VSAN_ATTR_VTP_REVISION = 14,
    VSAN_ATTR_VTP_CHECKSUM = 15,
    VSAN_ATTR_IN_USE_VSANS = 16,
    VSAN_ATTR_SWITCH_LATENCY = 17,
    VSAN_ATTR_NETWORK_LATENCY = 18,
    VSAN_ATTR_OPER_STATE = 19,
    VSAN_ATTR_OPER_STATE_RECORD = 20,
    VSAN_ATTR_MAX_RECV_BUFFER_SIZE = 21,
    VSAN_ATTR_FC_CLASSES_SUPPORTED = 22,
    VSAN_ATTR_INTEROP_MODE = 23,
    VSAN_ATTR_INTEROP_MODE_VALUE = 24,
    VSAN_ATTR_INORDER_CONFIG_LOCK = 25,
    VSAN_ATTR_IGNORE_ISCSI_INTERFACE = 26,
    VSAN_ATTR_TDX_DIST_ENABLED = 27,
    VSAN_ATTR_TDX_SESSION_HANDLE = 28,
    VSAN_ATTR_TDX_SESSION_USER = 29,
    VSAN_NUM_ATTR_KEY = 30,
    VSAN_MGR_PSS_KEY_TYPE_TRAPNOTIFY = 31
};

enum vsan_media_t : int32_t { VSAN_MEDIA_VALUE_NOT_SET = 0, VSAN_MEDIA_FIBRE_CHANNEL = 1, VSAN_MEDIA_ETHERNET = 2 };

enum vsan_loadbalancing_method_t : int32_t {
    VSAN_LOADBALANCING_VALUE_NOT_SET = 0,
    VSAN_CONSIDER_SRCID_DSTID = 1,
    VSAN_CONSIDER_SRCID_DSTID_OXID = 2
};

enum vsan_state_t : int32_t {
    VSAN_STATE_VALUE_NOT_SET = 0,
    VSAN_ACTIVE = 1,
    VSAN_SUSPENDED = 2,
    VSAN_NONCONFIGURED = 3,
    VSAN_CONFIGURED = 4
};

enum vsan_oper_state_t : int32_t { VSAN_OPERSTATE_VALUE_NOT_SET = 0, VSAN_OPER_STATE_UP = 1, VSAN_OPER_STATE_DOWN = 2 };

enum vsan_state_change_t : int32_t {
    VSAN_STATE_NO_CHANGE = 0,
    VSAN_ACTIVE_TO_NONACTIVE = 1,
    VSAN_NONACTIVE_TO_ACTIVE = 2
};

enum port_membership_update_t : int32_t {
    VSAN_PORT_VSAN_UPDATE = 1,
    VSAN_ALLOWED_LIST_OVERRIDE = 2,
    VSAN_ALLOWED_LIST_ADD = 3,
    VSAN_ALLOWED_LIST_DELETE = 4,
    VSAN_MEMBERSHIP_INVALID = 5,
    VSAN_MEMBERSHIP_VALID = 6,
    VSAN_DELETE_MEMBERSHIP = 7
};

enum iscsi_vsan_list_operation_t : int32_t {
    VSAN_LIST_OVERRIDE = 1,
    VSAN_LIST_ADD = 2,
    VSAN_LIST_DELETE = 3,
    VSAN_LIST_PURGE = 4
};

// States of the distribution service's session for the VSAN configuration.
enum vsan_tdx_state_t : int32_t {
    VSAN_TDX_INIT_STATE = 100,
    VSAN_TDX_LOCK_PENDING_STATE = 101,
    VSAN_TDX_LOCKED_STATE = 102,
    VSAN_TDX_DISTRIBUTE_STATE = 103,
    VSAN_TDX_COMMIT_STATE = 104,
    VSAN_TDX_UNLOCKED_STATE = 105,
    VSAN_TDX_REMOTE_PEER_LOCKED_STATE = 106,
    VSAN_COMMIT_WITH_NO_SESSION_STATE = 107
};

enum vsan_tdx_attr_t : int32_t {
    VSAN_TDX_ATTR_LOCK_USER_NAME = 200,
    VSAN_TDX_ATTR_CMD = 201,
    VSAN_TDX_LOCK_HANDLE = 202
};

// ---- Registration -------------------------------------------------------------

// The objects' numbers. There is no 7, no 9 and none from 18 to 29.
enum vsan_mib_magic : uint8_t {
    VSANNUMBER = 1,
    VSANTABLELASTCHANGE = 2,
    VSANNAME = 3,
    VSANMEDIATYPE = 4,
    VSANADMINSTATE = 5,
    VSANMTU = 6,
    VSANLOADBALANCINGTYPE = 8,
    VSANOPERSTATE = 10,
    VSANROWSTATUS = 11,
    VSANINTEROPERTYPE = 12,
    VSANINORDERDELIVERY = 13,
    VSANNETWORKDROPLATENCY = 14,
    VSANIFNUMBER = 15,
    VSANIFVSAN = 16,
    VSANIFDENYLIST = 17,
    VSANMEMBERSHIPSUMMARYIFINDEX = 30,
    FCTIMERRATOV = 31,
    FCTIMEREDTOV = 32,
    FCTIMERFSTOV = 33,
    FCTIMERDSTOV = 34,
    FCNETWORKLATENCY = 35,
    FCSWITCHLATENCY = 36,
    FCINORDERDELIVERY = 37,
    VSANFCTIMERFORCEFLAG = 38,
    VSANFCTIMERRATOV = 39,
    VSANFCTIMEREDTOV = 40,
    VSANFCTIMERDSTOV = 41,
    VSANFCTIMERFSTOV = 42
};

constexpr size_t vsan_mib_root_length = 9;
constexpr size_t vsan_mib_variables_count = 28;

// ---- Requests -----------------------------------------------------------------

enum vsan_mib_opcode : uint32_t {
    OPCODE_IF_MEMBERSHIP = 124,
    OPCODE_VSAN_NUMBER = 125,
    OPCODE_VSAN_TABLE_LAST_CHANGE = 126,
    OPCODE_FC_TIMER = 127,
    OPCODE_VSAN_IF_NUMBER = 128,
    OPCODE_LATENCY = 136,
    OPCODE_INORDER_DELIVERY = 140,
    OPCODE_VSAN = 149,
    OPCODE_PORT_MANAGER_VALUE = 1282,
    OPCODE_VSAN_STATUS_TRAP = 8018
};

enum vsan_mib_request_kind : uint32_t { GET_REQ = 1, GETNEXT_REQ = 2, SET_REQ = 3, DELETE_REQ = 4, TDX_GET_REQ = 5 };

// How long the manager may take, in the message service's unit.
enum vsan_mib_wait_class : uint32_t {
    WAIT_TRAP = 0,
    WAIT_TABLE = 4, // all reads, and writes of table rows
    WAIT_MEMBERSHIP = 5,
    WAIT_TIMER = 10 // timer writes, which the whole fabric may have to agree on
};

// Platform statuses that the module tells apart, and its own.
constexpr uint32_t MANAGER_NO_SUCH_VSAN = 0x40190001u;
constexpr uint32_t MANAGER_NO_SUCH_ATTRIBUTE = 0x40190002u; // the VSAN has no such value
constexpr uint32_t MANAGER_NAME_CONFLICT = 0x40190004u;
constexpr uint32_t MANAGER_BAD_DROP_LATENCY = 0x40190014u;
constexpr uint32_t MANAGER_NO_VALUE = 0x4019001fu;
constexpr uint32_t MANAGER_TDX_REFUSED = 0x40190028u; // the distribution service refuses the read
constexpr uint32_t ENTRY_NO_INSTANCE = 0x40490002u;   // the OID names no usable row
constexpr uint32_t STATUS_VSAN_RESTRICTED_USER = 0x4049002cu;
constexpr uint32_t STATUS_VSAN_NOT_FOR_USER = 0x40540008u; // creating or deleting it
constexpr uint32_t STATUS_IN_ERRNO = UINT32_MAX;

// The mode argument that every caller of to_snmp_error_code passes.
constexpr int SNMP_ERROR_MODE = 3;

// The second argument of log_set_error: where an error comes from.
constexpr uint32_t LOG_NUMBER_REQUEST = 200;  // a request that the manager refused
constexpr uint32_t LOG_NUMBER_RESOURCE = 584; // a refusal of ours, or memory that ran out

// The interoperability mode that the manager calls 100 and SNMP sees as 0.
constexpr int32_t INTEROP_MODE_DEFAULT = 100;

// VSAN numbers run from 1 to this.
constexpr uint32_t VSAN_MAX = 4095;

// Arcs of a column's OID: the root and 1.1.3.1.<column>, or as many elsewhere.
constexpr size_t VSAN_COLUMN_LENGTH = vsan_mib_root_length + 5;

// What a user wants of an interface, as the agent extension library numbers it.
constexpr int IF_OPERATION_MOVE = 1;
constexpr int IF_OPERATION_READ = 3;

// The application under which the distribution service governs the timers.
constexpr char timer_feature[] = "fctimer";

#endif
