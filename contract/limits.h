/* SPDX-License-Identifier: Apache-2.0 */
/*
 * What numbers and names may be: least and greatest values, both included. Plain decimal
 * numbers: the MIB's text takes them from here.
 */
#ifndef CONTRACT_LIMITS_H
#define CONTRACT_LIMITS_H

#include <stdint.h>

#define VSAN_NUMBER_MIN 1u
#define VSAN_NUMBER_MAX 4095u

/* The VSAN that always exists; ports without another one are in it. */
#define VSAN_NUMBER_DEFAULT 1u

/* Of a VSAN's name, in bytes; they are printable and no blanks. */
#define VSAN_NAME_MAX 32u

/* Of the greatest frame, in bytes. */
#define VSAN_MTU_MIN 1u
#define VSAN_MTU_MAX 65535u

/* The interoperability modes, and the value that stands for none. */
#define VSAN_INTEROP_MIN 1u
#define VSAN_INTEROP_MAX 4u
#define VSAN_INTEROP_NONE 100u

/* Latencies, in milliseconds: the two of the whole switch, and a VSAN's network drop
 * latency. */
#define LATENCY_MIN 0u
#define LATENCY_MAX 60000u
#define VSAN_DROP_LATENCY_MIN 1u
#define VSAN_DROP_LATENCY_MAX 60000u

/* Fabric timers, in milliseconds. E_D_TOV may be shorter than the others. */
#define TIMER_MIN 5000u
#define TIMER_MAX 100000u
#define E_D_TOV_MIN 1000u

/* So many commands of an operator can be one change. */
#define TRANSACTION_COMMANDS_MAX 10000u

/* More ranges of interfaces than any role needs. */
#define ROLE_MAX_RANGES 4096u

#endif
