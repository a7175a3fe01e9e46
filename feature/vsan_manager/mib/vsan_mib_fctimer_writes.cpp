// SET on the per-VSAN Fibre Channel timer table: three timers, sent in ACTION and never
// undone, and the force flags that the module keeps for them.

#include "vsan_mib.h"
#include "vsan_mib_trace.h"

#include "syserr.h"
#include "sysmgr.h"

#include <arpa/inet.h>

uint32_t last_timer_status;

namespace {

constexpr u_char FORCE_R_A_TOV = 0x80;
constexpr u_char FORCE_E_D_TOV = 0x40;
constexpr u_char FORCE_D_S_TOV = 0x20;

constexpr char restricted_text[] = "%s : vsan restricted user -- not allowed in this vsan\n";

u_char last_force_flag_input;
uint32_t last_force_flag_status;

// One timer's writer. The texts differ in spacing from one to the next; management
// scripts match them, so they stay as they are.
struct timer_rule {
    const char *function;
    uint32_t lowest;
    uint32_t highest;
    vsan_attr_key_t key;
    u_char force_bit;
    const char *wrong_type;
    const char *wrong_length;
    const char *wrong_value;
    // Traces on entry to a phase, by action code, null for none.
    const char *phases[6];
};

constexpr timer_rule ratov_rule = {
    .function = "set_vsanFcTimerRatov",
    .lowest = 5000,
    .highest = 100000,
    .key = VSAN_ATTR_R_A_TOV,
    .force_bit = FORCE_R_A_TOV,
    .wrong_type = "%s : write to vsanFcTimerRatov not ASN_UNSIGNED \n",
    .wrong_length = "%s : write to vsanFcTimerRatov bad length\n",
    .wrong_value = "%s : wrong value \n",
    .phases = {"%s : setting the values RESERVE1 ", "%s : setting the values RESERVE2 ",
               "%s : setting the values ACTION", nullptr, "%s : setting the values FREE ", nullptr},
};

constexpr timer_rule edtov_rule = {
    .function = "set_vsanFcTimerEdtov",
    .lowest = 1000,
    .highest = 100000,
    .key = VSAN_ATTR_E_D_TOV,
    .force_bit = FORCE_E_D_TOV,
    .wrong_type = " %s : write to vsanFcTimerEdtov not ASN_UNSIGNED\n",
    .wrong_length = " %s : write to vsanFcTimerEdtov bad length \n",
    .wrong_value = " %s : write to vsanFcTimerEdtov wrong value \n",
    .phases = {"%s : setting the values", "%s : setting the values", "%s : setting the values",
               "%s : setting the values", "%s : setting the values", "%s : setting the values"},
};

constexpr timer_rule dstov_rule = {
    .function = "set_vsanFcTimerDstov",
    .lowest = 5000,
    .highest = 100000,
    .key = VSAN_ATTR_D_S_TOV,
    .force_bit = FORCE_D_S_TOV,
    .wrong_type = "%s : write to vsanFcTimerDstov not ASN_UNSIGNED\n",
    .wrong_length = "%s : write to vsanFcTimerDstov - bad length \n",
    .wrong_value = "%s : write to vsanFcTimerDstov - wrong value \n",
    .phases = {"%s : setting the values", "%s : setting the values", "%s : setting the values",
               "%s : setting the values", "%s : setting the values", "%s : setting the values"},
};

uint32_t find_vsan(const oid *name, size_t name_len, fc_timer_record &record) {
    return get_vsanFcTimerEntry_instance(name, VSAN_COLUMN_LENGTH, name, &name_len, 1, &record);
}

int refuse(const char *function, const char *text, int status) {
    VSAN_TRACE(TRACE_EVENT, text, function);
    return status;
}

// The last two checks of RESERVE1: the instance, and whether the user may touch it.
int check_instance(const char *function, uint32_t &last_status, const oid *name, size_t name_len) {
    fc_timer_record record;
    last_status = find_vsan(name, name_len, record);
    if (last_status != 0)
        return SNMP_ERR_INCONSISTENTNAME;
    allowed_vsan_list allowed;
    if (get_allowed_vsans(allowed, name, name_len, PDU_TYPE_SET) == 0 ||
        snmp_is_vsan_allowed_in_list(record.vsan, allowed) != 0)
        return SNMP_ERR_NOERROR;
    VSAN_TRACE(TRACE_FAILURE, restricted_text, function);
    report_restriction(STATUS_VSAN_RESTRICTED_USER);
    return SNMP_ERR_GENERR;
}

int check_timer(const timer_rule &rule, const u_char *value, u_char type, size_t length, const oid *name,
                size_t name_len) {
    if (type != ASN_UNSIGNED)
        return refuse(rule.function, rule.wrong_type, SNMP_ERR_WRONGTYPE);
    if (!integer_length_is_valid(length))
        return refuse(rule.function, rule.wrong_length, SNMP_ERR_WRONGLENGTH);
    // One unsigned comparison: what lies below the lower bound wraps and fails too.
    if (integer_value(value, length) - rule.lowest > rule.highest - rule.lowest)
        return refuse(rule.function, rule.wrong_value, SNMP_ERR_WRONGVALUE);
    return check_instance(rule.function, last_timer_status, name, name_len);
}

int send_timer(const timer_rule &rule, const u_char *value, size_t length, const oid *name, size_t name_len) {
    fc_timer_record record;
    last_timer_status = find_vsan(name, name_len, record);
    if (last_timer_status != 0)
        return to_snmp_error_code(last_timer_status, SNMP_ERROR_MODE);

    const bool is_forced = (vsanFcTimerForceFlags[record.vsan] & rule.force_bit) != 0;
    if (is_forced)
        VSAN_TRACE(TRACE_EVENT, "%s : ACTION vsanid = %d  ForceFlag SET - true ", rule.function,
                   static_cast<int>(record.vsan));
    else
        VSAN_TRACE(TRACE_EVENT, "%s : ACTION vsanid = %d  ForceFlag SET - false ", rule.function,
                   static_cast<int>(record.vsan));

    record.key = htonl(static_cast<uint32_t>(rule.key));
    record.value = htonl(integer_value(value, length));
    record.per_vsan = 1;
    record.flag = is_forced ? 1 : 0;
    record.vsan = htonl(record.vsan);
    uint32_t payload_length = sizeof record;
    sysmgr_heartbeat(1);
    last_timer_status = cmi_req_resp(OPCODE_FC_TIMER, SET_REQ, &record, nullptr, &payload_length, get_snmp_username(0),
                                     get_snmp_sessionid(0), MANAGER_SAP_VSAN, mts_response_q, WAIT_TIMER);
    sysmgr_heartbeat(0);
    if (last_timer_status == 0)
        return SNMP_ERR_NOERROR;
    VSAN_TRACE(TRACE_FAILURE, "%s : ACTION set REq failed , %s  ", rule.function, syserr_format(last_timer_status));
    return refused_by_manager(last_timer_status);
}

// One phase of one timer's writer.
int write_timer(const timer_rule &rule, int action, const u_char *value, u_char type, size_t length, const oid *name,
                size_t name_len) {
    if (action >= RESERVE1 && action <= UNDO && rule.phases[action] != nullptr)
        VSAN_TRACE(TRACE_EVENT, rule.phases[action], rule.function);
    switch (action) {
    case RESERVE1:
        return check_timer(rule, value, type, length, name, name_len);
    case ACTION:
        return send_timer(rule, value, length, name, name_len);
    default:
        return SNMP_ERR_NOERROR;
    }
}

// The first byte of a force-flag value, which an empty value has too: the agent's
// buffer is never smaller.
u_char first_byte(const u_char *value) {
    return value == nullptr ? 0 : *value;
}

int check_force_flag(const char *function, const u_char *value, u_char type, size_t length, const oid *name,
                     size_t name_len) {
    if (type != ASN_OCTET_STR)
        return refuse(function, "%s : write to vsanFcTimerForceFlag not ASN_OCTET_STR \n", SNMP_ERR_WRONGTYPE);
    if (length > 1)
        return refuse(function, "%s : write to vsanFcTimerForceFlag - bad length \n", SNMP_ERR_WRONGLENGTH);
    last_force_flag_input = first_byte(value);
    VSAN_TRACE(TRACE_EVENT, "%s : ACTION flag i/p %x ", function, last_force_flag_input);
    return check_instance(function, last_force_flag_status, name, name_len);
}

// Replaces the VSAN's flags; the five bits that stand for nothing are dropped.
int store_force_flag(const char *function, const u_char *value, const oid *name, size_t name_len) {
    fc_timer_record record;
    last_force_flag_status = find_vsan(name, name_len, record);
    if (last_force_flag_status != 0)
        return to_snmp_error_code(last_force_flag_status, SNMP_ERROR_MODE);

    last_force_flag_input = first_byte(value);
    uint8_t &flags = vsanFcTimerForceFlags[record.vsan];
    flags = 0;
    if ((last_force_flag_input & FORCE_R_A_TOV) != 0) {
        flags = set_mib_vsanFcTimerForceFlag(flags, VSAN_ATTR_R_A_TOV, 1);
        VSAN_TRACE(TRACE_EVENT, "%s : SET R_A_TOV flag :  %x", function, flags);
    }
    if ((last_force_flag_input & FORCE_E_D_TOV) != 0) {
        flags = set_mib_vsanFcTimerForceFlag(flags, VSAN_ATTR_E_D_TOV, 1);
        VSAN_TRACE(TRACE_EVENT, "%s : SET E_D_TOV flag :  %x", function, flags);
    }
    if ((last_force_flag_input & FORCE_D_S_TOV) != 0) {
        flags = set_mib_vsanFcTimerForceFlag(flags, VSAN_ATTR_D_S_TOV, 1);
        VSAN_TRACE(TRACE_EVENT, "%s : SET D_S_TOV flag :  %x", function, flags);
    }
    VSAN_TRACE(TRACE_EVENT, "%s : ACTION vsan_id = %d , flag set :  %x ", function, static_cast<int>(record.vsan),
               flags);
    return SNMP_ERR_NOERROR;
}

} // namespace

