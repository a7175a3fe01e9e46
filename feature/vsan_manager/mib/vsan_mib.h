/*
 * The module's one private header: wire records, enumerations, the numbers of the
 * registration table, opcodes, and the functions that the source files share.
 *
 * Everything runs on the agent's thread, one call at a time; nothing is locked.
 */
#ifndef VSAN_MIB_H
#define VSAN_MIB_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <net-snmp/agent/util_funcs/header_generic.h>

#include "indxobj.h"
#include "mts.h"
#include "netsnmpagent_oryx.h"
#include "sdwrap.h"

/* ---- Wire records -----------------------------------------------------------
 *
 * Host order inside the module; 32-bit words travel in network order. */

/*
 * One VSAN, 2108 bytes.
 *
 *    0 vsanIndex               4 vsanMediaType        8 vsanAdminState
 *   12 vsanMtu                16 vsanInorderDelivery 20 vsanInterOperMode
 *   24 vsanLoadBalancingType  28 vsanRowStatus       32 vsanOperState
 *   36 vsanName, 36 bytes     72 vsanNetworkDropLatency
 *   76 the manager's own, 2032 bytes, carried unchanged
 */
struct vsanEntry {
    int32_t vsanIndex; /* the row's key */
    int32_t vsanMediaType;
    int32_t vsanAdminState;
    int32_t vsanMtu; /* bytes */
    int32_t vsanInorderDelivery;
    int32_t vsanInterOperMode; /* 100 is the default mode */
    int32_t vsanLoadBalancingType;
    int32_t vsanRowStatus; /* as the manager reports it */
    int32_t vsanOperState;
    char vsanName[36]; /* NUL-terminated, unless the manager is wrong */
    uint32_t vsanNetworkDropLatency;
    uint8_t rest[2032];
};
static_assert(sizeof(vsanEntry) == 2108);
static_assert(offsetof(vsanEntry, vsanOperState) == 32);
static_assert(offsetof(vsanEntry, vsanName) == 36);
static_assert(offsetof(vsanEntry, vsanNetworkDropLatency) == 72);
static_assert(offsetof(vsanEntry, rest) == 76);

/* The block in which a vsanEntry travels, both ways: 2632 bytes, the record at
 * byte 520. In a request everything around the record is zero. */
struct vsanEntry_block {
    uint32_t first_word;
    uint8_t header[516];
    vsanEntry record;
    uint8_t tail[4];
};
static_assert(sizeof(vsanEntry_block) == 2632);
static_assert(offsetof(vsanEntry_block, record) == 520);

/* One interface's membership, 16 bytes. */
struct vsanIfEntry {
    int32_t ifIndex; /* the row's key */
    int32_t vsanIfVsan;
    int32_t vsanIfDenyList;
    int32_t vsanIfRowStatus; /* the manager leaves this word in its own byte order */
};
static_assert(sizeof(vsanIfEntry) == 16);

/* One Fibre Channel timer value, 15 bytes without any padding. */
struct fc_timer_record {
    uint32_t key; /* a vsan_attr_key_t: 7 E_D_TOV, 8 R_A_TOV, 9 D_S_TOV, 10 F_S_TOV */
    uint32_t value;
    uint8_t per_vsan; /* 1 the value of one VSAN, 0 the switch-wide value */
    uint8_t flag;
    uint32_t vsan; /* 0 when per_vsan is 0 */
    uint8_t tail;  /* sent back as received */
} __attribute__((packed));
static_assert(sizeof(fc_timer_record) == 15);
static_assert(offsetof(fc_timer_record, per_vsan) == 8);
static_assert(offsetof(fc_timer_record, vsan) == 10);
static_assert(offsetof(fc_timer_record, tail) == 14);

/* One pair of the membership summary, as the port manager answered; 15 bytes. */
struct vsanMembershipSummary_row {
    uint32_t vsanIndex;
    uint32_t ifIndex;
    uint8_t is_static; /* nonzero when the membership is configured */
    uint8_t unused[6];
} __attribute__((packed));
static_assert(sizeof(vsanMembershipSummary_row) == 15);

