// SPDX-License-Identifier: Apache-2.0
// Answers that the agent would not give: to a request that is not carried out, or in place of the
// agent's own.
#ifndef AGENT_OWN_ANSWERS_H
#define AGENT_OWN_ANSWERS_H

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

namespace switch_agent {

// Each answers a request that has come over a session; the request stays as it is.

// An error status and the number of the variable at fault, with the request's variables.
void answer_error(netsnmp_session *session, netsnmp_pdu &request, long status, long index);

// tooBig, for which later versions than 1 take the variables away (RFC 3416).
void answer_too_big(netsnmp_session *session, netsnmp_pdu &request);

// A report (RFC 3414) that the time window was missed or the engine id is unknown. Of SNMPv3 only.
void report_not_in_time_window(netsnmp_session *session, netsnmp_pdu &request);
void report_unknown_engine(netsnmp_session *session, netsnmp_pdu &request);

// Makes the agent's engine one that has started once more: all who knew its boots are out of the
// time window. Stored at once, since the boots must never go back. Its time goes on.
void reboot_engine();

} // namespace switch_agent

#endif
