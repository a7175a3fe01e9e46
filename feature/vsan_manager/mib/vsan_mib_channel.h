// SPDX-License-Identifier: Apache-2.0
// Exchanges with the switch's managers that several subjects share, and what becomes of a
// failed one.
#ifndef VSAN_MIB_CHANNEL_H
#define VSAN_MIB_CHANNEL_H

#include "vsan_mib.h"

// How many bytes a reply to a scalar's opcode must have. A request without a payload says that
// it has as many.
uint32_t scalar_reply_length(uint32_t opcode);

// What came back for a vsanEntry query.
enum class vsanEntry_answer {
    none,     // no reply buffer
    unusable, // a reply buffer with a failed status, or too short for the record
    record    // status 0 and a whole record
};

// Sends one vsanEntry query and receives the answer. Not exported.
//
// kind    GET_REQ or GETNEXT_REQ
// key     the record to send, host order; not changed
// row     receives the manager's record in host order; touched only for
//         vsanEntry_answer::record. May be the same record as `key`.
// answer  what came back
//
// Returns the status of the exchange; a reply with status 0 that is too short for
// the record gives ENTRY_NO_INSTANCE. The reply buffer is released.
uint32_t query_vsanEntry(uint32_t kind, const vsanEntry &key, vsanEntry &row, vsanEntry_answer &answer);

// Sends one vsanEntry in a SET_REQ or DELETE_REQ, in the name of the requester. Not
// exported. The record is in host order and not changed: what is sent is a copy.
// Returns the status of the exchange.
uint32_t send_vsanEntry(uint32_t kind, const vsanEntry &entry);

// What every writer does with a refused request: records the status for the agent and
// returns the SNMP error status that stands for it.
int refused_by_manager(uint32_t status);

// What every writer does when memory or a list fails: records it for the agent and
// returns genErr.
int out_of_resources();

// The reason of a failed exchange: errno's text for STATUS_IN_ERRNO, else the
// platform's. Static storage; valid until the next call.
const char *manager_error_text(uint32_t status);

#endif
