// SET of the six writable scalars: checked in RESERVE1, sent in ACTION, never undone.

#include "vsan_mib.h"
#include "vsan_mib_trace.h"

#include "sysmgr.h"

#include <arpa/inet.h>
#include <cstdio>

namespace {

// One writable scalar. The texts differ in spacing from one to the next; management
// scripts match them, so they stay as they are.
struct scalar_rule {
    u_char type;
    uint32_t lowest;
    uint32_t highest;
    bool traced; // refusals go to the trace; otherwise to standard error, without a name
    const char *wrong_type;
    const char *wrong_length;
};

// clang-format off
constexpr scalar_rule ratov_rule = {ASN_UNSIGNED, 5000, 100000, true,
    "%s : write to fcTimerRatov not ASN_UNSIGNED\n",
    "%s : write to fcTimerRatov - bad length\n "};
constexpr scalar_rule edtov_rule = {ASN_UNSIGNED, 1000, 100000, true,
    "%s : write to fcTimerEdtov not ASN_UNSIGNED\n",
    "%s : write to fcTimerEdtov - bad length \n"};
constexpr scalar_rule dstov_rule = {ASN_UNSIGNED, 5000, 100000, true,
    "%s : write to fcTimerDstov not ASN_UNSIGNED \n",
    "%s : write to fcTimerDstov - bad length \n"};
constexpr scalar_rule network_latency_rule = {ASN_UNSIGNED, 0, 60000, false,
    "write to fcNetworkLatency not ASN_UNSIGNED\n",
    "write to fcNetworkLatency: bad length\n"};
constexpr scalar_rule switch_latency_rule = {ASN_UNSIGNED, 0, 60000, false,
    "write to fcSwitchLatency not ASN_UNSIGNED\n",
    "write to fcSwitchLatency: bad length\n"};
constexpr scalar_rule inorder_delivery_rule = {ASN_INTEGER, 1, 2, false,
    "write to fcInorderDelivery not ASN_INTEGER\n",
    "write to fcInorderDelivery: bad length\n"};
// clang-format on

void report_refusal(const scalar_rule &rule, const char *function, const char *text) {
    if (rule.traced)
        VSAN_TRACE(TRACE_EVENT, text, function);
    else
        fputs(text, stderr);
}

int check_value(const scalar_rule &rule, const char *function, const u_char *value, u_char type, size_t length) {
    if (type != rule.type) {
        report_refusal(rule, function, rule.wrong_type);
        return SNMP_ERR_WRONGTYPE;
    }
    if (!integer_length_is_valid(length)) {
        report_refusal(rule, function, rule.wrong_length);
        return SNMP_ERR_WRONGLENGTH;
    }
    // One unsigned comparison: what lies below the lower bound wraps and fails too.
    if (integer_value(value, length) - rule.lowest > rule.highest - rule.lowest)
        return SNMP_ERR_WRONGVALUE;
    return SNMP_ERR_NOERROR;
}

int send_timer(vsan_attr_key_t key, uint32_t value) {
    fc_timer_record request = {};
    request.key = htonl(static_cast<uint32_t>(key));
    request.value = htonl(value);
    return set_Scalar(OPCODE_FC_TIMER, sizeof request, &request);
}

int send_latency(vsan_attr_key_t key, uint32_t value) {
    latency_record request = {};
    request.key = htonl(static_cast<uint32_t>(key));
    request.value = htonl(value);
    return set_Scalar(OPCODE_LATENCY, sizeof request, &request);
}

int send_inorder_delivery(uint32_t value) {
    const uint32_t request = htonl(value);
    return set_Scalar(OPCODE_INORDER_DELIVERY, sizeof request, &request);
}

} // namespace

extern "C" {

/*
 * Sends one SET of a switch-wide setting and waits for the answer, telling the system
 * manager meanwhile that the agent is busy.
 *
 * length   the payload's length in bytes
 * payload  the record, network order
 *
 * Returns an SNMP error status; a refusal is recorded with its platform status.
 */
int set_Scalar(uint32_t opcode, uint32_t length, const void *payload) {
    sysmgr_heartbeat(1);
    last_timer_status = cmi_req_resp(opcode, SET_REQ, payload, nullptr, &length, get_snmp_username(0),
                                     get_snmp_sessionid(0), MANAGER_SAP_VSAN, mts_response_q, WAIT_TIMER);
    sysmgr_heartbeat(0);
    return last_timer_status == 0 ? SNMP_ERR_NOERROR : refused_by_manager(last_timer_status);
}

// The write methods. The agent calls each once for every phase; only RESERVE1 and
// ACTION do anything. A value that the manager took stays, even when another variable
// of the PDU fails later.
#define SCALAR_WRITE_METHOD(function, rule, send)                                                                      \
    int function(int action, u_char *var_val, u_char var_val_type, size_t var_val_len, u_char *, oid *, size_t) {      \
        switch (action) {                                                                                              \
        case RESERVE1:                                                                                                 \
            return check_value(rule, __func__, var_val, var_val_type, var_val_len);                                    \
        case ACTION: {                                                                                                 \
            const uint32_t value = integer_value(var_val, var_val_len);                                                \
            return send;                                                                                               \
        }                                                                                                              \
        default:                                                                                                       \
            return SNMP_ERR_NOERROR;                                                                                   \
        }                                                                                                              \
    }

SCALAR_WRITE_METHOD(set_fcTimerRatov, ratov_rule, send_timer(VSAN_ATTR_R_A_TOV, value))
SCALAR_WRITE_METHOD(set_fcTimerEdtov, edtov_rule, send_timer(VSAN_ATTR_E_D_TOV, value))
SCALAR_WRITE_METHOD(set_fcTimerDstov, dstov_rule, send_timer(VSAN_ATTR_D_S_TOV, value))
SCALAR_WRITE_METHOD(set_fcNetworkLatency, network_latency_rule, send_latency(VSAN_ATTR_NETWORK_LATENCY, value))
SCALAR_WRITE_METHOD(set_fcSwitchLatency, switch_latency_rule, send_latency(VSAN_ATTR_SWITCH_LATENCY, value))
SCALAR_WRITE_METHOD(set_fcInorderDelivery, inorder_delivery_rule, send_inorder_delivery(value))

} // extern "C"
