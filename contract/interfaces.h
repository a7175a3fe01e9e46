/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The switch's ports as interfaces, and the switch as a system: what the switch's own part
 * of the agent asks the port manager (MTS_SERVICE_PORT). Every word is big-endian.
 *
 * MTS_OP_PORT, GET: a port by its ifIndex; GET_NEXT: the port that follows an ifIndex.
 *   payload  a word, the ifIndex
 *   reply    the port record; STATUS_NO_SUCH_INTERFACE when there is none, and
 *            STATUS_NO_MORE_INTERFACES when none follows
 * MTS_OP_PORT, SET: one setting of a port.
 *   payload  the port setting; exactly as long as its key says
 *   reply    nothing beside the status
 *
 * MTS_OP_SYSTEM, GET: what the switch says of itself.
 *   no payload
 *   reply    the system record
 * MTS_OP_SYSTEM, SET: one of its texts.
 *   payload  the system setting
 *   reply    nothing beside the status
 */
#ifndef CONTRACT_INTERFACES_H
#define CONTRACT_INTERFACES_H

/*
 * ifAlias, in octets (RFC 2863), and the texts of the system group (RFC 3418). They are UTF-8
 * without control characters, and may be empty; another one is STATUS_BAD_RECORD.
 */
#define PORT_ALIAS_MAX 64u
#define SYSTEM_TEXT_MAX 255u

/* A moment: seconds since 1970, then microseconds; 0 and 0 for never. */
#define MOMENT_SIZE 8u

/*
 * Counters that only ever grow while the port is in service. The value at a moment T is
 * base + rate * (T - since), in whole units, and base alone while `since` is 0; T is the
 * record's own `now`, since two processes need not agree on the time of day. The switch
 * gives a new base at each change of rate or link. Rates fit into 32 bits. Beside each
 * counter stand the word of files and commands, and that of the tool.
 */
#define PORT_COUNTERS(X)                                                                                               \
    X(PORT_COUNTER_IN_OCTETS, "inOctets", "in-octets")                                                                 \
    X(PORT_COUNTER_IN_FRAMES, "inFrames", "in-frames")                                                                 \
    X(PORT_COUNTER_IN_ERRORS, "inErrors", "in-errors")                                                                 \
    X(PORT_COUNTER_IN_DISCARDS, "inDiscards", "in-discards")                                                           \
    X(PORT_COUNTER_OUT_OCTETS, "outOctets", "out-octets")                                                              \
    X(PORT_COUNTER_OUT_FRAMES, "outFrames", "out-frames")                                                              \
    X(PORT_COUNTER_OUT_ERRORS, "outErrors", "out-errors")                                                              \
    X(PORT_COUNTER_OUT_DISCARDS, "outDiscards", "out-discards")
#define PORT_COUNTER_ENUMERATOR(name, word, tool_word) name,
enum port_counter { PORT_COUNTERS(PORT_COUNTER_ENUMERATOR) PORT_COUNTER_COUNT };
#undef PORT_COUNTER_ENUMERATOR

/* Speeds that a port can be given, in Mbit/s. */
#define PORT_SPEEDS(X) X(2000u) X(4000u) X(8000u) X(16000u) X(32000u)
#define PORT_SPEED_DEFAULT 8000u

/* ifAdminStatus, ifOperStatus and ifLinkUpDownTrapEnable as IF-MIB numbers them. */
enum port_status { PORT_UP = 1, PORT_DOWN = 2 };
enum port_traps { PORT_TRAPS_ENABLED = 1, PORT_TRAPS_DISABLED = 2 };

