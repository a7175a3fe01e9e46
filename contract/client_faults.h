/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Faults that the clients of the agent meet. The switch owns their list, the operator's tool
 * fills it, and the switch's own part of the agent makes them happen. Every word is big-endian.
 *
 * MTS_SERVICE_SWITCH, MTS_OP_CLIENT_FAULTS, GET: the list, handed to an agent.
 *   payload  the agent's number, 8 bytes: another one after each of its starts
 *   reply    byte  0  the switch's number, 8 bytes: another one after each of its starts
 *                  8  the list's edition: another one after each change
 *                 12  how many faults follow, at most CLIENT_FAULTS_MAX
 *                 16  a record for each, by number; the first that meets a message applies
 *   From then on this agent's counts are the switch's, and begin at 0 if it is another agent.
 *
 * MTS_SERVICE_SWITCH, MTS_OP_CLIENT_FAULTS, SET: which edition the agent goes by, sent once it does,
 * and how often each fault has applied.
 *   payload  byte  0  the agent's number, 8 bytes
 *                  8  the switch's number, 8 bytes
 *                 16  the edition
 *                 20  for each fault that has applied at all: its number, how often
 *   reply    nothing beside the status: STATUS_BAD_RECORD where this is not the switch that the
 *            list came from, or not the agent that has fetched it last
 *   A fault that has applied as often as it should is on the list no longer.
 *
 * EVENT_CLIENT_FAULTS, without payload: the list has changed. Also published whenever somebody
 * subscribes to it, so that an agent that comes or comes back knows that it has to ask. It is
 * between these two and nothing that happens in a switch, so that nobody is shown it.
 */
#ifndef CONTRACT_CLIENT_FAULTS_H
#define CONTRACT_CLIENT_FAULTS_H

#include <stdint.h>

#define MTS_OP_CLIENT_FAULTS 9003u
#define EVENT_CLIENT_FAULTS 390u

/* What a fault's action is for: requests and their answers, those of SNMPv3 only, or what the
 * agent sends without being asked. */
enum client_fault_about { ABOUT_REQUESTS = 1, ABOUT_V3_REQUESTS = 2, ABOUT_NOTIFICATIONS = 3 };

/* What an action's value is, if it takes one. */
enum client_fault_value { VALUE_NONE = 0, VALUE_MILLISECONDS = 1, VALUE_BYTES = 2, VALUE_ERROR = 3 };

/*
 * The actions: number, name, word, what for, value.
 *
 * A message that is kept back, and one that is to follow the next, leaves at once where
 * CLIENT_FAULT_KEPT_MAX of them or CLIENT_FAULT_KEPT_BYTES wait already.
 */
#define CLIENT_FAULT_ACTIONS(X)                                                                                        \
    X(1, LOSE_REQUEST, "lose-request", ABOUT_REQUESTS, VALUE_NONE)                                                     \
    X(2, LOSE_ANSWER, "lose-answer", ABOUT_REQUESTS, VALUE_NONE)                                                       \
    X(3, DELAY_ANSWER, "delay-answer", ABOUT_REQUESTS, VALUE_MILLISECONDS)                                             \
    X(4, REPEAT_ANSWER, "repeat-answer", ABOUT_REQUESTS, VALUE_NONE)                                                   \
    X(5, REORDER_ANSWERS, "reorder-answers", ABOUT_REQUESTS, VALUE_NONE)                                               \
    X(6, CUT_ANSWER, "cut-answer", ABOUT_REQUESTS, VALUE_BYTES)                                                        \
    X(7, WRONG_REQUEST_ID, "wrong-request-id", ABOUT_REQUESTS, VALUE_NONE)                                             \
    X(8, ERROR_STATUS, "error", ABOUT_REQUESTS, VALUE_ERROR)                                                           \
    X(9, TOO_BIG, "too-big", ABOUT_REQUESTS, VALUE_BYTES)                                                              \
    X(10, NOT_IN_TIME_WINDOW, "not-in-time-window", ABOUT_V3_REQUESTS, VALUE_NONE)                                     \
    X(11, UNKNOWN_ENGINE, "unknown-engine", ABOUT_V3_REQUESTS, VALUE_NONE)                                             \
    X(12, REBOOT_ENGINE, "reboot-engine", ABOUT_V3_REQUESTS, VALUE_NONE)                                               \
    X(13, LOSE_NOTIFICATION, "lose-notification", ABOUT_NOTIFICATIONS, VALUE_NONE)                                     \
    X(14, REPEAT_NOTIFICATION, "repeat-notification", ABOUT_NOTIFICATIONS, VALUE_NONE)                                 \
    X(15, DELAY_NOTIFICATION, "delay-notification", ABOUT_NOTIFICATIONS, VALUE_MILLISECONDS)                           \
    X(16, REORDER_NOTIFICATIONS, "reorder-notifications", ABOUT_NOTIFICATIONS, VALUE_NONE)

#define CLIENT_FAULT_ENUMERATOR(number, name, word, about, value) CLIENT_FAULT_##name = number,
enum client_fault_action { CLIENT_FAULT_ACTIONS(CLIENT_FAULT_ENUMERATOR) };
#undef CLIENT_FAULT_ENUMERATOR

