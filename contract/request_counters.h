/* SPDX-License-Identifier: Apache-2.0 */
/*
 * How often an agent has asked the switch for what: a file in the run directory for each
 * process that counts, named
 *
 *   REQUEST_COUNTERS_PREFIX, the process's name without dots, a dot, the process id
 *
 * The process has the file in its memory and counts there, without a system call. It holds an
 * exclusive flock(2) on the file from before the file has that name; where somebody else gets a
 * lock, the process has gone, and the next one to count removes the file.
 *
 * Words are in the order of the machine, counters 8 bytes also where words are smaller:
 *
 *   byte  0  magic      REQUEST_COUNTERS_MAGIC
 *         4  version    REQUEST_COUNTERS_VERSION
 *         8  instance   8 bytes, another number for each process and each load of its library
 *        16  rows       REQUEST_COUNTERS_ROWS rows of 40 bytes, in no order
 *      2576  one more   what found no room in those; its service, opcode and kind are 0
 *
 * A row:
 *
 *   byte  0  service, opcode and kind, see services.h
 *        12  1 when the row counts something, else 0
 *        16  asked       requests that were made
 *        24  refused     of those, answered with another status than success, which is
 *                        also how the end of a table is told
 *        32  unanswered  of those, not answered: in time, or at all
 *
 * Requests to MTS_SERVICE_SWITCH are not counted, as the switch does not count them. Counters
 * only grow, and begin anew with the process.
 */
#ifndef CONTRACT_REQUEST_COUNTERS_H
#define CONTRACT_REQUEST_COUNTERS_H

#include <stddef.h>
#include <stdint.h>

#define REQUEST_COUNTERS_PREFIX "requests."
#define REQUEST_COUNTERS_MAGIC 0x52515354u
#define REQUEST_COUNTERS_VERSION 1u
#define REQUEST_COUNTERS_ROWS 64u

struct request_counter {
    uint32_t service;
    uint32_t opcode;
    uint32_t kind;
    uint32_t is_used;
    uint64_t asked;
    uint64_t refused;
    uint64_t unanswered;
};

struct request_counters {
    uint32_t magic;
    uint32_t version;
    uint64_t instance;
    struct request_counter rows[REQUEST_COUNTERS_ROWS + 1];
};

#ifdef __cplusplus
static_assert(sizeof(request_counter) == 40);
static_assert(offsetof(request_counters, rows) == 16);
static_assert(sizeof(request_counters) == 16 + 65 * 40);
#endif

#endif
