// SPDX-License-Identifier: Apache-2.0
// Releases what a SET has staged where the agent itself does not.
//
// The phases of a SET end with COMMIT or with FREE, except after a failed ACTION: then
// the agent runs UNDO and nothing after it. What the write methods keep from phase to
// phase would stay, and a later PDU would find it.
#ifndef NETSNMPAGENT_ORYX_FREE_PASS_H
#define NETSNMPAGENT_ORYX_FREE_PASS_H

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

namespace oryx {

// Called when the handlers of one registration have returned from UNDO. When it was
// the PDU's last under the root, every varbind of the PDU under the root goes through
// FREE: not before, because the varbinds of one row share what is kept for UNDO.
//
// requests   the chain that the handlers were called with
void free_after_last_undo(netsnmp_agent_request_info &request_info, const netsnmp_request_info *requests);

// Takes one varbind through FREE, by the ordinary chain of handlers and with the name
// that it has now. What the handlers say about it is dropped: the varbind keeps the
// status that the requester is to see.
void free_varbind(netsnmp_handler_registration &registration, netsnmp_agent_request_info &request_info,
                  netsnmp_request_info &request);

} // namespace oryx

#endif
