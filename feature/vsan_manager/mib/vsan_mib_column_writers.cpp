// The VSAN table's column writers: which column has which, what each accepts, and what
// it says when it refuses. The phases are the same for all.

#include "vsan_mib.h"
#include "vsan_mib_trace.h"

#include <cstring>

uint32_t last_loadbalancing_type;

namespace {

// A text for the trace, which gets function and line in front, and one for the agent's
// standard error. Either may be missing; management scripts match them as they are.
struct refusal {
    const char *trace = nullptr;
    const char *standard_error = nullptr;
};

// One writer. What differs between the seven stands here, and nowhere else.
struct column_rule {
    const char *function;
    int magic; // the column that it stages
    u_char type;
    uint32_t lowest = 0; // bounds of an integer; not used for the name
    uint32_t highest = 0;
    refusal wrong_type = {};
    refusal wrong_length = {};
    refusal wrong_value = {};
    const char *no_instance; // trace
    const char *restricted;  // trace, class 100

    // Traces at the phases; null for none.
    const char *every_call = nullptr;
    const char *reserve1 = nullptr;
    const char *value_accepted = nullptr;
    const char *vsan_accepted = nullptr; // with the VSAN number; for a restricted user only
    const char *reserve2 = nullptr;
    const char *action = nullptr;
    const char *commit = nullptr;
    const char *free = nullptr;
    const char *undo = nullptr;