/* A switch-wide latency, 12 bytes. */
struct latency_record {
    uint32_t key; /* a vsan_attr_key_t: 17 switch latency, 18 network latency */
    uint32_t value;
    uint32_t unused; /* 0 */
};
static_assert(sizeof(latency_record) == 12);

/* ---- The manager's enumerations: values must not be renumbered ---------------- */

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

/* States of the distribution service's session for the VSAN configuration. */
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

/* ---- Registration ------------------------------------------------------------- */

/* The objects' numbers; 7 and 9 do not exist. */
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

/* 1.3.6.1.4.1.VENDOR_PEN.9.282 */
extern const oid vsan_mib_variables_oid[vsan_mib_root_length];

/* The 28 objects, ascending by suffix. */
extern const variable7 vsan_mib_variables[vsan_mib_variables_count];

/* ---- Requests ----------------------------------------------------------------- */

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

/* How long the manager may take, in the message service's unit. */
enum vsan_mib_wait_class : uint32_t {
    WAIT_TRAP = 0,
    WAIT_TABLE = 4, /* all reads, and writes of table rows */
    WAIT_MEMBERSHIP = 5,
    WAIT_TIMER = 10 /* timer writes, which the whole fabric may have to agree on */
};

/* Platform statuses that the module tells apart, and its own. */
constexpr uint32_t MANAGER_NO_SUCH_VSAN = 0x40190001u;
constexpr uint32_t MANAGER_NO_SUCH_ATTRIBUTE = 0x40190002u; /* the VSAN has no such value */
constexpr uint32_t MANAGER_NAME_CONFLICT = 0x40190004u;
constexpr uint32_t MANAGER_BAD_DROP_LATENCY = 0x40190014u;
constexpr uint32_t MANAGER_NO_VALUE = 0x4019001fu;
constexpr uint32_t MANAGER_TDX_REFUSED = 0x40190028u; /* the distribution service refuses the read */
constexpr uint32_t ENTRY_NO_INSTANCE = 0x40490002u;   /* the OID names no usable row */
constexpr uint32_t STATUS_VSAN_RESTRICTED_USER = 0x4049002cu;
constexpr uint32_t STATUS_VSAN_NOT_FOR_USER = 0x40540008u; /* creating or deleting it */
constexpr uint32_t STATUS_IN_ERRNO = UINT32_MAX;

/* The mode argument that every caller of to_snmp_error_code passes. */
constexpr int SNMP_ERROR_MODE = 3;

/* The second argument of log_set_error: where an error comes from. */
constexpr uint32_t LOG_NUMBER_REQUEST = 200;  /* a request that the manager refused */
constexpr uint32_t LOG_NUMBER_RESOURCE = 584; /* a refusal of ours, or memory that ran out */

/* The interoperability mode that the manager calls 100 and SNMP sees as 0. */
constexpr int32_t INTEROP_MODE_DEFAULT = 100;

/* VSAN numbers run from 1 to this. */
constexpr uint32_t VSAN_MAX = 4095;

/* Arcs of a column's OID: the root and 1.1.3.1.<column>, or as many elsewhere. */
constexpr size_t VSAN_COLUMN_LENGTH = vsan_mib_root_length + 5;

/* What a user wants of an interface, as the agent extension library numbers it. */
constexpr int IF_OPERATION_MOVE = 1;
constexpr int IF_OPERATION_READ = 3;

/* The application under which the distribution service governs the timers. */
constexpr char timer_feature[] = "fctimer";

/* The largest VSAN number that a GETNEXT may start from; nothing follows 4096. */
constexpr uint32_t VSAN_GETNEXT_LIMIT = 4096;

/* What came back for a vsanEntry query. */
enum class vsanEntry_answer {
    none,     /* no reply buffer */
    unusable, /* a reply buffer with a failed status, or too short for the record */
    record    /* status 0 and a whole record */
};

/* The status of the latest get_using_cmi exchange. */
extern uint32_t last_manager_status;

