// SPDX-License-Identifier: Apache-2.0
// What this library has registered with the agent, so that all of it can be taken back: the agent
// may unload the library at any time, and would call code that is gone.
#ifndef AGENT_REGISTRATIONS_H
#define AGENT_REGISTRATIONS_H

#include <cstddef>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

namespace switch_agent {

enum class Access { read_only, read_write };

// Registers a scalar or a table of `length` arcs, which outlive the registration. `handler` is
// called with `argument` as its myvoid, and knows who asks. What the agent refuses, because a
// module of its own serves it for instance, is named in its log and not served here.
void add_scalar(const char *name, const oid *root, size_t length, Netsnmp_Node_Handler *handler, void *argument,
                Access access);
void add_table(const char *name, const oid *root, size_t length, Netsnmp_Node_Handler *handler, void *argument,
               netsnmp_table_registration_info &columns);

// Names a MIB module in sysORTable, if the agent keeps one.
void add_module(const oid *identity, size_t length, const char *description);

// Takes back everything.
void remove_all();

} // namespace switch_agent

#endif
