// The request channel to the switch's managers: the exchanges that several objects
// share, and what a failed one becomes.

#include "vsan_mib.h"
#include "vsan_mib_trace.h"

#include "syserr.h"
#include "tdx.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>

uint32_t last_manager_status;

namespace {

uint32_t count_cell;
uint32_t value_cell;

// One word of a reply, host order. REQUIRES: the reply holds it.
uint32_t reply_word(const void *reply, size_t word) {
    uint32_t value;
    memcpy(&value, static_cast<const uint8_t *>(reply) + word * sizeof value, sizeof value);
    return ntohl(value);
}

// How many bytes get_using_cmi needs of the reply to an opcode; 0 for an opcode that
// it does not serve.
uint32_t scalar_reply_length(uint32_t opcode) {
    switch (opcode) {
    case OPCODE_VSAN_NUMBER:
    case OPCODE_VSAN_IF_NUMBER:
    case OPCODE_INORDER_DELIVERY:
        return 4;
    case OPCODE_VSAN_TABLE_LAST_CHANGE:
    case OPCODE_FC_TIMER:
    case OPCODE_LATENCY:
        return 8;
    default:
        return 0;
    }
}

// The agent's uptime in hundredths of a second when the clock showed this time.
uint32_t uptime_at(timeval time) {
    return static_cast<uint32_t>(netsnmp_timeval_uptime(&time));
}

// Whether that uptime is negative, as a signed number of 32 bits. The agent computes with
// unsigned numbers, whose sign turns over every 248 days: only the times themselves tell
// one long before its start from one after it.
bool is_negative_uptime(timeval time) {
    const auto *start = static_cast<const timeval *>(netsnmp_get_agent_starttime());
    const int64_t since_start =
        (int64_t{time.tv_sec} - start->tv_sec) * 1000000 + (int64_t{time.tv_usec} - start->tv_usec);
    return since_start < 0 || since_start / 10000 > INT32_MAX;
}

// Takes a scalar's value out of a reply of sufficient length.
uint32_t *scalar_value(const char *function, uint32_t opcode, const void *reply) {
    switch (opcode) {
    case OPCODE_VSAN_NUMBER:
    case OPCODE_VSAN_IF_NUMBER:
        count_cell = reply_word(reply, 0);
        VSAN_TRACE(TRACE_EVENT, "%s : Recevied GET response  for VSANNUMBER/VSANIFNUMBER = %d\n", function,
                   static_cast<int>(count_cell));
        return &count_cell;
    case OPCODE_VSAN_TABLE_LAST_CHANGE: {
        const uint32_t seconds = reply_word(reply, 0);
        const uint32_t microseconds = reply_word(reply, 1);
        const timeval change = {static_cast<time_t>(seconds), static_cast<suseconds_t>(microseconds)};
        count_cell = uptime_at(change);
        value_cell = is_negative_uptime(change) ? 0 : count_cell;
        VSAN_TRACE(TRACE_EVENT, "%s : Recevied GET response  for VSANTABLELASTCHANGE (tvsec = %d, tvusec = %d) = %d\n",
                   function, static_cast<int>(seconds), static_cast<int>(microseconds), static_cast<int>(value_cell));
        return &value_cell;
    }
    case OPCODE_FC_TIMER:
        value_cell = reply_word(reply, 1);
        VSAN_TRACE(TRACE_EVENT, "%s : Recevied GET response  for FCTIMER stuff = %d\n", function,
                   static_cast<int>(value_cell));
        return &value_cell;
    case OPCODE_LATENCY:
        value_cell = reply_word(reply, 1);
        VSAN_TRACE(TRACE_EVENT, "%s : Recevied GET response  for FCLATENCY stuff = %d\n", function,
                   static_cast<int>(value_cell));
        return &value_cell;
    case OPCODE_INORDER_DELIVERY:
        value_cell = reply_word(reply, 0);
        VSAN_TRACE(TRACE_EVENT, "%s : Recevied GET response  for INORDERDELIVERY stuff = %d\n", function,
                   static_cast<int>(value_cell));
        return &value_cell;
    default:
        return nullptr;
    }
}

} // namespace