extern "C" {

// The write methods, called by the agent once a phase. Each returns an SNMP error
// status. A force flag counts for timers that follow it in the PDU, and stays set until
// it is written again.
#define TIMER_WRITER(function, rule)                                                                                   \
    int function(int action, u_char *var_val, u_char var_val_type, size_t var_val_len, u_char *, oid *name,            \
                 size_t name_len) {                                                                                    \
        return write_timer(rule, action, var_val, var_val_type, var_val_len, name, name_len);                          \
    }

TIMER_WRITER(set_vsanFcTimerRatov, ratov_rule)
TIMER_WRITER(set_vsanFcTimerEdtov, edtov_rule)
TIMER_WRITER(set_vsanFcTimerDstov, dstov_rule)

int set_vsanFcTimerForceFlag(int action, u_char *var_val, u_char var_val_type, size_t var_val_len, u_char *, oid *name,
                             size_t name_len) {
    switch (action) {
    case RESERVE1:
        return check_force_flag(__func__, var_val, var_val_type, var_val_len, name, name_len);
    case ACTION:
        return store_force_flag(__func__, var_val, name, name_len);
    default:
        return SNMP_ERR_NOERROR;
    }
}

/* Returns `flags` with the force bit of timer `key` (a vsan_attr_key_t value) added
 * when `enable` is nonzero and the timer has one. */
uint8_t set_mib_vsanFcTimerForceFlag(uint8_t flags, uint32_t key, int enable) {
    if (enable == 0)
        return flags;
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

/* Hands the agent a timer column's write method. `write_method` stays as it is for a
 * column that has none. */
void set_fctimer_table_set_methods(int magic, WriteMethod **write_method) {
    switch (magic) {
    case VSANFCTIMERFORCEFLAG:
        *write_method = set_vsanFcTimerForceFlag;
        break;
    case VSANFCTIMERRATOV:
        *write_method = set_vsanFcTimerRatov;
        break;
    case VSANFCTIMEREDTOV:
        *write_method = set_vsanFcTimerEdtov;
        break;
    case VSANFCTIMERDSTOV:
        *write_method = set_vsanFcTimerDstov;
        break;
    default:
        break;
    }
}

} // extern "C"
