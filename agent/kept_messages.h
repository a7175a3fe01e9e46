// SPDX-License-Identifier: Apache-2.0
// Messages of the agent that leave later than they would: after a time, or behind the next one to the
// same address. At most CLIENT_FAULT_KEPT_MAX and CLIENT_FAULT_KEPT_BYTES of them wait.
#ifndef AGENT_KEPT_MESSAGES_H
#define AGENT_KEPT_MESSAGES_H

#include "client_fault.h"

namespace switch_agent {

// How a transport sends: netsnmp_transport's f_send.
using Send = int (*)(netsnmp_transport *, const void *, int, void **, int *);

// A message on its way out.
struct Outgoing {
    netsnmp_transport *transport;
    Send send; // the transport's own way
    const void *bytes;
    int size;
    void **socket_address; // as f_send gets them: null, or to null, for the transport's peer
    int *socket_address_size;
    Address peer;
    bool is_notification;
};

// Keeps a copy of a message for so many milliseconds. False when there is no room or no memory:
// the message should leave now.
bool keep_for(const Outgoing &message, uint32_t milliseconds);

// Keeps a copy until another answer, or for a notification another notification, has gone to the
// same address and port, for CLIENT_FAULT_REORDER_WAIT at most. False as above, and when one waits for
// that already: this is the other one.
bool keep_for_next(const Outgoing &message);

// Whether anything waits for another answer, or another notification.
bool has_kept_for_next(bool is_notification);

// Lets those leave that waited for the message, which has just been sent.
void send_those_behind(const Outgoing &message);

// Drops all that waits.
void drop_kept();

} // namespace switch_agent

#endif
