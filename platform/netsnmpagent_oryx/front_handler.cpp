// SPDX-License-Identifier: Apache-2.0
#include "front_handler.h"

#include <cstdint>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/agent_callbacks.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>

#include "context.h"
#include "free_pass.h"
#include "requester.h"
#include "root.h"
#include "row_guard.h"

namespace oryx {
namespace {

const char HANDLER_NAME[] = "netsnmpagent_oryx";

bool started = false;

int front_handler(netsnmp_mib_handler *handler, netsnmp_handler_registration *registration,
                  netsnmp_agent_request_info *request_info, netsnmp_request_info *requests) {
    PduScope scope(*request_info);
    if (request_info->mode != MODE_SET_RESERVE1) {
        const int status = netsnmp_call_next_handler(handler, registration, request_info, requests);
        if (request_info->mode == MODE_SET_UNDO) {
            free_after_last_undo(*request_info, requests);
        }
        return status;
    }

    RowGuard guard(requests);
    if (!guard.armed()) {
        for (netsnmp_request_info *request = requests; request; request = request->next) {
            netsnmp_set_request_error(request_info, request, SNMP_ERR_RESOURCEUNAVAILABLE);
        }
        return SNMP_ERR_NOERROR;
    }
    const int status = netsnmp_call_next_handler(handler, registration, request_info, requests);
    guard.restore(*registration, *request_info, requests);
    return status;
}

int requester_handler(netsnmp_mib_handler *handler, netsnmp_handler_registration *registration,
                      netsnmp_agent_request_info *request_info, netsnmp_request_info *requests) {
    PduScope scope(*request_info);
    return netsnmp_call_next_handler(handler, registration, request_info, requests);
}

netsnmp_mib_handler *find_front_handler(const netsnmp_handler_registration &registration) {
    netsnmp_mib_handler *handler = registration.handler;
    while (handler && handler->access_method != front_handler) {
        handler = handler->next;
    }
    return handler;
}

void attach(netsnmp_handler_registration &registration) {
    if (!registration.handler || find_front_handler(registration)) {
        return;
    }
    netsnmp_mib_handler *handler = netsnmp_create_handler(HANDLER_NAME, front_handler);
    if (handler && netsnmp_inject_handler(&registration, handler) == SNMPERR_SUCCESS) {
        return;
    }
    netsnmp_handler_free(handler);
    // Without the front handler nobody would know who asks, and a restricted user
    // would see everything. An object without modes answers nothing.
    snmp_log(LOG_ERR, "netsnmpagent_oryx: no memory to guard an object of %s; it answers nothing\n",
             registration.handlerName ? registration.handlerName : "the module");
    registration.modes = 0;
}

void detach(netsnmp_handler_registration &registration) {
    while (netsnmp_mib_handler *handler = find_front_handler(registration)) {
        if (handler->prev) {
            handler->prev->next = handler->next;
        } else {
            registration.handler = handler->next;
        }
        if (handler->next) {
            handler->next->prev = handler->prev;
        }
        // netsnmp_handler_free releases the whole rest of the chain with it.
        handler->next = nullptr;
        handler->prev = nullptr;
        netsnmp_handler_free(handler);
    }
}

// Calls `visit` with every registration under the root, in every context.
//
// The whole tree is looked at rather than the registration that a callback
// announces: the agent splits a registration that overlaps another and announces
// only the first piece, and for table rows it leaves the announcement's
// registration pointer uninitialised.
void for_each_registration(void (*visit)(netsnmp_handler_registration &)) {
    for (const subtree_context_cache *context = get_top_context_cache(); context; context = context->next) {
        for (netsnmp_subtree *first = context->first_subtree; first; first = first->next) {
            for (netsnmp_subtree *subtree = first; subtree; subtree = subtree->children) {
                netsnmp_handler_registration *registration = subtree->reginfo;
                if (registration && is_under_root(registration->rootoid, registration->rootoid_len)) {
                    visit(*registration);
                }
            }
        }
    }
}

int on_registration(int, int, void *announcement, void *) {
    const register_parameters *registered = static_cast<const register_parameters *>(announcement);
    if (registered && registered->name && is_under_root(registered->name, registered->namelen)) {
        for_each_registration(attach);
    }
    return SNMP_ERR_NOERROR;
}

} // namespace

void front_handler_start() {
    if (started) {
        return;
    }
    if (snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_REGISTER_OID, on_registration, nullptr) !=
        SNMPERR_SUCCESS) {
        snmp_log(LOG_ERR, "netsnmpagent_oryx: the agent refuses the registration callback\n");
        return;
    }
    started = true;
    for_each_registration(attach);
}

void front_handler_stop() {
    if (!started) {
        return;
    }
    snmp_unregister_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_REGISTER_OID, on_registration, nullptr, 1);
    for_each_registration(detach);
    started = false;
}

} // namespace oryx

extern "C" {

int oryx_note_requester(netsnmp_handler_registration *registration) {
    netsnmp_mib_handler *handler = netsnmp_create_handler(oryx::HANDLER_NAME, oryx::requester_handler);
    if (handler && netsnmp_inject_handler(registration, handler) == SNMPERR_SUCCESS) {
        return 0;
    }
    netsnmp_handler_free(handler);
    return 1;
}

} // extern "C"
