// SPDX-License-Identifier: Apache-2.0
#include "notifications.h"

#include <cstdint>
#include <cstring>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/agent_trap.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>

#include "mts_events.h"
#include "netsnmpagent_oryx.h"

namespace oryx {
namespace {

struct Subscription {
    uint32_t event_class;
    notification_callback callback;
};

Subscription subscriptions[NOTIFICATION_CLASSES];
unsigned subscription_count = 0;

// The descriptor that the agent's loop watches, unless there is a pause; or -1.
int connection = -1;

// The agent's timer that ends a pause in a storm of events, or 0.
unsigned pause_timer = 0;

// The agent's timer that tries to connect, or 0. Either it runs or there is a
// connection or nobody has subscribed.
unsigned connect_timer = 0;

// Set while events are delivered: a callback that changes the subscriptions must not
// pull the connection from under its own event.
bool delivering = false;
bool subscriptions_changed = false;

// Set when a binding could not be made: its notification would be another one.
bool binding_is_missing = false;

static_assert(NOTIFICATION_CLASSES <= MTS_EVENTS_MAX_CLASSES);

const oid SNMP_TRAP_OID[] = {1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};

Subscription *find(uint32_t event_class) {
    for (unsigned i = 0; i < subscription_count; ++i) {
        if (subscriptions[i].event_class == event_class) {
            return &subscriptions[i];
        }
    }
    return nullptr;
}

// Sends one notification with `bindings`. snmpTrapOID goes first and sysUpTime is
// left to the agent: given a list that begins with sysUpTime, it compares that
// value with an OID prefix and reads past its end.
void send_notification(const oid *trap_oid, size_t trap_length, netsnmp_variable_list *bindings) {
    netsnmp_variable_list *list = nullptr;
    if (!snmp_varlist_add_variable(&list, SNMP_TRAP_OID, OID_LENGTH(SNMP_TRAP_OID), ASN_OBJECT_ID, trap_oid,
                                   trap_length * sizeof(oid))) {
        snmp_log(LOG_ERR, "netsnmpagent_oryx: no memory for a notification\n");
        return;
    }
    list->next_variable = bindings;
    send_v2trap(list);
    list->next_variable = nullptr;
    snmp_free_varbind(list);
}

void deliver(const mts_message *message) {
    const Subscription *subscription = find(mts_message_class(message));
    if (!subscription) {
        return;
    }
    oid trap_oid[MAX_OID_LEN] = {};
    size_t trap_length = 0;
    int send = 0;
    binding_is_missing = false;
    netsnmp_variable_list *bindings = subscription->callback(message, trap_oid, &trap_length, &send);
    if (bindings && !binding_is_missing && send == 1 && trap_length > 0 && trap_length <= MAX_OID_LEN) {
        send_notification(trap_oid, trap_length, bindings);
    }
    snmp_free_varbind(bindings);
}

void disconnect() {
    if (connection < 0) {
        return;
    }
    if (pause_timer != 0) {
        snmp_alarm_unregister(pause_timer);
    } else {
        unregister_readfd(connection);
    }
    pause_timer = 0;
    connection = -1;
    mts_events_close();
}

void stop_timer() {
    if (connect_timer != 0) {
        snmp_alarm_unregister(connect_timer);
    }
    connect_timer = 0;
}

void on_connect_timer(unsigned, void *);

// Makes the connection fit the subscriptions: a new one from the agent's next turn
// on, or none.
void renew_connection() {
    if (delivering) {
        subscriptions_changed = true;
        return;
    }
    subscriptions_changed = false;
    disconnect();
    if (subscription_count == 0) {
        stop_timer();
    } else if (connect_timer == 0) {
        connect_timer = snmp_alarm_register(CONNECT_INTERVAL, SA_REPEAT, on_connect_timer, nullptr);
        if (connect_timer == 0) {
            snmp_log(LOG_ERR, "netsnmpagent_oryx: no memory for a timer; notifications are off\n");
        }
    }
}

void on_readable(int, void *);

void on_pause_over(unsigned, void *) {
    pause_timer = 0;
    if (register_readfd(connection, on_readable, nullptr) != FD_REGISTERED_OK) {
        renew_connection();
    }
}

// Leaves the connection alone for a while; without memory for a timer it goes on.
void begin_pause() {
    struct timeval duration = {};
    duration.tv_usec = suseconds_t{STORM_PAUSE} * 1000;
    pause_timer = snmp_alarm_register_hr(duration, 0, on_pause_over, nullptr);
    if (pause_timer != 0) {
        unregister_readfd(connection);
    }
}

// The agent's loop found the connection readable.
void on_readable(int, void *) {
    delivering = true;
    int result = 1;
    for (unsigned taken = 0; taken < EVENTS_PER_TURN && result == 1 && !subscriptions_changed; ++taken) {
        const mts_message *message = nullptr;
        result = mts_events_next(&message);
        if (result == 1) {
            deliver(message);
        }
    }
    delivering = false;
    if (result < 0 || subscriptions_changed) {
        renew_connection();
    } else if (result == 1) {
        begin_pause();
    }
}

void on_connect_timer(unsigned, void *) {
    uint32_t classes[NOTIFICATION_CLASSES];
    for (unsigned i = 0; i < subscription_count; ++i) {
        classes[i] = subscriptions[i].event_class;
    }
    const int descriptor = mts_events_open(classes, subscription_count);
    if (descriptor < 0) {
        return;
    }
    if (register_readfd(descriptor, on_readable, nullptr) != FD_REGISTERED_OK) {
        mts_events_close();
        return;
    }
    connection = descriptor;
    stop_timer();
}

} // namespace

void notifications_stop() {
    subscription_count = 0;
    renew_connection();
}

} // namespace oryx

extern "C" {

int register_for_notification(uint32_t event_class, notification_callback callback) {
    using namespace oryx;
    if (!callback) {
        return 1;
    }
    if (Subscription *subscription = find(event_class)) {
        subscription->callback = callback;
        return 0;
    }
    if (subscription_count == NOTIFICATION_CLASSES) {
        return 1;
    }
    subscriptions[subscription_count++] = {event_class, callback};
    renew_connection();
    return 0;
}

void unregister_for_notification(uint32_t event_class) {
    using namespace oryx;
    Subscription *subscription = find(event_class);
    if (!subscription) {
        return;
    }
    *subscription = subscriptions[--subscription_count];
    renew_connection();
}

netsnmp_variable_list *build_varbind(netsnmp_variable_list *list, const void *value, uint8_t type, size_t length,
                                     const oid *name, size_t name_length) {
    if (!name || name_length == 0 || name_length > MAX_OID_LEN || (!value && length > 0)) {
        oryx::binding_is_missing = true;
        return list;
    }
    // The agent reads numbers as whole words; the caller's may lie anywhere, a record
    // of the wire included.
    unsigned long long aligned;
    if (length > 0 && length <= sizeof(aligned)) {
        memcpy(&aligned, value, length);
        value = &aligned;
    }
    if (!snmp_varlist_add_variable(&list, name, name_length, type, value, length)) {
        oryx::binding_is_missing = true;
    }
    return list;
}

} // extern "C"
