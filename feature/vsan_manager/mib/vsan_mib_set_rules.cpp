// SPDX-License-Identifier: Apache-2.0
// The write methods as rows: what each accepts, what it says when it refuses, and what kind of
// write it is. Behind the rows, the functions that the agent calls.

#include "vsan_mib_exports.h"
#include "vsan_mib_set.h"
#include "vsan_mib_state.h"

uint32_t last_loadbalancing_type;
uint32_t last_timer_status;
uint32_t last_force_flag_status;

namespace {

constexpr trace_format restricted_with_line = {"%s(%d) : vsan restricted user -- not allowed in this vsan\n", __LINE__};
constexpr trace_format restricted_without_line = {"%s : vsan restricted user -- not allowed in this vsan\n"};

// ---- The VSAN table --------------------------------------------------------------

// clang-format off
constexpr set_rule name_rule = {
    .function = "set_vsanName", .kind = &write_column, .object = &object_of(VSANNAME), .highest = 32,
    .wrong_type = {.trace = {"%s(%d)write to vsanName not ASN_OCTET_STR\n", __LINE__}},
    .wrong_length = {.standard_error = "write to vsanName: bad length\n"},
    .no_instance = {"%s(%d) get vsanEntry instance! \n", __LINE__},
    .restricted = restricted_with_line,
    .phases = {{"%s(%d) : In the RESERVE1 phase \n", __LINE__}},
};

constexpr set_rule admin_state_rule = {
    .function = "set_vsanAdminState", .kind = &write_column, .object = &object_of(VSANADMINSTATE),
    .lowest = VSAN_ACTIVE, .highest = VSAN_SUSPENDED,
    .wrong_type = {.standard_error = "write to vsanAdminState not ASN_INTEGER\n"},
    .wrong_length = {.standard_error = "write to vsanAdminState: bad length\n"},
    .no_instance = {"%s(%d) ***InconsistantName! ***\n", __LINE__},
    .restricted = restricted_without_line,
    .phases = {{}, {"%s(%d) undo_vsanEntryList! \n", __LINE__}},
};

constexpr set_rule load_balancing_rule = {
    .function = "set_vsanLoadBalancingType", .kind = &write_column, .object = &object_of(VSANLOADBALANCINGTYPE),
    .lowest = VSAN_CONSIDER_SRCID_DSTID, .highest = VSAN_CONSIDER_SRCID_DSTID_OXID,
    .wrong_type = {.trace = {"%s(%d) write to vsanLoadBalancingType not ASN_INTEGER\n", __LINE__}},
    .wrong_length = {.trace = {"%s(%d) write to vsanLoadBalancingType: bad length\n", __LINE__}},
    .no_instance = {"%s(%d) ***InconsistantName! ***\n", __LINE__},
    .restricted = restricted_without_line,
    .phases = {{}, {"%s(%d) undo_vsanEntryList! \n", __LINE__}},
    .requested = &last_loadbalancing_type,
};

constexpr set_rule interop_type_rule = {
    .function = "set_vsanInterOperType", .kind = &write_column, .object = &object_of(VSANINTEROPERTYPE),
    .lowest = 0, .highest = 4,
    .wrong_type = {.trace = {"%s(%d) write to vsanInterOperType not ASN_INTEGER\n", __LINE__}},
    .wrong_length = {.trace = {"%s(%d) write to vsanInterOperType: bad length\n", __LINE__},
                     .standard_error = "write to vsanInterOperType: bad length\n"},
    .wrong_value = {.trace = {"%s(%d) Wrong Value! \n", __LINE__}},
    .no_instance = {"%s(%d) ***Return Inconsistname! ***\n", __LINE__},
    .restricted = restricted_with_line,
    .phases = {{},
               {"%s(%d) VSANINTEROPTYPE RESERVE2! \n", __LINE__},
               {"%s(%d) ACTION! \n", __LINE__},
               {"%s(%d) COMMIT! \n", __LINE__},
               {"%s(%d) FREE! \n", __LINE__},
               {"%s(%d) UNDO Req! \n", __LINE__}},
    .value_accepted = {"%s(%d) RESERVE1 \n", __LINE__},
    .vsan_accepted = {"%s(%d) tmp_entry.vsanIndex:%d \n", __LINE__},
};

constexpr set_rule inorder_delivery_rule = {
    .function = "set_vsanInorderDelivery", .kind = &write_column, .object = &object_of(VSANINORDERDELIVERY),
    .lowest = 1, .highest = 2,
    .wrong_type = {.trace = {"%s(%d) write to vsanInorderDelivery not ASN_INTEGER\n", __LINE__},
                   .standard_error = "write to vsanInorderDelivery not ASN_INTEGER\n"},
    .wrong_length = {.standard_error = "write to vsanInorderDelivery: bad length\n"},
    .no_instance = {"%s(%d) ***InconsistantName! ***\n", __LINE__},
    .restricted = restricted_with_line,
};

// The type is Unsigned32, although the text says otherwise.
constexpr set_rule network_drop_latency_rule = {
    .function = "set_vsanNetworkDropLatency", .kind = &write_column, .object = &object_of(VSANNETWORKDROPLATENCY),
    .lowest = 1, .highest = 60000,
    .wrong_type = {.standard_error = "write to vsanNetworkDropLatency not ASN_INTEGER\n"},
    .wrong_length = {.standard_error = "write to vsanNetworkDropLatency: bad length\n"},
    .no_instance = {"%s(%d) ***InconsistantName! ***\n", __LINE__},
    .restricted = restricted_with_line,
    .zero_is_an_error = true,
};

// Stages into the same field as the interoperability type; no column hands it out.
constexpr set_rule interop_mode_rule = {
    .function = "set_vsanInterOperMode", .kind = &write_column, .object = &object_of(VSANINTEROPERTYPE),
    .lowest = 1, .highest = 2,
    .wrong_type = {.standard_error = "write to vsanInterOperMode not ASN_INTEGER\n"},
    .wrong_length = {.standard_error = "write to vsanInterOperMode: bad length\n"},
    .no_instance = {"%s(%d) ***InconsistantName! ***\n", __LINE__},
    .restricted = restricted_without_line,
    .every_call = {"%s(%d) \n", __LINE__},
    .phases = {{}, {"%s(%d) in RESERVE2 \n", __LINE__}},
};

// Which of the values from 1 to 6 it takes, and for which rows, the row status says.
constexpr set_rule row_status_rule = {
    .function = "set_vsanRowStatus", .kind = &write_row_status, .object = &object_of(VSANROWSTATUS),
    .wrong_type = {.trace = {"%s(%d) RESERVE1 !ASN_INTEGER \n", __LINE__},
                   .standard_error = "write to vsanRowStatus not ASN_INTEGER\n"},
    .wrong_length = {.standard_error = "write to vsanRowStatus: bad length\n"},
    .restricted = {"%s : vsan restricted user is not allowed to set \n"},
    .restricted_status = STATUS_VSAN_NOT_FOR_USER,
    .every_call = {"%s(%d) \n", __LINE__},
    .phases = {{"%s(%d) In RESERVE1 \n", __LINE__},
               {"%s(%d) RESERVE2 \n", __LINE__},
               {"%s(%d) ACTION calling header_vsanEntry\n", __LINE__},
               {"%s(%d) in COMMIT \n", __LINE__},
               {"%s(%d) FREE \n", __LINE__},
               {"%s(%d) UNDO Back out any Changes! \n", __LINE__}},
};

// ---- The interface table ---------------------------------------------------------

constexpr set_rule membership_rule = {
    .function = "set_vsanIfVsan", .kind = &write_membership, .object = &object_of(VSANIFVSAN),
    .lowest = 1, .highest = VSAN_MAX,
    .wrong_type = {.standard_error = "write to vsanIfVsan not ASN_INTEGER\n"},
    .wrong_length = {.standard_error = "write to vsanIfVsan: bad length\n"},
};

// ---- The timers of single VSANs ----------------------------------------------------
//
// The texts differ in spacing from one to the next; management scripts match them, so they
// stay as they are.

constexpr trace_format setting = {"%s : setting the values"};

constexpr set_rule vsan_ratov_rule = {
    .function = "set_vsanFcTimerRatov", .kind = &write_timer, .object = &object_of(VSANFCTIMERRATOV),
    .lowest = 5000, .highest = 100000,
    .wrong_type = {.trace = {"%s : write to vsanFcTimerRatov not ASN_UNSIGNED \n"}},
    .wrong_length = {.trace = {"%s : write to vsanFcTimerRatov bad length\n"}},
    .wrong_value = {.trace = {"%s : wrong value \n"}},
    .restricted = restricted_without_line,
    .phases = {{"%s : setting the values RESERVE1 "},
               {"%s : setting the values RESERVE2 "},
               {"%s : setting the values ACTION"},
               {},
               {"%s : setting the values FREE "}},
    .last_status = &last_timer_status,
};

constexpr set_rule vsan_edtov_rule = {
    .function = "set_vsanFcTimerEdtov", .kind = &write_timer, .object = &object_of(VSANFCTIMEREDTOV),
    .lowest = 1000, .highest = 100000,
    .wrong_type = {.trace = {" %s : write to vsanFcTimerEdtov not ASN_UNSIGNED\n"}},
    .wrong_length = {.trace = {" %s : write to vsanFcTimerEdtov bad length \n"}},
    .wrong_value = {.trace = {" %s : write to vsanFcTimerEdtov wrong value \n"}},
    .restricted = restricted_without_line,
    .phases = {setting, setting, setting, setting, setting, setting},
};

constexpr set_rule vsan_dstov_rule = {
    .function = "set_vsanFcTimerDstov", .kind = &write_timer, .object = &object_of(VSANFCTIMERDSTOV),
    .lowest = 5000, .highest = 100000,
    .wrong_type = {.trace = {"%s : write to vsanFcTimerDstov not ASN_UNSIGNED\n"}},
    .wrong_length = {.trace = {"%s : write to vsanFcTimerDstov - bad length \n"}},
    .wrong_value = {.trace = {"%s : write to vsanFcTimerDstov - wrong value \n"}},
    .restricted = restricted_without_line,
    .phases = {setting, setting, setting, setting, setting, setting},
};

constexpr set_rule force_flag_rule = {
    .function = "set_vsanFcTimerForceFlag", .kind = &write_force_flag, .object = &object_of(VSANFCTIMERFORCEFLAG),
    .highest = 1,
    .wrong_type = {.trace = {"%s : write to vsanFcTimerForceFlag not ASN_OCTET_STR \n"}},
    .wrong_length = {.trace = {"%s : write to vsanFcTimerForceFlag - bad length \n"}},
    .restricted = restricted_without_line,
    .last_status = &last_force_flag_status,
};

// ---- The scalars -------------------------------------------------------------------

constexpr set_rule ratov_rule = {
    .function = "set_fcTimerRatov", .kind = &write_scalar, .object = &object_of(FCTIMERRATOV),
    .lowest = 5000, .highest = 100000,
    .wrong_type = {.trace = {"%s : write to fcTimerRatov not ASN_UNSIGNED\n"}},
    .wrong_length = {.trace = {"%s : write to fcTimerRatov - bad length\n "}},
};

constexpr set_rule edtov_rule = {
    .function = "set_fcTimerEdtov", .kind = &write_scalar, .object = &object_of(FCTIMEREDTOV),
    .lowest = 1000, .highest = 100000,
    .wrong_type = {.trace = {"%s : write to fcTimerEdtov not ASN_UNSIGNED\n"}},
    .wrong_length = {.trace = {"%s : write to fcTimerEdtov - bad length \n"}},
};

constexpr set_rule dstov_rule = {
    .function = "set_fcTimerDstov", .kind = &write_scalar, .object = &object_of(FCTIMERDSTOV),
    .lowest = 5000, .highest = 100000,
    .wrong_type = {.trace = {"%s : write to fcTimerDstov not ASN_UNSIGNED \n"}},
    .wrong_length = {.trace = {"%s : write to fcTimerDstov - bad length \n"}},
};

constexpr set_rule network_latency_rule = {
    .function = "set_fcNetworkLatency", .kind = &write_scalar, .object = &object_of(FCNETWORKLATENCY),
    .lowest = 0, .highest = 60000,
    .wrong_type = {.standard_error = "write to fcNetworkLatency not ASN_UNSIGNED\n"},
    .wrong_length = {.standard_error = "write to fcNetworkLatency: bad length\n"},
};

constexpr set_rule switch_latency_rule = {
    .function = "set_fcSwitchLatency", .kind = &write_scalar, .object = &object_of(FCSWITCHLATENCY),
    .lowest = 0, .highest = 60000,
    .wrong_type = {.standard_error = "write to fcSwitchLatency not ASN_UNSIGNED\n"},
    .wrong_length = {.standard_error = "write to fcSwitchLatency: bad length\n"},
};

constexpr set_rule delivery_rule = {
    .function = "set_fcInorderDelivery", .kind = &write_scalar, .object = &object_of(FCINORDERDELIVERY),
    .lowest = 1, .highest = 2,
    .wrong_type = {.standard_error = "write to fcInorderDelivery not ASN_INTEGER\n"},
    .wrong_length = {.standard_error = "write to fcInorderDelivery: bad length\n"},
};

// ---- The notification control -------------------------------------------------------

// No object of this MIB hands it out yet.
constexpr vsan_object notification_control = {
    vsan_mib_magic{}, object_table::scalar, ASN_INTEGER, NETSNMP_OLDAPI_RWRITE, {}, write_vsanNotificationCntl};

constexpr set_rule notification_control_rule = {
    .function = "write_vsanNotificationCntl", .kind = &write_notification_control, .object = &notification_control,
    .lowest = 1, .highest = 2,
    .wrong_type = {.standard_error = "write to vsanNotificationCntl not ASN_INTEGER\n"},
    .wrong_length = {.standard_error = "write to vsanNotificationCntl: bad length\n"},
};

// clang-format on

// Whether a rule is that of the write method which its object hands out.
constexpr bool fits_object(const set_rule &rule, WriteMethod *writer) {
    return rule.object->writer == writer && rule.object->access == NETSNMP_OLDAPI_RWRITE;
}

} // namespace

