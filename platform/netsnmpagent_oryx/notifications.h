// SPDX-License-Identifier: Apache-2.0
// Events of the switch become notifications of the agent.
//
// The connection to the switch is made from the agent's loop, never while the module
// registers: at that moment the agent has not yet forked into the background nor
// changed its user. It is tried every second until it stands, and again after it
// broke. Events are served between requests, a few at a time.
#ifndef NETSNMPAGENT_ORYX_NOTIFICATIONS_H
#define NETSNMPAGENT_ORYX_NOTIFICATIONS_H

namespace oryx {

constexpr unsigned NOTIFICATION_CLASSES = 16;

// Events taken in one turn of the agent's loop; SNMP requests are served between two
// turns.
constexpr unsigned EVENTS_PER_TURN = 32;

// Milliseconds after a turn that took so many in which no more are taken. 2000 a second
// are few enough for the buffers of ordinary receivers, and for those of informs to
// acknowledge them, so that a storm reaches them whole; the switch keeps what waits.
constexpr unsigned STORM_PAUSE = 16;

// Seconds between two attempts to connect.
constexpr unsigned CONNECT_INTERVAL = 1;

// Ends every subscription and gives back what the agent holds of this library: its
// timer and its descriptor. A second call changes nothing.
void notifications_stop();

} // namespace oryx

#endif
