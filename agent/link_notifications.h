// SPDX-License-Identifier: Apache-2.0
// linkUp and linkDown (RFC 2863), sent when a port's operational state changes.
#ifndef AGENT_LINK_NOTIFICATIONS_H
#define AGENT_LINK_NOTIFICATIONS_H

#include "netsnmpagent_oryx.h"

namespace switch_agent {

// Turns an event of class EVENT_PORT_CHANGED into a notification, or into none: arguments and
// result are a notification_callback's.
netsnmp_variable_list *notify_of_link(const mts_message *message, oid *trap_oid, size_t *trap_length, int *send);

} // namespace switch_agent

#endif
