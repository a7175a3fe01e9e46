/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The switch's run directory: where it is, and what the switch, the agent and the
 * operator's tool find there.
 */
#ifndef CONTRACT_RUN_DIRECTORY_H
#define CONTRACT_RUN_DIRECTORY_H

/* This variable of the environment names it; without it, or where it is empty, it is the
 * default. */
#define RUN_DIRECTORY_VARIABLE "VSWITCH_RUN_DIR"
#define RUN_DIRECTORY_DEFAULT "/run/vswitch"

/* The switch's socket, see frames.h. */
#define MTS_SOCKET_NAME "mts.sock"

/* Which event classes the agent records and prints, see platform/sdwrap/debug_filters.h.
 * The agent reads no longer file. */
#define DEBUG_FILTER_FILE "debug.conf"
#define DEBUG_FILTER_FILE_MAX 8192u

/* The agent's event history: text files, see platform/sdwrap/history_line.h. Behind the
 * prefix stands the name of the process, without dots, and behind that the suffix in the
 * name of the file that was full and has made room for another. */
#define HISTORY_FILE_PREFIX "history."
#define HISTORY_OLD_SUFFIX ".old"
#define HISTORY_FILE_MAX 131072u

/* The event classes of the VSAN module: number, name, word of the operator's tool. */
#define TRACE_CLASSES(X)                                                                                               \
    X(100, TRACE_CLASS_FAILURES, "failures")                                                                           \
    X(101, TRACE_CLASS_TRACE, "trace")

#define TRACE_CLASS_ENUMERATOR(number, name, word) name = number,
enum trace_class { TRACE_CLASSES(TRACE_CLASS_ENUMERATOR) };
#undef TRACE_CLASS_ENUMERATOR

#endif