extern "C" {

// The write methods, called by the agent once a phase. Each returns an SNMP error status.
#define WRITE_METHOD(method, rule)                                                                                     \
    int method(int action, u_char *var_val, u_char var_val_type, size_t var_val_len, u_char *statP, oid *name,         \
               size_t name_len) {                                                                                      \
        return run_phase(action, {rule, var_val, var_val_type, var_val_len, statP, name, name_len});                   \
    }

#define OBJECT_WRITE_METHOD(method, rule)                                                                              \
    static_assert(fits_object(rule, method));                                                                          \
    WRITE_METHOD(method, rule)

OBJECT_WRITE_METHOD(set_vsanName, name_rule)
OBJECT_WRITE_METHOD(set_vsanAdminState, admin_state_rule)
OBJECT_WRITE_METHOD(set_vsanLoadBalancingType, load_balancing_rule)
OBJECT_WRITE_METHOD(set_vsanInterOperType, interop_type_rule)
OBJECT_WRITE_METHOD(set_vsanInorderDelivery, inorder_delivery_rule)
OBJECT_WRITE_METHOD(set_vsanNetworkDropLatency, network_drop_latency_rule)
OBJECT_WRITE_METHOD(set_vsanRowStatus, row_status_rule)
OBJECT_WRITE_METHOD(set_vsanIfVsan, membership_rule)
OBJECT_WRITE_METHOD(set_vsanFcTimerForceFlag, force_flag_rule)
OBJECT_WRITE_METHOD(set_vsanFcTimerRatov, vsan_ratov_rule)
OBJECT_WRITE_METHOD(set_vsanFcTimerEdtov, vsan_edtov_rule)
OBJECT_WRITE_METHOD(set_vsanFcTimerDstov, vsan_dstov_rule)
OBJECT_WRITE_METHOD(set_fcTimerRatov, ratov_rule)
OBJECT_WRITE_METHOD(set_fcTimerEdtov, edtov_rule)
OBJECT_WRITE_METHOD(set_fcTimerDstov, dstov_rule)
OBJECT_WRITE_METHOD(set_fcNetworkLatency, network_latency_rule)
OBJECT_WRITE_METHOD(set_fcSwitchLatency, switch_latency_rule)
OBJECT_WRITE_METHOD(set_fcInorderDelivery, delivery_rule)
OBJECT_WRITE_METHOD(write_vsanNotificationCntl, notification_control_rule)
WRITE_METHOD(set_vsanInterOperMode, interop_mode_rule)

// What is read-only: the agent refuses a SET before it comes here.
int set_vsanMediaType(int, u_char *, u_char, size_t, u_char *, oid *, size_t) {
    return SNMP_ERR_NOSUCHNAME;
}
int set_vsanMtu(int, u_char *, u_char, size_t, u_char *, oid *, size_t) {
    return SNMP_ERR_NOSUCHNAME;
}
int set_vsanIfDenyList(int, u_char *, u_char, size_t, u_char *, oid *, size_t) {
    return SNMP_ERR_NOSUCHNAME;
}

} // extern "C"
