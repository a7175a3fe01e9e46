// SPDX-License-Identifier: Apache-2.0
#include "free_pass.h"

#include "root.h"

namespace oryx {
namespace {

// The registration of an entry of the agent's list when it is the module's, or null.
netsnmp_handler_registration *ours(const netsnmp_tree_cache &entry) {
    netsnmp_handler_registration *registration = entry.subtree ? entry.subtree->reginfo : nullptr;
    return registration && is_under_root(registration->rootoid, registration->rootoid_len) ? registration : nullptr;
}

// Whether `requests` ends with the last varbind that the agent hands to the module in
// each phase. The end is compared: a handler in between may pass varbinds on singly.
bool is_last_of_phase(const netsnmp_agent_session &asp, const netsnmp_request_info *requests) {
    const netsnmp_request_info *end = requests;
    while (end && end->next) {
        end = end->next;
    }
    for (int i = asp.treecache_num; i >= 0; --i) {
        if (ours(asp.treecache[i])) {
            return end && asp.treecache[i].requests_end == end;
        }
    }
    return false;
}

} // namespace

void free_varbind(netsnmp_handler_registration &registration, netsnmp_agent_request_info &request_info,
                  netsnmp_request_info &request) {
    const int mode = request_info.mode;
    const netsnmp_request_info before = request;
    // Alone: the old-style helper stops at a varbind that it has no write method for,
    // and the ones behind it would keep what they hold.
    request.next = nullptr;
    request.prev = nullptr;
    request_info.mode = MODE_SET_FREE;
    netsnmp_call_handlers(&registration, &request_info, &request);
    request_info.mode = mode;
    request.next = before.next;
    request.prev = before.prev;
    request.status = before.status;
    request.processed = before.processed;
    request.delegated = before.delegated;
}

void free_after_last_undo(netsnmp_agent_request_info &request_info, const netsnmp_request_info *requests) {
    const netsnmp_agent_session *asp = request_info.asp;
    if (!asp || !is_last_of_phase(*asp, requests)) {
        return;
    }
    for (int i = 0; i <= asp->treecache_num; ++i) {
        if (netsnmp_handler_registration *registration = ours(asp->treecache[i])) {
            for (netsnmp_request_info *request = asp->treecache[i].requests_begin; request; request = request->next) {
                free_varbind(*registration, request_info, *request);
            }
        }
    }
}

} // namespace oryx