    uint32_t *requested = nullptr; // where the value goes before it is checked; null for nowhere
    bool zero_is_an_error = false; // 0 is reported as a bad drop latency and answered genErr
};

constexpr char restricted_with_line[] = "%s(%d) : vsan restricted user -- not allowed in this vsan\n";
constexpr char restricted_without_line[] = "%s : vsan restricted user -- not allowed in this vsan\n";
constexpr size_t longest_name = 32;

constexpr column_rule name_rule = {
    .function = "set_vsanName",
    .magic = VSANNAME,
    .type = ASN_OCTET_STR,
    .wrong_type = {.trace = "%s(%d)write to vsanName not ASN_OCTET_STR\n"},
    .wrong_length = {.standard_error = "write to vsanName: bad length\n"},
    .no_instance = "%s(%d) get vsanEntry instance! \n",
    .restricted = restricted_with_line,
    .reserve1 = "%s(%d) : In the RESERVE1 phase \n",
};

constexpr column_rule admin_state_rule = {
    .function = "set_vsanAdminState",
    .magic = VSANADMINSTATE,
    .type = ASN_INTEGER,
    .lowest = VSAN_ACTIVE,
    .highest = VSAN_SUSPENDED,
    .wrong_type = {.standard_error = "write to vsanAdminState not ASN_INTEGER\n"},
    .wrong_length = {.standard_error = "write to vsanAdminState: bad length\n"},
    .no_instance = "%s(%d) ***InconsistantName! ***\n",
    .restricted = restricted_without_line,
    .reserve2 = "%s(%d) undo_vsanEntryList! \n",
};

constexpr column_rule load_balancing_rule = {
    .function = "set_vsanLoadBalancingType",
    .magic = VSANLOADBALANCINGTYPE,
    .type = ASN_INTEGER,
    .lowest = VSAN_CONSIDER_SRCID_DSTID,
    .highest = VSAN_CONSIDER_SRCID_DSTID_OXID,
    .wrong_type = {.trace = "%s(%d) write to vsanLoadBalancingType not ASN_INTEGER\n"},
    .wrong_length = {.trace = "%s(%d) write to vsanLoadBalancingType: bad length\n"},
    .no_instance = "%s(%d) ***InconsistantName! ***\n",
    .restricted = restricted_without_line,
    .reserve2 = "%s(%d) undo_vsanEntryList! \n",
    .requested = &last_loadbalancing_type,
};

constexpr column_rule interop_type_rule = {
    .function = "set_vsanInterOperType",
    .magic = VSANINTEROPERTYPE,
    .type = ASN_INTEGER,
    .lowest = 0,
    .highest = 4,
    .wrong_type = {.trace = "%s(%d) write to vsanInterOperType not ASN_INTEGER\n"},
    .wrong_length = {.trace = "%s(%d) write to vsanInterOperType: bad length\n",
                     .standard_error = "write to vsanInterOperType: bad length\n"},
    .wrong_value = {.trace = "%s(%d) Wrong Value! \n"},
    .no_instance = "%s(%d) ***Return Inconsistname! ***\n",
    .restricted = restricted_with_line,
    .value_accepted = "%s(%d) RESERVE1 \n",
    .vsan_accepted = "%s(%d) tmp_entry.vsanIndex:%d \n",
    .reserve2 = "%s(%d) VSANINTEROPTYPE RESERVE2! \n",
    .action = "%s(%d) ACTION! \n",
    .commit = "%s(%d) COMMIT! \n",
    .free = "%s(%d) FREE! \n",
    .undo = "%s(%d) UNDO Req! \n",
};

constexpr column_rule inorder_delivery_rule = {
    .function = "set_vsanInorderDelivery",
    .magic = VSANINORDERDELIVERY,
    .type = ASN_INTEGER,
    .lowest = 1,
    .highest = 2,
    .wrong_type = {.trace = "%s(%d) write to vsanInorderDelivery not ASN_INTEGER\n",
                   .standard_error = "write to vsanInorderDelivery not ASN_INTEGER\n"},
    .wrong_length = {.standard_error = "write to vsanInorderDelivery: bad length\n"},
    .no_instance = "%s(%d) ***InconsistantName! ***\n",
    .restricted = restricted_with_line,
};

// The type is Unsigned32, although the text says otherwise.
constexpr column_rule network_drop_latency_rule = {
    .function = "set_vsanNetworkDropLatency",
    .magic = VSANNETWORKDROPLATENCY,
    .type = ASN_UNSIGNED,
    .lowest = 1,
    .highest = 60000,
    .wrong_type = {.standard_error = "write to vsanNetworkDropLatency not ASN_INTEGER\n"},
    .wrong_length = {.standard_error = "write to vsanNetworkDropLatency: bad length\n"},
    .no_instance = "%s(%d) ***InconsistantName! ***\n",
    .restricted = restricted_with_line,
    .zero_is_an_error = true,
};

// Stages into the same field as the interoperability type; no column hands it out.
constexpr column_rule interop_mode_rule = {
    .function = "set_vsanInterOperMode",
    .magic = VSANINTEROPERTYPE,
    .type = ASN_INTEGER,
    .lowest = 1,
    .highest = 2,
    .wrong_type = {.standard_error = "write to vsanInterOperMode not ASN_INTEGER\n"},
    .wrong_length = {.standard_error = "write to vsanInterOperMode: bad length\n"},
    .no_instance = "%s(%d) ***InconsistantName! ***\n",
    .restricted = restricted_without_line,
    .every_call = "%s(%d) \n",
    .reserve2 = "%s(%d) in RESERVE2 \n",
};

// A text without a line number leaves the second argument unused.
void trace(const column_rule &rule, const char *text, uint32_t trace_class = TRACE_EVENT) {
    if (text != nullptr)
        VSAN_TRACE(trace_class, text, rule.function, __LINE__);
}

int refuse(const column_rule &rule, const refusal &texts, int status) {
    trace(rule, texts.trace);
    if (texts.standard_error != nullptr)
        fputs(texts.standard_error, stderr);
    return status;
}

int check_name(const u_char *value, size_t length) {
    char text[longest_name + 1];
    if (length > 0)
        memcpy(text, value, length);
    text[length] = '\0';
    // What follows a NUL is not seen, here or by the manager.
    return strchr(text, ' ') == nullptr ? SNMP_ERR_NOERROR : SNMP_ERR_WRONGVALUE;
}

int check_integer(const column_rule &rule, const u_char *value, size_t length) {
    const uint32_t number = integer_value(value, length);
    if (rule.requested != nullptr)
        *rule.requested = number;
    if (rule.zero_is_an_error && number == 0) {
        log_set_error(MANAGER_BAD_DROP_LATENCY, LOG_NUMBER_REQUEST);
        return SNMP_ERR_GENERR;
    }
    // One unsigned comparison: what lies below the lower bound wraps and fails too.
    if (number - rule.lowest > rule.highest - rule.lowest)
        return refuse(rule, rule.wrong_value, SNMP_ERR_WRONGVALUE);
    return SNMP_ERR_NOERROR;
}

// RESERVE1: type, length, value, instance, restriction, in this order. Nothing is
// staged and nothing sent.
int check(const column_rule &rule, const u_char *value, u_char type, size_t length, const oid *name, size_t name_len) {
    trace(rule, rule.reserve1);
    if (type != rule.type)
        return refuse(rule, rule.wrong_type, SNMP_ERR_WRONGTYPE);
    const bool is_name = rule.type == ASN_OCTET_STR;
    if (is_name ? length > longest_name : !integer_length_is_valid(length))
        return refuse(rule, rule.wrong_length, SNMP_ERR_WRONGLENGTH);
    const int status = is_name ? check_name(value, length) : check_integer(rule, value, length);
    if (status != SNMP_ERR_NOERROR)
        return status;
    trace(rule, rule.value_accepted);

    vsanEntry entry;
    if (!resolve_instance(name, name_len, entry)) {
        trace(rule, rule.no_instance);
        return SNMP_ERR_INCONSISTENTNAME;
    }
    allowed_vsan_list allowed;
    if (get_allowed_vsans(allowed, name, name_len, PDU_TYPE_SET) == 0)
        return SNMP_ERR_NOERROR;
    if (snmp_is_vsan_allowed_in_list(static_cast<uint32_t>(entry.vsanIndex), allowed) == 0) {
        trace(rule, rule.restricted, TRACE_FAILURE);
        report_restriction(STATUS_VSAN_RESTRICTED_USER);
        return SNMP_ERR_GENERR;
    }
    if (rule.vsan_accepted != nullptr)
        VSAN_TRACE(TRACE_EVENT, rule.vsan_accepted, rule.function, __LINE__, entry.vsanIndex);
    return SNMP_ERR_NOERROR;
}

// One phase of one writer.
int write_column(const column_rule &rule, int action, const u_char *value, u_char type, size_t length, const oid *name,
                 size_t name_len) {
    trace(rule, rule.every_call);
    switch (action) {
    case RESERVE1:
        return check(rule, value, type, length, name, name_len);
    case RESERVE2:
        trace(rule, rule.reserve2);
        return handle_onepdu_undo_vsanEntryList(rule.magic, name, name_len, value, length);
    case ACTION:
        trace(rule, rule.action);
        return handle_set_vsanEntryList(name, name_len);
    case COMMIT:
        trace(rule, rule.commit);
        return handle_free_vsanEntryList(name, name_len);
    case FREE:
        trace(rule, rule.free);
        return handle_free_vsanEntryList(name, name_len);
    case UNDO:
        trace(rule, rule.undo);
        return SNMP_ERR_NOERROR;
    default:
        return SNMP_ERR_NOERROR;
    }
}

} // namespace

