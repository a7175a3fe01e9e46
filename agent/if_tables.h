// SPDX-License-Identifier: Apache-2.0
// IF-MIB (RFC 2863) for the switch's ports: ifNumber, ifTable, ifXTable and ifTableLastChange.
#ifndef AGENT_IF_TABLES_H
#define AGENT_IF_TABLES_H

namespace switch_agent {

// Registers them with the agent. Those that it refuses are named in its log; the others are served.
void register_interfaces();

// What remains of them after the agent has forgotten all registrations (registrations.h).
void release_interfaces();

} // namespace switch_agent

#endif