extern "C" {

/*
 * Reads one scalar from the VSAN manager.
 *
 * opcode   which scalar
 * payload  request record in network order, or null
 * length   the payload's length in bytes; a length word goes out without payload too
 *
 * Returns the value in host order in static storage, which the next call overwrites,
 * or null when the exchange failed in any way. last_manager_status holds its status.
 */
uint32_t *get_using_cmi(uint32_t opcode, const void *payload, uint32_t length) {
    uint32_t tdx_enabled = 0;
    uint32_t show_run_mode = 0;
    is_tdx_enabled(timer_feature, &tdx_enabled);
    get_tdx_show_run_mode(timer_feature, &show_run_mode);

    uint32_t kind = GET_REQ;
    if (opcode == OPCODE_FC_TIMER && tdx_enabled != 0 && show_run_mode == 0) {
        kind = TDX_GET_REQ;
        VSAN_TRACE(TRACE_EVENT, "%s msg_type = TDX_GET_REQ \n", __func__);
    }

    void *reply = nullptr;
    last_manager_status =
        cmi_req_resp(opcode, kind, payload, &reply, &length, nullptr, 0, MANAGER_SAP_VSAN, mts_response_q, WAIT_TABLE);

    uint32_t *value = nullptr;
    if (last_manager_status == 0 && reply != nullptr) {
        const uint32_t needed = scalar_reply_length(opcode);
        if (length >= needed)
            value = scalar_value(__func__, opcode, reply);
        else
            VSAN_TRACE(TRACE_FAILURE, "%s(%d) reply to opcode %u too short: %u bytes\n", __func__, __LINE__, opcode,
                       length);
    }
    free(reply);
    return value;
}

/*
 * Maps a failed request's status to the SNMP error status that a write method
 * returns. `mode` 3 tells names that do not fit apart as inconsistentName; any other
 * mode calls them noSuchName.
 */
int to_snmp_error_code(uint32_t status, int mode) {
    VSAN_TRACE(TRACE_EVENT, "%s(%d) \n", __func__, __LINE__);
    switch (status) {
    case 0:
        return SNMP_ERR_NOERROR;
    case MANAGER_NO_SUCH_VSAN:
    case MANAGER_NAME_CONFLICT:
        VSAN_TRACE(TRACE_EVENT, "%s(%d) ***Inconsistant Name! \n", __func__, __LINE__);
        return mode == SNMP_ERROR_MODE ? SNMP_ERR_INCONSISTENTNAME : SNMP_ERR_NOSUCHNAME;
    default:
        return SNMP_ERR_GENERR;
    }
}

} // extern "C"

namespace {

// The block that carries a copy of a record, network order.
vsanEntry_block to_block(const vsanEntry &entry) {
    vsanEntry_block block = {};
    block.record = entry;
    vsanEntry_hton(&block.record);
    return block;
}

} // namespace

uint32_t query_vsanEntry(uint32_t kind, const vsanEntry &key, vsanEntry &row, vsanEntry_answer &answer) {
    const vsanEntry_block request = to_block(key);
    void *reply = nullptr;
    uint32_t length = sizeof request;
    uint32_t status = cmi_req_resp(OPCODE_VSAN, kind, &request, &reply, &length, nullptr, 0, MANAGER_SAP_VSAN,
                                   mts_response_q, WAIT_TABLE);

    answer = vsanEntry_answer::none;
    if (reply != nullptr) {
        answer = vsanEntry_answer::unusable;
        if (status == 0 && length >= offsetof(vsanEntry_block, tail)) {
            memcpy(&row, static_cast<const uint8_t *>(reply) + offsetof(vsanEntry_block, record), sizeof row);
            vsanEntry_ntoh(&row);
            answer = vsanEntry_answer::record;
        } else if (status == 0) {
            status = ENTRY_NO_INSTANCE;
        }
        // The caller may still want the reason of a failure.
        const int reason = errno;
        free(reply);
        errno = reason;
    }
    return status;
}

uint32_t send_vsanEntry(uint32_t kind, const vsanEntry &entry) {
    const vsanEntry_block request = to_block(entry);
    uint32_t length = sizeof request;
    return cmi_req_resp(OPCODE_VSAN, kind, &request, nullptr, &length, get_snmp_username(0), get_snmp_sessionid(0),
                        MANAGER_SAP_VSAN, mts_response_q, WAIT_TABLE);
}

int refused_by_manager(uint32_t status) {
    log_set_error(status, LOG_NUMBER_REQUEST);
    return to_snmp_error_code(status, SNMP_ERROR_MODE);
}

int out_of_resources() {
    log_set_error(1, LOG_NUMBER_RESOURCE);
    return SNMP_ERR_GENERR;
}

const char *manager_error_text(uint32_t status) {
    return status == STATUS_IN_ERRNO ? strerror(errno) : syserr_format(status);
}

uint32_t integer_value(const u_char *value, size_t length) {
    if (length == sizeof(long) && sizeof(long) > sizeof(uint32_t)) {
        long wide;
        memcpy(&wide, value, sizeof wide);
        const auto number = static_cast<int64_t>(wide);
        if (number < INT32_MIN || number > static_cast<int64_t>(UINT32_MAX))
            return UINT32_MAX;
        return static_cast<uint32_t>(number);
    }
    uint32_t number = 0;
    memcpy(&number, value, length < sizeof number ? length : sizeof number);
    return number;
}
