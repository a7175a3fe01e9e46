// SPDX-License-Identifier: Apache-2.0
// The 28 objects as rows of data: who reads each, where its value lies, who writes it, and what
// the trace says of it. The registration table is held against them where it stands.
#ifndef VSAN_MIB_OBJECTS_H
#define VSAN_MIB_OBJECTS_H

#include "vsan_mib_agent.h"

#include "vsan_mib.h"
#include "vsan_mib_exports.h"
#include "vsan_mib_trace.h"

// Which read handler an object has, and so which record its value lies in.
enum class object_table : uint8_t { scalar, vsan, interface, membership, timer };

enum class value_form : uint8_t {
    word,
    name,         // as many bytes as stand before the NUL
    row_status,   // a row that can be read is active, whatever the manager keeps in its record
    interop_mode, // the manager's default mode is 0
    force_flag    // the VSAN's byte of vsanFcTimerForceFlags
};

// Where a value lies.
struct value_place {
    value_form form = value_form::word;
    uint16_t at = 0;     // byte in the record of its table
    uint16_t opcode = 0; // what the manager is asked for a scalar
    uint8_t key = 0;     // the timer or latency, a vsan_attr_key_t
};

constexpr value_place in_record(size_t at, value_form form = value_form::word) {
    return {form, static_cast<uint16_t>(at), 0, 0};
}

constexpr value_place asked_with(vsan_mib_opcode opcode, uint8_t key = 0) {
    return {value_form::word, 0, static_cast<uint16_t>(opcode), key};
}

constexpr value_place timer_value(uint8_t key) {
    return {value_form::word, offsetof(fc_timer_record, value), 0, key};
}

struct vsan_object {
    vsan_mib_magic magic;
    object_table table;
    u_char type;
    uint8_t access; // as registered
    value_place place;
    WriteMethod *writer;        // what the read handler hands the agent
    trace_format selected = {}; // what set_table_set_methods says when it does
    trace_format reading = {};  // what get_vsanEntry says of the value, or get_vsan_mib with the key
};

// The row of an object, or null for a number that is none of the table's.
const vsan_object *find_object(int magic, object_table table);