/*
 * Sends one vsanEntry query and receives the answer. Not exported.
 *
 * kind    GET_REQ or GETNEXT_REQ
 * key     the record to send, host order; not changed
 * row     receives the manager's record in host order; touched only for
 *         vsanEntry_answer::record. May be the same record as `key`.
 * answer  what came back
 *
 * Returns the status of the exchange; a reply with status 0 that is too short for
 * the record gives ENTRY_NO_INSTANCE. The reply buffer is released.
 */
uint32_t query_vsanEntry(uint32_t kind, const vsanEntry &key, vsanEntry &row, vsanEntry_answer &answer);

/*
 * Sends one vsanEntry in a SET_REQ or DELETE_REQ, in the name of the requester. Not
 * exported. The record is in host order and not changed: what is sent is a copy.
 * Returns the status of the exchange.
 */
uint32_t send_vsanEntry(uint32_t kind, const vsanEntry &entry);

/* What every writer does with a refused request: records the status for the agent and
 * returns the SNMP error status that stands for it. */
int refused_by_manager(uint32_t status);

/* What every writer does when memory or a list fails: records it for the agent and
 * returns genErr. */
int out_of_resources();

/* The reason of a failed exchange: errno's text for STATUS_IN_ERRNO, else the
 * platform's. Static storage; valid until the next call. */
const char *manager_error_text(uint32_t status);

/* Asks which VSANs the user of the PDU in progress may touch below `name` (`length`
 * arcs). Returns 0 when all, and then `list` says nothing; nonzero when `list` counts. */
int get_allowed_vsans(allowed_vsan_list &list, const oid *name, size_t length, int pdu_type);

/* Hands a refusal for the requester's sake to the agent's log. */
void report_restriction(uint32_t status);

/* Takes the VSAN number from the instance OID of a varbind (`name_len` arcs, the first
 * VSAN_COLUMN_LENGTH the column) into a cleared record. Returns whether it could. */
bool resolve_instance(const oid *name, size_t name_len, vsanEntry &entry);

/* How a table indexed by VSAN is read. */
struct vsan_table {
    /* Looks up the row that `name` names (`exact` nonzero) or that follows it. Returns
     * 0 with the row kept and `name` and `length` naming it, or a failure status. */
    uint32_t (*lookup)(const variable *vp, oid *name, size_t *length, int exact);
    /* The VSAN number of the row looked up last. */
    uint32_t (*current_vsan)();
};

/*
 * Looks up a row as the requester may see it: for GETNEXT the next permitted one, jumping
 * over those that are not. Permission is that of the VSAN that the manager returned.
 * `function` is the read handler's name, for its trace. Returns whether there is one.
 */
bool find_visible_row(const char *function, const vsan_table &table, const variable *vp, oid *name, size_t *length,
                      int exact);

/* A record's name as text: bounded by its field, since a terminating NUL may be missing. */
struct vsan_name_text {
    char text[sizeof vsanEntry::vsanName + 1];

    explicit vsan_name_text(const vsanEntry &entry) {
        memcpy(text, entry.vsanName, sizeof entry.vsanName);
        text[sizeof entry.vsanName] = '\0';
    }
};

/* ---- Results handed to the agent: valid until the next request ---------------- */

extern vsanEntry vsanEntry_current;                                        /* the VSAN table's row */
extern vsanIfEntry vsanIfEntry_current;                                    /* the interface table's */
alignas(4) extern vsanMembershipSummary_row vsanMembershipSummary_current; /* the membership summary's */
extern fc_timer_record vsanFcTimer_current;                                /* the timer table's */
extern int32_t vsanRowStatus_active; /* the row status, and the timer table's value */

/* ---- What the module keeps while it is loaded ------------------------------------ */

/* One byte for each VSAN number 0 to 4095: bit 0x80 forces the next R_A_TOV, 0x40 the
 * next E_D_TOV, 0x20 the next D_S_TOV. */
