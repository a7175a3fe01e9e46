/* SPDX-License-Identifier: Apache-2.0 */
/*
 * What the switch publishes: event classes and their payloads, big-endian words.
 *
 * EVENT_PORT_MOVED, an interface has moved to another VSAN:
 *
 *   byte  0  ifIndex
 *         4  former VSAN
 *         8  new VSAN
 *
 * EVENT_VSAN_CHANGED, a VSAN's configuration or operation has changed:
 *
 *   byte  0  condition            0, or 1 when the VSAN has been deleted
 *         4  VSAN number
 *         8  1 when the VSAN has just been created, else 0
 *        12  number of attributes, 0 to VSAN_EVENT_MAX_ATTRIBUTES
 *        16  for each: its key, value and former value
 *
 *   The switch tells two attributes, administrative and operational state. A VSAN that
 *   did not exist before has the former values 0. One that no longer exists has the
 *   values ADMIN_STATE_GONE and OPER_STATE_DOWN.
 *
 * EVENT_PORT_CHANGED, see interfaces.h.
 *
 * EVENT_SETTING_CHANGED, a name, a timer or a text is another one:
 *
 *   byte  0  kind                 enum changed_setting
 *         4  which                of a VSAN's name or timer its number; 0 for the timers and
 *                                 latencies of the whole switch; of a text its system_text
 *         8  key                  the timer's or latency's attribute key, else 0
 *        12  value and former value, in milliseconds, else 0; where a VSAN had no value of
 *            its own, the former one is 0
 *        20  the name or text as it is now, to the end of the payload
 *
 *   What waits in a session of the distribution service has not changed yet.
 *
 * EVENT_ANY_CHANGE, what the operator's tool shows of VSANs, ports and their links, settings, the
 * distribution session, the agents that are there or the faults that are set is different. It has no payload, comes
 * behind all other events of the change, and stands for several changes while it waits for
 * its receiver: who gets it asks again. It is not among the events that are counted as published. Only the
 * operator's tool subscribes to it; of the other connections that have subscribed to
 * something each is an agent's.
 *
 * A change is answered first. Then it publishes the moves of its ports, by ifIndex; the
 * VSANs that it affects, by number; the ports that are different, by ifIndex; and settings:
 * the switch's timers and latencies by key, its texts, then those of each VSAN by number,
 * its name before its timers.
 */
#ifndef CONTRACT_EVENTS_H
#define CONTRACT_EVENTS_H

/* Number, name, word of the operator's tool. */
#define EVENTS(X)                                                                                                      \
    X(102, EVENT_PORT_MOVED, "port")                                                                                   \
    X(145, EVENT_VSAN_CHANGED, "vsan")                                                                                 \
    X(301, EVENT_PORT_CHANGED, "interface")                                                                            \
    X(302, EVENT_SETTING_CHANGED, "setting")

#define EVENT_ENUMERATOR(number, name, word) name = number,
enum switch_event_class {
    EVENT_ANY_CHANGE = 303, /* no word: it tells nothing by itself */
    EVENTS(EVENT_ENUMERATOR)
};
#undef EVENT_ENUMERATOR

#define PORT_EVENT_SIZE 12u
enum port_event_at { PORT_EVENT_IF_INDEX = 0, PORT_EVENT_FORMER_VSAN = 4, PORT_EVENT_VSAN = 8 };

#define VSAN_EVENT_FIXED 16u
#define VSAN_EVENT_ATTRIBUTE_SIZE 12u
#define VSAN_EVENT_MAX_ATTRIBUTES 32u
enum vsan_event_at {
    VSAN_EVENT_CONDITION = 0,
    VSAN_EVENT_VSAN = 4,
    VSAN_EVENT_CREATED = 8,
    VSAN_EVENT_ATTRIBUTE_COUNT = 12
};
enum vsan_event_attribute_at {
    VSAN_EVENT_ATTRIBUTE_KEY = 0,
    VSAN_EVENT_ATTRIBUTE_VALUE = 4,
    VSAN_EVENT_ATTRIBUTE_FORMER = 8
};

enum changed_setting { CHANGED_VSAN_NAME = 1, CHANGED_TIMER = 2, CHANGED_SYSTEM_TEXT = 3 };
#define SETTING_EVENT_FIXED 20u
enum setting_event_at {
    SETTING_EVENT_KIND = 0,
    SETTING_EVENT_WHICH = 4,
    SETTING_EVENT_KEY = 8,
    SETTING_EVENT_VALUE = 12,
    SETTING_EVENT_FORMER = 16,
    SETTING_EVENT_TEXT = 20
};

#endif
