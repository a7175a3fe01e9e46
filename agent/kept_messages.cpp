// SPDX-License-Identifier: Apache-2.0
#include "kept_messages.h"

#include <cstdlib>
#include <cstring>

#include <net-snmp/library/snmp_alarm.h>

#include "interception.h"
#include "sessions.h"

namespace switch_agent {
namespace {

struct Kept {
    Kept *next;
    unsigned timer;
    netsnmp_transport *transport;
    int socket;
    Send send;
    Address peer;
    bool is_notification;
    bool is_for_next;
    int size;
    int socket_address_size;
    // The socket address, aligned for whatever it is; the message behind it.
    alignas(max_align_t) uint8_t bytes[];
};

Kept *first = nullptr;
unsigned kept_count = 0;
size_t kept_bytes = 0;

// Puts a message behind the others, so that those which are due together leave in their order.
void append(Kept *kept) {
    Kept **place = &first;
    while (*place) {
        place = &(*place)->next;
    }
    *place = kept;
    ++kept_count;
    kept_bytes += static_cast<size_t>(kept->size);
}

// Takes a message from the list.
void unlink(Kept *kept) {
    for (Kept **place = &first; *place; place = &(*place)->next) {
        if (*place == kept) {
            *place = kept->next;
            --kept_count;
            kept_bytes -= static_cast<size_t>(kept->size);
            return;
        }
    }
}

// Whether its transport is still there: sessions of notifications come and go.
bool can_be_sent(const Kept &kept) {
    for (const session_list *session = Sessions; session; session = session->next) {
        if (session->transport == kept.transport) {
            return kept.transport->sock == kept.socket;
        }
    }
    return false;
}

// Sends a message that is on the list no longer, and releases it. What waited for it follows.
void send_and_release(Kept *kept) {
    if (can_be_sent(*kept)) {
        void *socket_address = kept->socket_address_size > 0 ? kept->bytes : nullptr;
        int socket_address_size = kept->socket_address_size;
        const Outgoing message = {kept->transport, kept->send,           kept->bytes + kept->socket_address_size,
                                  kept->size,      &socket_address,      &socket_address_size,
                                  kept->peer,      kept->is_notification};
        message.send(message.transport, message.bytes, message.size, message.socket_address,
                     message.socket_address_size);
        if (!kept->is_for_next) {
            send_those_behind(message);
        }
    }
    free(kept);
}

void on_time(unsigned, void *argument) {
    Kept *kept = static_cast<Kept *>(argument);
    unlink(kept);
    send_and_release(kept);
    intercept_as_needed();
}

bool keep(const Outgoing &message, uint32_t milliseconds, bool is_for_next) {
    const int address_size = message.socket_address && *message.socket_address && message.socket_address_size
                                 ? *message.socket_address_size
                                 : 0;
    if (message.size < 0 || address_size < 0 || kept_count == CLIENT_FAULT_KEPT_MAX ||
        kept_bytes + static_cast<size_t>(message.size) > CLIENT_FAULT_KEPT_BYTES) {
        return false;
    }
    const auto length = static_cast<size_t>(message.size);
    const auto address_length = static_cast<size_t>(address_size);
    Kept *kept = static_cast<Kept *>(malloc(sizeof(Kept) + address_length + length));
    if (!kept) {
        return false;
    }
    *kept = {};
    const timeval duration = {static_cast<time_t>(milliseconds / 1000),
                              static_cast<suseconds_t>(milliseconds % 1000 * 1000)};
    kept->timer = snmp_alarm_register_hr(duration, 0, on_time, kept);
    if (kept->timer == 0) {
        free(kept);
        return false;
    }
    kept->transport = message.transport;
    kept->socket = message.transport->sock;
    kept->send = message.send;
    kept->peer = message.peer;
    kept->is_notification = message.is_notification;
    kept->is_for_next = is_for_next;
    kept->size = message.size;
    kept->socket_address_size = address_size;
    if (address_length > 0) {
        memcpy(kept->bytes, *message.socket_address, address_length);
    }
    memcpy(kept->bytes + address_length, message.bytes, length);
    append(kept);
    return true;
}

bool waits_for(const Kept &kept, const Outgoing &message) {
    return kept.is_for_next && kept.is_notification == message.is_notification && kept.peer == message.peer;
}

Kept *find_waiting(const Outgoing &message) {
    Kept *kept = first;
    while (kept && !waits_for(*kept, message)) {
        kept = kept->next;
    }
    return kept;
}

} // namespace

bool keep_for(const Outgoing &message, uint32_t milliseconds) {
    return keep(message, milliseconds, false);
}

bool keep_for_next(const Outgoing &message) {
    return !find_waiting(message) && keep(message, CLIENT_FAULT_REORDER_WAIT, true);
}

bool has_kept_for_next(bool is_notification) {
    for (const Kept *kept = first; kept; kept = kept->next) {
        if (kept->is_for_next && kept->is_notification == is_notification) {
            return true;
        }
    }
    return false;
}

void send_those_behind(const Outgoing &message) {
    while (Kept *kept = find_waiting(message)) {
        snmp_alarm_unregister(kept->timer);
        unlink(kept);
        send_and_release(kept);
        intercept_soon();
    }
}

void drop_kept() {
    while (Kept *kept = first) {
        snmp_alarm_unregister(kept->timer);
        unlink(kept);
        free(kept);
    }
}

} // namespace switch_agent
