// SPDX-License-Identifier: Apache-2.0
// The request channel to the switch's managers: the exchanges that several objects
// share, and what a failed one becomes.

#include "vsan_mib_channel.h"
#include "vsan_mib_exports.h"
#include "vsan_mib_never.h"
#include "vsan_mib_state.h"
#include "vsan_mib_trace.h"

#include "mts.h"
#include "netsnmpagent_oryx.h"
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

// What becomes of the reply to a scalar's opcode.
struct scalar_reply {
    uint32_t opcode;
    uint32_t length; // bytes that are needed
    size_t word;     // the value's place
    uint32_t *cell;  // where it is kept for the agent
    const char *text;
};

constexpr scalar_reply scalar_replies[] = {
    {OPCODE_VSAN_NUMBER, 4, 0, &count_cell, "%s : Recevied GET response  for VSANNUMBER/VSANIFNUMBER = %d\n"},
    {OPCODE_VSAN_IF_NUMBER, 4, 0, &count_cell, "%s : Recevied GET response  for VSANNUMBER/VSANIFNUMBER = %d\n"},
    // A time, which takes more than a swap.
    {OPCODE_VSAN_TABLE_LAST_CHANGE, 8, 0, &value_cell, nullptr},
    {OPCODE_FC_TIMER, 8, 1, &value_cell, "%s : Recevied GET response  for FCTIMER stuff = %d\n"},
    {OPCODE_LATENCY, 8, 1, &value_cell, "%s : Recevied GET response  for FCLATENCY stuff = %d\n"},
    {OPCODE_INORDER_DELIVERY, 4, 0, &value_cell, "%s : Recevied GET response  for INORDERDELIVERY stuff = %d\n"},
};

// The row of an opcode, or null for one that get_using_cmi does not serve.
const scalar_reply *find_reply(uint32_t opcode) {
    for (const scalar_reply &row : scalar_replies) {
        if (row.opcode == opcode) {
            return &row;
        }
    }
    return nullptr;
}

// The agent's uptime in hundredths of a second when the clock showed this time. Negative, as
// the long that the agent counts in, when that was before its start; in 32 bits the sign
// also turns over 248 days from the start, either way.
long uptime_at(timeval time) {
    return static_cast<long>(netsnmp_timeval_uptime(&time));
}

// Takes the time of the last change out of a reply of sufficient length.
uint32_t *last_change(const char *function, const void *reply) {
    const uint32_t seconds = reply_word(reply, 0);
    const uint32_t microseconds = reply_word(reply, 1);
    const timeval change = {static_cast<time_t>(seconds), static_cast<suseconds_t>(microseconds)};
    const long uptime = uptime_at(change);
    count_cell = static_cast<uint32_t>(uptime);
    value_cell = uptime < 0 ? 0 : count_cell;
    VSAN_TRACE(TRACE_EVENT, "%s : Recevied GET response  for VSANTABLELASTCHANGE (tvsec = %d, tvusec = %d) = %d\n",
               function, static_cast<int>(seconds), static_cast<int>(microseconds), static_cast<int>(value_cell));
    return &value_cell;
}

// Takes a scalar's value out of a reply of sufficient length.
uint32_t *scalar_value(const char *function, const scalar_reply &row, const void *reply) {
    if (row.opcode == OPCODE_VSAN_TABLE_LAST_CHANGE) {
        return last_change(function, reply);
    }
    *row.cell = reply_word(reply, row.word);
    VSAN_TRACE(TRACE_EVENT, row.text, function, static_cast<int>(*row.cell));
    return row.cell;
}

} // namespace

extern "C" {

// Reads one scalar from the VSAN manager.
//
// opcode   which scalar
// payload  request record in network order, or null
// length   the payload's length in bytes; a length word goes out without payload too
//
// Returns the value in host order in static storage, which the next call overwrites,
// or null when the exchange failed in any way. last_manager_status holds its status.
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
    const scalar_reply *row = find_reply(opcode);
    if (last_manager_status == 0 && reply != nullptr && row != nullptr) {
        if (length >= row->length) {
            value = scalar_value(__func__, *row, reply);
        } else {
            VSAN_TRACE(TRACE_FAILURE, "%s(%d) reply to opcode %u too short: %u bytes\n", __func__, __LINE__, opcode,
                       length);
        }
    }
    free(reply);
    return value;
}

// Maps a failed request's status to the SNMP error status that a write method
// returns. `mode` 3 tells names that do not fit apart as inconsistentName; any other
// mode calls them noSuchName.
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

uint32_t scalar_reply_length(uint32_t opcode) {
    const scalar_reply *row = find_reply(opcode);
    return VSAN_NEVER(row == nullptr, "every scalar has its row") ? 0 : row->length;
}

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