constexpr uint32_t VSAN_FORCE_FLAGS = 4096;
extern uint8_t vsanFcTimerForceFlags[VSAN_FORCE_FLAGS];

/* For whoever looks with a debugger; nothing here reads them. */
extern uint32_t last_loadbalancing_type; /* as requested, accepted or not */
extern uint32_t last_timer_status;
extern const u_char *last_notification_control; /* where its value lay, in range or not */

/* Where row status changes are written too, for a developer who opens it; null. */
extern FILE *vsan_mib_debug_file;

/* ---- Staging lists, alive between init_vsan_mib and deinit_vsan_mib ------------- */

extern indxobj_list vsanEntry_undo_list;
extern indxobj_list vsanEntry_list;

/* ---- Values written by the agent ------------------------------------------------ */

/*
 * Whether an INTEGER or Unsigned32 value may have this length. The agent's own
 * integer is a C long: 4 bytes on the 32-bit switch, 8 on 64-bit Linux, where a
 * 32-bit value arrives in 8 bytes. Nothing between them is an integer.
 */
constexpr bool integer_length_is_valid(size_t length) {
    return length <= 4 || length == sizeof(long);
}

/*
 * Reads an INTEGER or Unsigned32 value as one 32-bit word, from at most `length`
 * bytes (a valid length). A long that does not fit 32 bits reads as UINT32_MAX,
 * which no object accepts, so that it is never taken for a smaller number.
 */
uint32_t integer_value(const u_char *value, size_t length);

/* ---- Exported functions, described where they are defined -----------------------
 *
 * Listed in vsanmib.map too; everything else is hidden. */

