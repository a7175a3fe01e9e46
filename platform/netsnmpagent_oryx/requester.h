/* SPDX-License-Identifier: Apache-2.0 */
/*
 * For other libraries of this agent that ask the switch on somebody's behalf: under the
 * module's root the front handler tells them who that is, elsewhere a handler does that they
 * put in themselves. It does nothing else: what a SET keeps and gives back is their own affair.
 */
#ifndef NETSNMPAGENT_ORYX_REQUESTER_H
#define NETSNMPAGENT_ORYX_REQUESTER_H

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Puts a handler in front of those of a registration that the agent does not have yet: in
 * those behind it get_snmp_username, get_snmp_sessionid, get_pdu_reqid and what says who may
 * touch what (netsnmpagent_oryx.h) speak of the PDU in progress.
 *
 * Returns 0, or 1 when there is no memory; the registration is as it was then. Whoever calls
 * this is linked against this library, so that its code stays for as long as theirs does.
 */
int oryx_note_requester(netsnmp_handler_registration *registration);

#ifdef __cplusplus
}
#endif

#endif
