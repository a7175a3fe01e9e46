// SPDX-License-Identifier: Apache-2.0
// How often this process has asked the switch for what; the layout is that of
// contract/request_counters.h.
//
// Every process counts in memory of its own. One that wants it to be seen, as an agent
// does, has the counters in a file from its next connection to the switch on. A fork
// goes on from its parent's numbers, in a file of its own.
#ifndef MTS_COUNTERS_H
#define MTS_COUNTERS_H

#include <cstdint>

#include "contract/request_counters.h"

#ifdef __cplusplus
extern "C" {
#endif

// Has this process's requests counted where others can read them, in a file of this name
// and the process's id; of the name only letters, digits, - and _ are used. `name` stays
// the caller's, and valid. The file goes when the library is unloaded.
void mts_count_requests(const char *name);

#ifdef __cplusplus
}
#endif

#pragma GCC visibility push(hidden)

// The row that was counted in last. Never null.
extern request_counter *mts_counters_latest;

// The row of a request. Which one that is may change with each connection.
request_counter *mts_counters_find(uint32_t service, uint32_t opcode, uint32_t kind);

// Sees to the file, when a connection is made: makes it where it is wanted and missing.
void mts_counters_see_to_file(void);

#pragma GCC visibility pop

// Only this thread writes; who reads the file meanwhile sees whole numbers.
inline void mts_count(uint64_t &counter) {
    __atomic_store_n(&counter, counter + 1, __ATOMIC_RELAXED);
}

// Counts a request that is being made. The row is mostly that of the one before.
inline void mts_count_asked(uint32_t service, uint32_t opcode, uint32_t kind) {
    request_counter *row = mts_counters_latest;
    if (row->opcode != opcode || row->kind != kind || row->service != service) [[unlikely]] {
        row = mts_counters_find(service, opcode, kind);
    }
    mts_count(row->asked);
}

#endif
