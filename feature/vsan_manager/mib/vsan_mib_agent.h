// SPDX-License-Identifier: Apache-2.0
// The agent's headers, in the order in which they want to be included.
#ifndef VSAN_MIB_AGENT_H
#define VSAN_MIB_AGENT_H

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <net-snmp/agent/util_funcs/header_generic.h>

#endif