#define PORT_RECORD_SIZE 260u
enum port_record_at {
    PORT_RECORD_IF_INDEX = 0,
    PORT_RECORD_NUMBER = 4,         /* n of its name "fcn" */
    PORT_RECORD_ADMIN = 8,          /* port_status */
    PORT_RECORD_OPER = 12,          /* port_status: up when it is in service and its cable is in */
    PORT_RECORD_SPEED = 16,         /* one of PORT_SPEEDS */
    PORT_RECORD_TRAPS = 20,         /* port_traps */
    PORT_RECORD_LAST_CHANGE = 24,   /* moment of the last change of the operational state */
    PORT_RECORD_DISCONTINUITY = 32, /* moment when the counters last began anew */
    PORT_RECORD_WWN = 40,           /* 8 bytes: NAA 2, the port's number modulo 4096, the switch's address */
    PORT_RECORD_ALIAS_LENGTH = 48,
    PORT_RECORD_ALIAS = 52,     /* PORT_ALIAS_MAX bytes, zero behind the text */
    PORT_RECORD_SINCE = 116,    /* moment from which the rates count */
    PORT_RECORD_COUNTERS = 124, /* for each: base, rate a second; 8 bytes each */
    PORT_RECORD_NOW = 252       /* moment of the answer */
};

enum port_setting_key {
    PORT_SETTING_ADMIN = 1, /* a word, port_status */
    PORT_SETTING_TRAPS = 2, /* a word, port_traps */
    PORT_SETTING_ALIAS = 3  /* UTF-8 text to the end of the payload, at most PORT_ALIAS_MAX bytes */
};
enum port_setting_at { PORT_SETTING_IF_INDEX = 0, PORT_SETTING_KEY = 4, PORT_SETTING_VALUE = 8 };

/* Texts are UTF-8, zero behind their length. */
#define SYSTEM_TEXT_FIELD 260u
/* Number, name, word, initial text. */
#define SYSTEM_TEXTS(X)                                                                                                \
    X(0, SYSTEM_CONTACT, "contact", "")                                                                                \
    X(1, SYSTEM_NAME, "name", "vswitch")                                                                               \
    X(2, SYSTEM_LOCATION, "location", "")
#define SYSTEM_TEXT_ENUMERATOR(number, name, word, initial) name = number,
enum system_text { SYSTEM_TEXTS(SYSTEM_TEXT_ENUMERATOR) SYSTEM_TEXT_COUNT };
#undef SYSTEM_TEXT_ENUMERATOR
/* For each text its length, one word, and 256 bytes; then the world wide name: of a switch made
 * since it has one of NAA 1, that and a locally administered address of 48 bits. */
#define SYSTEM_RECORD_WWN 780u
#define SYSTEM_RECORD_SIZE 788u
enum system_setting_at { SYSTEM_SETTING_TEXT = 0, SYSTEM_SETTING_VALUE = 4 /* text to the end of the payload */ };

/*
 * EVENT_PORT_CHANGED, something about one port is different:
 *
 *   byte  0  ifIndex
 *         4  which, a sum of port_change
 *         8  administrative status, former, then present
 *        16  operational status, former, then present
 *        24  moment
 *        32  traps, port_traps, as they are now
 */
#define PORT_CHANGED_SIZE 36u
enum port_changed_at {
    PORT_CHANGED_IF_INDEX = 0,
    PORT_CHANGED_WHICH = 4,
    PORT_CHANGED_FORMER_ADMIN = 8,
    PORT_CHANGED_ADMIN = 12,
    PORT_CHANGED_FORMER_OPER = 16,
    PORT_CHANGED_OPER = 20,
    PORT_CHANGED_MOMENT = 24,
    PORT_CHANGED_TRAPS = 32
};
/* Number, name, word of the operator's tool. */
#define PORT_CHANGES(X)                                                                                                \
    X(1, PORT_CHANGE_ADMIN, "admin")                                                                                   \
    X(2, PORT_CHANGE_OPER, "oper")                                                                                     \
    X(4, PORT_CHANGE_ALIAS, "alias")                                                                                   \
    X(8, PORT_CHANGE_SPEED, "speed")                                                                                   \
    X(16, PORT_CHANGE_TRAFFIC, "traffic")                                                                              \
    X(32, PORT_CHANGE_TRAPS, "traps")
#define PORT_CHANGE_ENUMERATOR(number, name, word) name = number,
enum port_change { PORT_CHANGES(PORT_CHANGE_ENUMERATOR) };
#undef PORT_CHANGE_ENUMERATOR

#endif
