// SPDX-License-Identifier: Apache-2.0
// The agent's list of its open sessions. Net-SNMP says what its elements are and gives away one after
// the other, but no header of it names the first.
#ifndef AGENT_SESSIONS_H
#define AGENT_SESSIONS_H

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

extern "C" {

extern struct session_list *Sessions; // NOLINT(readability-identifier-naming): Net-SNMP's name

} // extern "C"

#endif
