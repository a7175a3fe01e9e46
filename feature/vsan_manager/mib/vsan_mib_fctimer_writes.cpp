// SPDX-License-Identifier: Apache-2.0
// SET on the per-VSAN Fibre Channel timer table: three timers, sent in ACTION and never
// undone, and the force flags that the module keeps for them.

#include "vsan_mib_channel.h"
#include "vsan_mib_exports.h"
#include "vsan_mib_set.h"
#include "vsan_mib_state.h"
#include "vsan_mib_trace.h"

#include "mts.h"
#include "netsnmpagent_oryx.h"
#include "sysmgr.h"

#include <arpa/inet.h>
#include <cerrno>

namespace {

constexpr u_char FORCE_R_A_TOV = 0x80;
constexpr u_char FORCE_E_D_TOV = 0x40;
constexpr u_char FORCE_D_S_TOV = 0x20;

u_char last_force_flag_input;

// Returns a status, which the rule's `last_status` keeps where it has one.
uint32_t keep(const set_rule &rule, uint32_t status) {
    if (rule.last_status != nullptr) {
        *rule.last_status = status;
    }
    return status;
}

uint32_t find_vsan(const set_call &call, fc_timer_record &record) {
    return keep(call.rule,
                get_vsanFcTimerEntry_instance(call.name, VSAN_COLUMN_LENGTH, call.name, &call.name_len, 1, &record));
}

// The last two checks of RESERVE1: the instance, and whether the user may touch it.
int check_instance(const set_call &call) {
    fc_timer_record record;
    return find_vsan(call, record) == 0 ? check_permission(call, record.vsan) : SNMP_ERR_INCONSISTENTNAME;
}

// Whether the next SET of a VSAN's timer is to be forced.
bool is_forced(uint32_t vsan, uint32_t key) {
    return (vsanFcTimerForceFlags[vsan] & set_mib_vsanFcTimerForceFlag(0, key, 1)) != 0;
}

} // namespace

int check_timer(const set_call &call) {
    const int status = check_value(call);
    return status == SNMP_ERR_NOERROR ? check_instance(call) : status;
}

int send_timer(const set_call &call) {
    const char *function = call.rule.function;
    fc_timer_record record;
    const uint32_t found = find_vsan(call, record);
    if (found != 0) {
        return to_snmp_error_code(found, SNMP_ERROR_MODE);
    }
    const uint32_t key = call.rule.object->place.key;
    const bool forced = is_forced(record.vsan, key);
    if (forced) {
        VSAN_TRACE(TRACE_EVENT, "%s : ACTION vsanid = %d  ForceFlag SET - true ", function,
                   static_cast<int>(record.vsan));
    } else {
        VSAN_TRACE(TRACE_EVENT, "%s : ACTION vsanid = %d  ForceFlag SET - false ", function,
                   static_cast<int>(record.vsan));
    }
    record.key = htonl(key);
    record.value = htonl(integer_of(call));
    record.per_vsan = 1;
    record.flag = forced ? 1 : 0;
    record.vsan = htonl(record.vsan);
    uint32_t payload_length = sizeof record;
    sysmgr_heartbeat(1);
    const uint32_t status =
        keep(call.rule, cmi_req_resp(OPCODE_FC_TIMER, SET_REQ, &record, nullptr, &payload_length, get_snmp_username(0),
                                     get_snmp_sessionid(0), MANAGER_SAP_VSAN, mts_response_q, WAIT_TIMER));
    const int error_number = errno;
    sysmgr_heartbeat(0);
    if (status == 0) {
        return SNMP_ERR_NOERROR;
    }
    // Not what the heartbeat has left there, nor what the trace may set.
    errno = error_number;
    const char *reason = manager_error_text(status);
    VSAN_TRACE(TRACE_FAILURE, "%s : ACTION set REq failed , %s  ", function, reason);
    return refused_by_manager(status);
}

namespace {

// The first byte of a force-flag value, which an empty value has too: the agent's
// buffer is never smaller.
u_char first_byte(const u_char *value) {
    return value == nullptr ? 0 : *value;
}

// Arms a timer's force bit where the input has it; `format` says so with the flags so far.
void arm(const set_call &call, uint8_t &flags, uint32_t key, const char *format) {
    if ((last_force_flag_input & set_mib_vsanFcTimerForceFlag(0, key, 1)) != 0) {
        flags = set_mib_vsanFcTimerForceFlag(flags, key, 1);
        VSAN_TRACE(TRACE_EVENT, format, call.rule.function, flags);
    }
}

} // namespace

int check_force_flag(const set_call &call) {
    const int status = check_form(call);
    if (status != SNMP_ERR_NOERROR) {
        return status;
    }
    last_force_flag_input = first_byte(call.value);
    VSAN_TRACE(TRACE_EVENT, "%s : ACTION flag i/p %x ", call.rule.function, last_force_flag_input);
    return check_instance(call);
}

// Replaces the VSAN's flags; the five bits that stand for nothing are dropped. A force flag
// counts for timers that follow it in the PDU, and stays set until it is written again.
int store_force_flag(const set_call &call) {
    fc_timer_record record;
    const uint32_t found = find_vsan(call, record);
    if (found != 0) {
        return to_snmp_error_code(found, SNMP_ERROR_MODE);
    }
    last_force_flag_input = first_byte(call.value);
    uint8_t &flags = vsanFcTimerForceFlags[record.vsan];
    flags = 0;
    arm(call, flags, VSAN_ATTR_R_A_TOV, "%s : SET R_A_TOV flag :  %x");
    arm(call, flags, VSAN_ATTR_E_D_TOV, "%s : SET E_D_TOV flag :  %x");
    arm(call, flags, VSAN_ATTR_D_S_TOV, "%s : SET D_S_TOV flag :  %x");
    VSAN_TRACE(TRACE_EVENT, "%s : ACTION vsan_id = %d , flag set :  %x ", call.rule.function,
               static_cast<int>(record.vsan), flags);
    return SNMP_ERR_NOERROR;
}

extern "C" {

// Returns `flags` with the force bit of timer `key` (a vsan_attr_key_t value) added
// when `enable` is nonzero and the timer has one.
uint8_t set_mib_vsanFcTimerForceFlag(uint8_t flags, uint32_t key, int enable) {
    if (enable == 0) {
        return flags;
    }
    switch (key) {
    case VSAN_ATTR_R_A_TOV:
        return flags | FORCE_R_A_TOV;
    case VSAN_ATTR_E_D_TOV:
        return flags | FORCE_E_D_TOV;
    case VSAN_ATTR_D_S_TOV:
        return flags | FORCE_D_S_TOV;
    default:
        return flags;
    }
}

} // extern "C"