extern "C" {

// The write methods, called by the agent once a phase. Each returns an SNMP error
// status.
#define COLUMN_WRITER(function, rule)                                                                                  \
    int function(int action, u_char *var_val, u_char var_val_type, size_t var_val_len, u_char *, oid *name,            \
                 size_t name_len) {                                                                                    \
        return write_column(rule, action, var_val, var_val_type, var_val_len, name, name_len);                         \
    }

COLUMN_WRITER(set_vsanName, name_rule)
COLUMN_WRITER(set_vsanAdminState, admin_state_rule)
COLUMN_WRITER(set_vsanLoadBalancingType, load_balancing_rule)
COLUMN_WRITER(set_vsanInterOperType, interop_type_rule)
COLUMN_WRITER(set_vsanInorderDelivery, inorder_delivery_rule)
COLUMN_WRITER(set_vsanNetworkDropLatency, network_drop_latency_rule)
COLUMN_WRITER(set_vsanInterOperMode, interop_mode_rule)

// Media type and MTU are read-only: the agent refuses a SET before it comes here.
int set_vsanMediaType(int, u_char *, u_char, size_t, u_char *, oid *, size_t) {
    return SNMP_ERR_NOSUCHNAME;
}
int set_vsanMtu(int, u_char *, u_char, size_t, u_char *, oid *, size_t) {
    return SNMP_ERR_NOSUCHNAME;
}

/*
 * Hands the agent a column's write method. `write_method` stays as it is for a column
 * that has none: the operational state (10), and whatever is no column.
 */
void set_table_set_methods(int magic, WriteMethod **write_method) {
    switch (magic) {
    case VSANNAME:
        VSAN_TRACE(TRACE_EVENT, "%s(%d) set-method VSANNAME \n", __func__, __LINE__);
        *write_method = set_vsanName;
        break;
    case VSANMEDIATYPE:
        VSAN_TRACE(TRACE_EVENT, "%s(%d) set-method VSANNAME \n", __func__, __LINE__);
        *write_method = set_vsanMediaType;
        break;
    case VSANADMINSTATE:
        VSAN_TRACE(TRACE_EVENT, "%s(%d) set-method VSANADMINSTATE \n", __func__, __LINE__);
        *write_method = set_vsanAdminState;
        break;
    case VSANMTU:
        VSAN_TRACE(TRACE_EVENT, "%s(%d) set-method VSANMTU \n", __func__, __LINE__);
        *write_method = set_vsanMtu;
        break;
    case VSANLOADBALANCINGTYPE:
        VSAN_TRACE(TRACE_EVENT, "%s(%d) set-method VSANLOADBALANCINGTYPE \n", __func__, __LINE__);
        *write_method = set_vsanLoadBalancingType;
        break;
    case VSANROWSTATUS:
        VSAN_TRACE(TRACE_EVENT, "%s(%d) set-method VSANROWSTATUS \n", __func__, __LINE__);
        *write_method = set_vsanRowStatus;
        break;
    case VSANINTEROPERTYPE:
        VSAN_TRACE(TRACE_EVENT, "%s(%d) set-method VSANITEROPERYPE \n", __func__, __LINE__);
        *write_method = set_vsanInterOperType;
        break;
    case VSANINORDERDELIVERY:
        VSAN_TRACE(TRACE_EVENT, "%s(%d) set-method VSANINORDERDELIVERY \n", __func__, __LINE__);
        *write_method = set_vsanInorderDelivery;
        break;
    case VSANNETWORKDROPLATENCY:
        VSAN_TRACE(TRACE_EVENT, "%s(%d) set-method VSANNETWORKDROPLATENCY \n", __func__, __LINE__);
        *write_method = set_vsanNetworkDropLatency;
        break;
    default:
        break;
    }
}

} // extern "C"
