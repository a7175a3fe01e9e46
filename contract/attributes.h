/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The VSAN manager's attributes, of which records and events carry the keys, and what
 * their values are. A list has a row for each value: the number, the name, and the word
 * that the configuration file, the operator's commands and the tool have for it.
 */
#ifndef CONTRACT_ATTRIBUTES_H
#define CONTRACT_ATTRIBUTES_H

#include "limits.h"

/* Fabric timers: key, name, word, least, greatest and initial value in milliseconds. */
#define FABRIC_TIMERS(X)                                                                                               \
    X(7, ATTRIBUTE_E_D_TOV, "edtov", E_D_TOV_MIN, TIMER_MAX, 2000u)                                                    \
    X(8, ATTRIBUTE_R_A_TOV, "ratov", TIMER_MIN, TIMER_MAX, 10000u)                                                     \
    X(9, ATTRIBUTE_D_S_TOV, "dstov", TIMER_MIN, TIMER_MAX, 5000u)                                                      \
    X(10, ATTRIBUTE_F_S_TOV, "fstov", TIMER_MIN, TIMER_MAX, 5000u)

/* Latencies of the whole switch: key, name, word of files and commands, word of the tool,
 * initial value in milliseconds. */
#define SWITCH_LATENCIES(X)                                                                                            \
    X(17, ATTRIBUTE_SWITCH_LATENCY, "switchLatency", "switch-latency", 500u)                                           \
    X(18, ATTRIBUTE_NETWORK_LATENCY, "networkLatency", "network-latency", 2000u)

#define ATTRIBUTE_TIMER(key, name, word, least, greatest, initial) name = key,
#define ATTRIBUTE_LATENCY(key, name, word, tool_word, initial) name = key,
enum attribute_key {
    ATTRIBUTE_ADMIN_STATE = 1,
    ATTRIBUTE_OPER_STATE = 19,
    FABRIC_TIMERS(ATTRIBUTE_TIMER) SWITCH_LATENCIES(ATTRIBUTE_LATENCY)
};
#undef ATTRIBUTE_TIMER
#undef ATTRIBUTE_LATENCY

/* Administrative states that a VSAN can be given. */
#define ADMIN_STATES(X)                                                                                                \
    X(1, ADMIN_STATE_ACTIVE, "active")                                                                                 \
    X(2, ADMIN_STATE_SUSPENDED, "suspended")

/* Operational states; links have the same words. */
#define OPER_STATES(X)                                                                                                 \
    X(1, OPER_STATE_UP, "up")                                                                                          \
    X(2, OPER_STATE_DOWN, "down")

/* What chooses a frame's path. */
#define LOAD_BALANCINGS(X)                                                                                             \
    X(1, LOAD_BALANCING_ADDRESSES, "srcIdDestId")                                                                      \
    X(2, LOAD_BALANCING_EXCHANGES, "srcIdDestIdOxId")

#define ATTRIBUTE_VALUE(number, name, word) name = number,
enum vsan_admin_state {
    ADMIN_STATE_GONE = 3, /* in events only: the VSAN is not configured */
    ADMIN_STATES(ATTRIBUTE_VALUE)
};
enum vsan_oper_state { OPER_STATES(ATTRIBUTE_VALUE) };
enum vsan_load_balancing { LOAD_BALANCINGS(ATTRIBUTE_VALUE) };
#undef ATTRIBUTE_VALUE

enum vsan_media { MEDIA_FIBRE_CHANNEL = 1 };

/* TruthValue and RowStatus of the SNMP conventions, as far as records carry them. */
enum snmp_truth { TRUTH_TRUE = 1, TRUTH_FALSE = 2 };
enum snmp_row_status { ROW_STATUS_ACTIVE = 1, ROW_STATUS_CREATE_AND_GO = 4 };

#endif