#pragma GCC visibility push(default)
extern "C" {

void init_vsan_mib(void);
void deinit_vsan_mib(void);

uint32_t *get_using_cmi(uint32_t opcode, const void *payload, uint32_t length);
int to_snmp_error_code(uint32_t status, int mode);

void vsanEntry_hton(vsanEntry *entry);
void vsanEntry_ntoh(vsanEntry *entry);
void vsanIfEntry_hton(vsanIfEntry *entry);
void vsanIfEntry_ntoh(vsanIfEntry *entry);
void vsanNewFcTimer_ntoh(fc_timer_record *record);
int vsanEntry_comp(const void *a, const void *b);
int vsanIfEntry_comp(const void *a, const void *b);
void vsanEntry_defaults(vsanEntry *entry);
void vsanIfEntry_defaults(vsanIfEntry *entry);

/* Lookups of the enumerations: the name of a value or null; the value of a name,
 * compared without regard to case, or 0. */
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
const char *__vsan_attr_key_t_find(int32_t value);
int32_t __vsan_attr_key_t_str2enum(const char *name);
const char *__vsan_media_t_find(int32_t value);
int32_t __vsan_media_t_str2enum(const char *name);
const char *__vsan_loadbalancing_method_t_find(int32_t value);
int32_t __vsan_loadbalancing_method_t_str2enum(const char *name);
const char *__vsan_state_t_find(int32_t value);
int32_t __vsan_state_t_str2enum(const char *name);
const char *__vsan_oper_state_t_find(int32_t value);
int32_t __vsan_oper_state_t_str2enum(const char *name);
const char *__vsan_state_change_t_find(int32_t value);
int32_t __vsan_state_change_t_str2enum(const char *name);
const char *__port_membership_update_t_find(int32_t value);
int32_t __port_membership_update_t_str2enum(const char *name);
const char *__iscsi_vsan_list_operation_t_find(int32_t value);
int32_t __iscsi_vsan_list_operation_t_str2enum(const char *name);
const char *__vsan_tdx_state_t_find(int32_t value);
int32_t __vsan_tdx_state_t_str2enum(const char *name);
const char *__vsan_tdx_attr_t_find(int32_t value);
int32_t __vsan_tdx_attr_t_str2enum(const char *name);
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

u_char *get_vsan_mib(variable *vp, oid *name, size_t *length, int exact, size_t *var_len, WriteMethod **write_method);
u_char *get_vsanEntry(variable *vp, oid *name, size_t *length, int exact, size_t *var_len, WriteMethod **write_method);
u_char *get_vsanIfEntry(variable *vp, oid *name, size_t *length, int exact, size_t *var_len,
                        WriteMethod **write_method);
u_char *get_vsanMembershipSummaryEntry(variable *vp, oid *name, size_t *length, int exact, size_t *var_len,
                                       WriteMethod **write_method);
u_char *get_vsanFcTimerEntry(variable *vp, oid *name, size_t *length, int exact, size_t *var_len,
                             WriteMethod **write_method);

uint32_t header_vsanEntry(const oid *vp_name, size_t vp_namelen, oid *name, size_t *length, int exact,
                          vsanEntry *entry);
uint32_t get_vsanEntry_instance(const oid *vp_name, size_t vp_namelen, const oid *name, const size_t *length, int exact,
                                vsanEntry *entry);

void set_table_set_methods(int magic, WriteMethod **write_method);
void set_if_table_set_methods(int magic, WriteMethod **write_method);
void set_fctimer_table_set_methods(int magic, WriteMethod **write_method);

uint32_t header_vsanIfEntry(const oid *vp_name, size_t vp_namelen, oid *name, size_t *length, int exact,
                            vsanIfEntry *record);
uint32_t header_vsanMembershipSummaryEntry(const oid *vp_name, size_t vp_namelen, oid *name, size_t *length, int exact,
                                           vsanMembershipSummary_row *row);
uint32_t header_vsanFcTimerEntry(const variable *vp, oid *name, size_t *length, int exact, fc_timer_record *record,
                                 int for_set);
uint32_t get_vsanFcTimerEntry_instance(const oid *vp_name, size_t vp_namelen, const oid *name, const size_t *length,
                                       int exact, fc_timer_record *record);
int process_for_vsan_restriction(uint32_t if_index, int operation, uint32_t vsan, const oid *name, size_t length,
                                 int pdu_type);

int handle_onepdu_undo_vsanEntryList(int magic, const oid *name, size_t name_len, const u_char *value, size_t length);
int handle_set_vsanEntryList(const oid *name, size_t name_len);
int handle_free_vsanEntryList(const oid *name, size_t name_len);
int handle_undo_vsanEntryList(const oid *name, size_t name_len);

WriteMethod set_vsanRowStatus;
WriteMethod set_vsanName;
WriteMethod set_vsanMediaType;
WriteMethod set_vsanAdminState;
WriteMethod set_vsanMtu;
WriteMethod set_vsanLoadBalancingType;
WriteMethod set_vsanInterOperType;
WriteMethod set_vsanInterOperMode;
WriteMethod set_vsanInorderDelivery;
WriteMethod set_vsanNetworkDropLatency;
WriteMethod set_vsanIfVsan;
WriteMethod set_vsanIfDenyList;
int check_valid_ifindex(void);

WriteMethod set_vsanFcTimerForceFlag;
WriteMethod set_vsanFcTimerRatov;
WriteMethod set_vsanFcTimerEdtov;
WriteMethod set_vsanFcTimerDstov;
uint8_t set_mib_vsanFcTimerForceFlag(uint8_t flags, uint32_t key, int enable);

int set_Scalar(uint32_t opcode, uint32_t length, const void *payload);
WriteMethod set_fcTimerRatov;
WriteMethod set_fcTimerEdtov;
WriteMethod set_fcTimerDstov;
WriteMethod set_fcNetworkLatency;
WriteMethod set_fcSwitchLatency;
WriteMethod set_fcInorderDelivery;

netsnmp_variable_list *handle_notifications(const mts_message *message, oid *trap_oid, size_t *trap_length, int *send);
netsnmp_variable_list *handle_port_memb_change_notifications(const mts_message *message, oid *trap_oid,
                                                             size_t *trap_length, int *send);
WriteMethod write_vsanNotificationCntl;
int vsan_trap_vsan_set(uint32_t value);

} // extern "C"
#pragma GCC visibility pop

#endif
