// SPDX-License-Identifier: Apache-2.0
// The phases of every write method, the checks that they share, and the column writers, whose
// phases those of the staging lists are.

#include "vsan_mib_set.h"
#include "vsan_mib_exports.h"
#include "vsan_mib_names.h"
#include "vsan_mib_never.h"
#include "vsan_mib_values.h"
#include "vsan_mib_visibility.h"

#include "netsnmpagent_oryx.h"

#include <cstdio>

void trace(const set_rule &rule, const trace_format &format, uint32_t trace_class) {
    if (format.text != nullptr) {
        VSAN_TRACE(trace_class, format.text, rule.function, format.line);
    }
}

int run_phase(int action, const set_call &call) {
    trace(call.rule, call.rule.every_call, TRACE_EVENT);
    if (action < RESERVE1 || action > UNDO) {
        return SNMP_ERR_NOERROR;
    }
    trace(call.rule, call.rule.phases[action], TRACE_EVENT);
    const auto phase = call.rule.kind->phases[action];
    return phase != nullptr ? phase(call) : SNMP_ERR_NOERROR;
}

namespace {

int refuse(const set_rule &rule, const refusal &texts, int status) {
    trace(rule, texts.trace, TRACE_EVENT);
    if (texts.standard_error != nullptr) {
        fputs(texts.standard_error, stderr);
    }
    return status;
}

// A name has no blank. What follows a NUL is not seen, here or by the manager.
int check_name(const set_call &call) {
    for (size_t i = 0; i < call.length && call.value[i] != '\0'; ++i) {
        if (call.value[i] == ' ') {
            return SNMP_ERR_WRONGVALUE;
        }
    }
    return SNMP_ERR_NOERROR;
}

} // namespace

int check_form(const set_call &call) {
    const set_rule &rule = call.rule;
    if (call.type != rule.object->type) {
        return refuse(rule, rule.wrong_type, SNMP_ERR_WRONGTYPE);
    }
    const bool fits =
        rule.object->type == ASN_OCTET_STR ? call.length <= rule.highest : integer_length_is_valid(call.length);
    return fits ? SNMP_ERR_NOERROR : refuse(rule, rule.wrong_length, SNMP_ERR_WRONGLENGTH);
}

int check_range(const set_call &call) {
    const set_rule &rule = call.rule;
    const uint32_t number = integer_of(call);
    if (rule.requested != nullptr) {
        *rule.requested = number;
    }
    if (rule.zero_is_an_error && number == 0) {
        log_set_error(MANAGER_BAD_DROP_LATENCY, LOG_NUMBER_REQUEST);
        return SNMP_ERR_GENERR;
    }
    // One unsigned comparison: what lies below the lower bound wraps and fails too.
    return number - rule.lowest > rule.highest - rule.lowest ? refuse(rule, rule.wrong_value, SNMP_ERR_WRONGVALUE)
                                                             : SNMP_ERR_NOERROR;
}

int check_value(const set_call &call) {
    const int status = check_form(call);
    if (status != SNMP_ERR_NOERROR) {
        return status;
    }
    return call.rule.object->type == ASN_OCTET_STR ? check_name(call) : check_range(call);
}

int check_permission(const set_call &call, uint32_t vsan) {
    const set_rule &rule = call.rule;
    allowed_vsan_list allowed;
    if (get_allowed_vsans(allowed, call.name, call.name_len, PDU_TYPE_SET) == 0) {
        return SNMP_ERR_NOERROR;
    }
    if (snmp_is_vsan_allowed_in_list(vsan, allowed) == 0) {
        trace(rule, rule.restricted, TRACE_FAILURE);
        report_restriction(rule.restricted_status);
        return SNMP_ERR_GENERR;
    }
    if (rule.vsan_accepted.text != nullptr) {
        VSAN_TRACE(TRACE_EVENT, rule.vsan_accepted.text, rule.function, rule.vsan_accepted.line,
                   static_cast<int>(vsan));
    }
    return SNMP_ERR_NOERROR;
}

uint32_t integer_of(const set_call &call) {
    return integer_value(call.value, call.length);
}

namespace {

int check_column(const set_call &call) {
    const int status = check_value(call);
    if (status != SNMP_ERR_NOERROR) {
        return status;
    }
    trace(call.rule, call.rule.value_accepted, TRACE_EVENT);
    vsanEntry entry;
    if (VSAN_NEVER(!resolve_instance(call.name, call.name_len, entry), EXACT_NAMES_RESOLVE)) {
        trace(call.rule, call.rule.no_instance, TRACE_EVENT);
        return SNMP_ERR_INCONSISTENTNAME;
    }
    return check_permission(call, static_cast<uint32_t>(entry.vsanIndex));
}

int stage_column(const set_call &call) {
    return handle_onepdu_undo_vsanEntryList(call.rule.object->magic, call.name, call.name_len, call.value, call.length);
}

int send_columns(const set_call &call) {
    return handle_set_vsanEntryList(call.name, call.name_len);
}

int release_staged(const set_call &call) {
    return handle_free_vsanEntryList(call.name, call.name_len);
}

} // namespace

// Only the VSAN table stages anything; everything else acts at once and keeps nothing.
//
// clang-format off
//                                              RESERVE1                    RESERVE2      ACTION                 COMMIT          FREE            UNDO
const write_kind write_column =               {{check_column,               stage_column, send_columns,          release_staged, release_staged, nullptr}};
const write_kind write_row_status =           {{check_row_status,           show_active,  apply_row_status,      release_staged, release_staged, undo_row_status}};
const write_kind write_membership =           {{check_membership,           nullptr,      move_interface,        nullptr,        nullptr,        nullptr}};
const write_kind write_timer =                {{check_timer,                nullptr,      send_timer,            nullptr,        nullptr,        nullptr}};
const write_kind write_force_flag =           {{check_force_flag,           nullptr,      store_force_flag,      nullptr,        nullptr,        nullptr}};
const write_kind write_scalar =               {{check_value,                nullptr,      send_scalar,           nullptr,        nullptr,        nullptr}};
const write_kind write_notification_control = {{check_notification_control, nullptr,      ask_for_notifications, nullptr,        nullptr,        nullptr}};
// clang-format on
static_assert(RESERVE1 == 0 && RESERVE2 == 1 && ACTION == 2 && COMMIT == 3 && FREE == 4 && UNDO == 5);
