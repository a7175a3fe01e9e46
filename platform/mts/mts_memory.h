// SPDX-License-Identifier: Apache-2.0
// The requester's side of the memory shared with the switch, see mts_shared.h.
#ifndef MTS_MEMORY_H
#define MTS_MEMORY_H

#include <cstddef>
#include <cstdint>
#include <sys/uio.h>

#include "mts_shared.h"
#include "mts_stream.h"

// All zero is none.
struct mts_memory {
    mts_shared_memory *shared;
    uint32_t number;      // counts the memories of this process, to tell their generations apart
    mts_time watch_start; // of the present request; 0 when it was answered without watching long
    mts_time usual_time;  // how long the latest answers took, with the latest counting most
};

#pragma GCC visibility push(hidden)

// Maps what came with a SHARED frame, and closes the descriptor. False, with nothing
// mapped, when that is no memory, or one of another version, which is remembered.
bool mts_memory_map(mts_memory &memory, int fd);

// Whether memory of another version has come since the library was loaded.
bool mts_memory_has_met_other_version(void);

void mts_memory_unmap(mts_memory &memory);

// Puts a request of `count` parts, MTS_SHARED_MAX_FRAME bytes at most, where the switch
// sees it. Returns whether the switch sleeps and has to be woken.
bool mts_memory_post(mts_memory &memory, const struct iovec *parts, size_t count);

// Takes the posted request back. False when the switch has got it.
bool mts_memory_withdraw(mts_memory &memory);

// Whether the switch is done with the request.
bool mts_memory_is_done(const mts_memory &memory);

// Watches the memory for a short while. Returns whether the switch is done with the
// request.
bool mts_memory_watch(mts_memory &memory);

// The switch is done with the request: how long that took decides how long the next
// watch is.
void mts_memory_note_answer(mts_memory &memory);

// Announces that the requester goes to sleep; the switch may knock from now on. False, and
// it must not, when the switch is done with the request.
bool mts_memory_fall_asleep(mts_memory &memory);

// Whether the answer to a request that the switch is done with is in the memory, and does
// not come over the socket.
bool mts_memory_holds_answer(const mts_memory &memory);

// Copies that answer, which should be a frame. Returns the number of its bytes.
size_t mts_memory_copy_answer(const mts_memory &memory, uint8_t (&answer)[MTS_SHARED_MAX_FRAME]);

// The present generation; 0 when nothing may be kept.
uint64_t mts_memory_generation(const mts_memory &memory);

#pragma GCC visibility pop

#endif
