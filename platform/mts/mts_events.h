// SPDX-License-Identifier: Apache-2.0
// Reception of events, on a connection of its own, so that a reply never waits
// behind an event. For the platform's libraries; a process has one subscription.
//
// Called on the same thread as cmi_req_resp.
#ifndef MTS_EVENTS_H
#define MTS_EVENTS_H

#include <cstddef>
#include <cstdint>

#include "mts.h"

#ifdef __cplusplus
extern "C" {
#endif

// How many event classes one subscription can name.
#define MTS_EVENTS_MAX_CLASSES 32u

// Connects and subscribes to `count` event classes, 0 to MTS_EVENTS_MAX_CLASSES. An
// earlier subscription is closed first. Does not wait for the switch's
// confirmation: events that are published before the switch has read the
// subscription are not delivered.
//
// Call it in the process that wants the events, after any fork.
//
// Returns a non-blocking descriptor that is readable whenever mts_events_next has
// something to do, owned by the library; or -1 with errno as cmi_req_resp sets it.
int mts_events_open(const uint32_t *classes, size_t count);

// Takes the next event, without waiting.
//
// *event is set to the event, or to null when there is none. It is valid until the
// next call of a function of this header.
//
// Returns 1 for an event; 0 when none is complete yet; -1 when there is no usable
// connection, because the switch closed it (errno ECONNRESET), sent what is no
// event (EPROTO), because this process is a fork of the subscriber or never
// subscribed (ENOTCONN). After -1 the descriptor stays open until mts_events_close
// or mts_events_open, so that it can be taken from a poll set first; when to
// subscribe again is the caller's decision.
//
// Nothing behind one event is taken from the socket: a caller may stop after any
// number of events, the descriptor stays readable while there are more. One call
// does a bounded amount of work, whatever the switch sends.
int mts_events_next(const mts_message **event);

// Ends the subscription and closes its descriptor.
void mts_events_close(void);

// The class that an event was published under.
uint32_t mts_message_class(const mts_message *message);

#ifdef __cplusplus
}
#endif

#endif