/* PDU types, to be summed: number, name, word. The first four are requests. */
#define CLIENT_FAULT_PDUS(X)                                                                                           \
    X(1, CLIENT_FAULT_GET, "get")                                                                                      \
    X(2, CLIENT_FAULT_GET_NEXT, "get-next")                                                                            \
    X(4, CLIENT_FAULT_GET_BULK, "get-bulk")                                                                            \
    X(8, CLIENT_FAULT_SET, "set")                                                                                      \
    X(16, CLIENT_FAULT_TRAP, "trap")                                                                                   \
    X(32, CLIENT_FAULT_INFORM, "inform")
#define CLIENT_FAULT_ENUMERATOR(number, name, word) name = number,
enum client_fault_pdu { CLIENT_FAULT_PDUS(CLIENT_FAULT_ENUMERATOR) };
#undef CLIENT_FAULT_ENUMERATOR
#define CLIENT_FAULT_REQUEST_PDUS 15u
#define CLIENT_FAULT_NOTIFICATION_PDUS 48u

/* Error statuses of SNMP (RFC 3416): number, word. */
#define SNMP_ERROR_STATUSES(X)                                                                                         \
    X(0, "noError")                                                                                                    \
    X(1, "tooBig")                                                                                                     \
    X(2, "noSuchName")                                                                                                 \
    X(3, "badValue")                                                                                                   \
    X(4, "readOnly")                                                                                                   \
    X(5, "genErr")                                                                                                     \
    X(6, "noAccess")                                                                                                   \
    X(7, "wrongType")                                                                                                  \
    X(8, "wrongLength")                                                                                                \
    X(9, "wrongEncoding")                                                                                              \
    X(10, "wrongValue")                                                                                                \
    X(11, "noCreation")                                                                                                \
    X(12, "inconsistentValue")                                                                                         \
    X(13, "resourceUnavailable")                                                                                       \
    X(14, "commitFailed")                                                                                              \
    X(15, "undoFailed")                                                                                                \
    X(16, "authorizationError")                                                                                        \
    X(17, "notWritable")                                                                                               \
    X(18, "inconsistentName")

#define CLIENT_FAULTS_MAX 64u
#define CLIENT_FAULT_DELAY_MAX 600000u     /* milliseconds */
#define CLIENT_FAULT_BYTES_MAX 65535u      /* no message is longer */
#define CLIENT_FAULT_ERROR_MAX 2147483647u /* of an error's status and index: an Integer32 */
#define CLIENT_FAULT_ARCS_MAX 128u
#define CLIENT_FAULT_USER_MAX 64u /* bytes */
#define CLIENT_FAULT_KEPT_MAX 256u
#define CLIENT_FAULT_KEPT_BYTES 1048576u
/* How long a message that is to follow the next waits for one, in milliseconds. */
#define CLIENT_FAULT_REORDER_WAIT 1000u

#define CLIENT_FAULT_AGENT_SIZE 8u
#define CLIENT_FAULT_LIST_FIXED 16u
enum client_fault_list_at { CLIENT_FAULT_LIST_SWITCH = 0, CLIENT_FAULT_LIST_EDITION = 8, CLIENT_FAULT_LIST_COUNT = 12 };
#define CLIENT_FAULT_COUNTS_FIXED 20u
#define CLIENT_FAULT_COUNT_SIZE 8u
enum client_fault_counts_at {
    CLIENT_FAULT_COUNTS_AGENT = 0,
    CLIENT_FAULT_COUNTS_SWITCH = 8,
    CLIENT_FAULT_COUNTS_EDITION = 16
};

/* A fault's record. */
#define CLIENT_FAULT_RECORD_SIZE 648u
enum client_fault_record_at {
    CLIENT_FAULT_NUMBER = 0,
    CLIENT_FAULT_ACTION = 4,
    CLIENT_FAULT_VALUE = 8,    /* as the action says, else 0 */
    CLIENT_FAULT_DETAIL = 12,  /* of a delay how far it may differ, of an error its index */
    CLIENT_FAULT_PDU = 16,     /* a sum of client_fault_pdu */
    CLIENT_FAULT_TIMES = 20,   /* how often it applies; 0: until it is cleared */
    CLIENT_FAULT_AFTER = 24,   /* so many messages that agree are let pass first */
    CLIENT_FAULT_PERCENT = 28, /* of the others so many meet it, 1 to 100 */
    CLIENT_FAULT_SEED = 32,    /* which of them, and how late those are that are delayed */
    CLIENT_FAULT_OF_USER = 36, /* 1 where the user or community counts, else 0 */
    CLIENT_FAULT_USER_LENGTH = 40,
    CLIENT_FAULT_USER = 44,            /* CLIENT_FAULT_USER_MAX bytes, zero behind the name */
    CLIENT_FAULT_ADDRESS_LENGTH = 108, /* 4 or 16; 0: any address */
    CLIENT_FAULT_ADDRESS_BITS = 112,   /* so many of its first bits count */
    CLIENT_FAULT_ADDRESS = 116,        /* 16 bytes; where a request comes from, a notification goes to */
    CLIENT_FAULT_OID_LENGTH = 132,     /* arcs; 0: any name */
    CLIENT_FAULT_OID = 136             /* a word for each of CLIENT_FAULT_ARCS_MAX arcs, zero behind them */
};

#endif