// The write methods of media type and MTU refuse: the agent never calls them. Nothing writes
// the operational state, and so the agent refuses a SET of it although it is read-write.
//
// clang-format off
inline constexpr vsan_object vsan_objects[] = {
    {VSANNUMBER,                   object_table::scalar,     ASN_INTEGER,   NETSNMP_OLDAPI_RONLY,  asked_with(OPCODE_VSAN_NUMBER), nullptr, {},
     {"%s : Sending GET request to VSAN mgr for VSANNUMBER\n"}},
    {VSANTABLELASTCHANGE,          object_table::scalar,     ASN_TIMETICKS, NETSNMP_OLDAPI_RONLY,  asked_with(OPCODE_VSAN_TABLE_LAST_CHANGE), nullptr, {},
     {"%s : Sending GET request to VSAN mgr for VSANTABLELASTCHANGE\n"}},
    {VSANNAME,                     object_table::vsan,       ASN_OCTET_STR, NETSNMP_OLDAPI_RWRITE, in_record(offsetof(vsanEntry, vsanName), value_form::name), set_vsanName,
     {"%s(%d) set-method VSANNAME \n", __LINE__}},
    {VSANMEDIATYPE,                object_table::vsan,       ASN_INTEGER,   NETSNMP_OLDAPI_RONLY,  in_record(offsetof(vsanEntry, vsanMediaType)), set_vsanMediaType,
     {"%s(%d) set-method VSANNAME \n", __LINE__},
     {"%s(%d) VSANMEDIATYPE \n", __LINE__}},
    {VSANADMINSTATE,               object_table::vsan,       ASN_INTEGER,   NETSNMP_OLDAPI_RWRITE, in_record(offsetof(vsanEntry, vsanAdminState)), set_vsanAdminState,
     {"%s(%d) set-method VSANADMINSTATE \n", __LINE__},
     {"%s(%d) VSANADMINSTATE \n", __LINE__}},
    {VSANMTU,                      object_table::vsan,       ASN_UNSIGNED,  NETSNMP_OLDAPI_RONLY,  in_record(offsetof(vsanEntry, vsanMtu)), set_vsanMtu,
     {"%s(%d) set-method VSANMTU \n", __LINE__}},
    {VSANLOADBALANCINGTYPE,        object_table::vsan,       ASN_INTEGER,   NETSNMP_OLDAPI_RWRITE, in_record(offsetof(vsanEntry, vsanLoadBalancingType)), set_vsanLoadBalancingType,
     {"%s(%d) set-method VSANLOADBALANCINGTYPE \n", __LINE__}},
    {VSANOPERSTATE,                object_table::vsan,       ASN_INTEGER,   NETSNMP_OLDAPI_RWRITE, in_record(offsetof(vsanEntry, vsanOperState)), nullptr, {},
     {"%s(%d) VSANOPERSTATE  \n", __LINE__}},
    {VSANROWSTATUS,                object_table::vsan,       ASN_INTEGER,   NETSNMP_OLDAPI_RWRITE, in_record(offsetof(vsanEntry, vsanRowStatus), value_form::row_status), set_vsanRowStatus,
     {"%s(%d) set-method VSANROWSTATUS \n", __LINE__}},
    {VSANINTEROPERTYPE,            object_table::vsan,       ASN_INTEGER,   NETSNMP_OLDAPI_RWRITE, in_record(offsetof(vsanEntry, vsanInterOperMode), value_form::interop_mode), set_vsanInterOperType,
     {"%s(%d) set-method VSANITEROPERYPE \n", __LINE__}},
    {VSANINORDERDELIVERY,          object_table::vsan,       ASN_INTEGER,   NETSNMP_OLDAPI_RWRITE, in_record(offsetof(vsanEntry, vsanInorderDelivery)), set_vsanInorderDelivery,
     {"%s(%d) set-method VSANINORDERDELIVERY \n", __LINE__}},
    {VSANNETWORKDROPLATENCY,       object_table::vsan,       ASN_UNSIGNED,  NETSNMP_OLDAPI_RWRITE, in_record(offsetof(vsanEntry, vsanNetworkDropLatency)), set_vsanNetworkDropLatency,
     {"%s(%d) set-method VSANNETWORKDROPLATENCY \n", __LINE__}},
    {VSANIFNUMBER,                 object_table::scalar,     ASN_INTEGER,   NETSNMP_OLDAPI_RONLY,  asked_with(OPCODE_VSAN_IF_NUMBER), nullptr, {},
     {"%s : Sending GET request to VSAN mgr for VSANIFNUMBER \n"}},
    {VSANIFVSAN,                   object_table::interface,  ASN_INTEGER,   NETSNMP_OLDAPI_RWRITE, in_record(offsetof(vsanIfEntry, vsanIfVsan)), set_vsanIfVsan},
    {VSANIFDENYLIST,               object_table::interface,  ASN_INTEGER,   NETSNMP_OLDAPI_RONLY,  in_record(offsetof(vsanIfEntry, vsanIfDenyList)), nullptr},
    {VSANMEMBERSHIPSUMMARYIFINDEX, object_table::membership, ASN_INTEGER,   NETSNMP_OLDAPI_RONLY,  in_record(offsetof(vsanMembershipSummary_row, ifIndex)), nullptr},
    {FCTIMERRATOV,                 object_table::scalar,     ASN_UNSIGNED,  NETSNMP_OLDAPI_RWRITE, asked_with(OPCODE_FC_TIMER, VSAN_ATTR_R_A_TOV), set_fcTimerRatov, {},
     {"%s : Sending GET request to VSAN mgr for  FCTIMERRATOV with fctimer_type=%d\n"}},
    {FCTIMEREDTOV,                 object_table::scalar,     ASN_UNSIGNED,  NETSNMP_OLDAPI_RWRITE, asked_with(OPCODE_FC_TIMER, VSAN_ATTR_E_D_TOV), set_fcTimerEdtov, {},
     {"%s : Sending GET request to VSAN mgr for FCTIMEREDTOV with fctimer_type =%d\n"}},
    {FCTIMERFSTOV,                 object_table::scalar,     ASN_UNSIGNED,  NETSNMP_OLDAPI_RONLY,  asked_with(OPCODE_FC_TIMER, VSAN_ATTR_F_S_TOV), nullptr, {},
     {"%s : Sending GET request to VSAN mgr for FCTIMERFSTOV with fctimer_type = %d\n"}},
    {FCTIMERDSTOV,                 object_table::scalar,     ASN_UNSIGNED,  NETSNMP_OLDAPI_RWRITE, asked_with(OPCODE_FC_TIMER, VSAN_ATTR_D_S_TOV), set_fcTimerDstov, {},
     {"%s : Sending GET request to VSAN mgr for FCTIMERDSTOV fctimertype = %d\n"}},
    {FCNETWORKLATENCY,             object_table::scalar,     ASN_UNSIGNED,  NETSNMP_OLDAPI_RWRITE, asked_with(OPCODE_LATENCY, VSAN_ATTR_NETWORK_LATENCY), set_fcNetworkLatency, {},
     {"%s : Sending GET request to VSAN mgr for FCNETWORKLATENCY with latencytype=%d\n"}},
    {FCSWITCHLATENCY,              object_table::scalar,     ASN_UNSIGNED,  NETSNMP_OLDAPI_RWRITE, asked_with(OPCODE_LATENCY, VSAN_ATTR_SWITCH_LATENCY), set_fcSwitchLatency, {},
     {"%s : Sending GET request to VSAN mgr for FCSWITCHLATENCY with latencytype = %d\n"}},
    {FCINORDERDELIVERY,            object_table::scalar,     ASN_INTEGER,   NETSNMP_OLDAPI_RWRITE, asked_with(OPCODE_INORDER_DELIVERY), set_fcInorderDelivery, {},
     {"%s : Sending GET request to VSAN mgr for FCINORDERDELIVERY\n"}},
    {VSANFCTIMERFORCEFLAG,         object_table::timer,      ASN_OCTET_STR, NETSNMP_OLDAPI_RWRITE, {value_form::force_flag}, set_vsanFcTimerForceFlag},
    {VSANFCTIMERRATOV,             object_table::timer,      ASN_UNSIGNED,  NETSNMP_OLDAPI_RWRITE, timer_value(VSAN_ATTR_R_A_TOV), set_vsanFcTimerRatov},
    {VSANFCTIMEREDTOV,             object_table::timer,      ASN_UNSIGNED,  NETSNMP_OLDAPI_RWRITE, timer_value(VSAN_ATTR_E_D_TOV), set_vsanFcTimerEdtov},
    {VSANFCTIMERDSTOV,             object_table::timer,      ASN_UNSIGNED,  NETSNMP_OLDAPI_RWRITE, timer_value(VSAN_ATTR_D_S_TOV), set_vsanFcTimerDstov},
    {VSANFCTIMERFSTOV,             object_table::timer,      ASN_UNSIGNED,  NETSNMP_OLDAPI_RONLY,  timer_value(VSAN_ATTR_F_S_TOV), nullptr},
};
// clang-format on

// The row of an object, at compile time.
constexpr const vsan_object &object_of(vsan_mib_magic magic) {
    size_t place = 0;
    while (vsan_objects[place].magic != magic) {
        ++place;
    }
    return vsan_objects[place];
}

#endif
