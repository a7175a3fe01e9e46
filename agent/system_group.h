// SPDX-License-Identifier: Apache-2.0
// The system group (RFC 3418): what the switch is, and the three texts that people give it. The
// switch keeps the texts; sysORTable is the agent's own, in which the MIB modules are named.
#ifndef AGENT_SYSTEM_GROUP_H
#define AGENT_SYSTEM_GROUP_H

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

namespace switch_agent {

// sysObjectID: what kind of device this is.
inline const oid SYS_OBJECT_ID[] = {1, 3, 6, 1, 4, 1, static_cast<oid>(VENDOR_PEN), SYS_OBJECT_ID_ARCS};

// Registers the group with the agent. What it refuses is named in its log.
void register_system_group();

} // namespace switch_agent

#endif
