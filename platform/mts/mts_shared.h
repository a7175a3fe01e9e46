// SPDX-License-Identifier: Apache-2.0
// The memory that a requester and the switch may share: a second way for requests
// and replies beside the socket, because a process that sleeps on a socket takes far
// longer to wake up than a request takes to be served. Either side watches the
// memory for a short while before it goes to sleep.
//
// The switch makes it, one for each connection that asks with a SHARE frame, and
// sends its descriptor with the SHARED frame. It cannot change its size any more.
// Both sides may run on different word sizes; every word is 32 bits, in the order of
// the machine. The frames in it are those of contract/frames.h, byte for byte.
//
// Both sides may be of different builds, too, so that each says first which layout it
// knows, and neither believes anything else before it has read the other's version. Where
// they differ, requests go over the socket.
//
// One request at a time:
//
//   idle     -> posted    requester: a REQUEST frame is in `request`
//   posted   -> idle      requester: takes it back unserved (too late, or nobody there)
//   posted   -> taken     switch: nobody but it acts on the request from now on
//   taken    -> answered  switch: the REPLY frame is in `reply`
//   taken    -> elsewhere switch: the answer, if there is one, comes over the socket
//   answered,
//   elsewhere -> posted   requester: the next request
//
// Whoever goes to sleep says so first and then looks once more; whoever changes the
// state looks afterwards whether the other side sleeps, and wakes it with a KNOCK
// frame over the socket. These four steps are sequentially consistent, so that no
// wake-up is lost. A KNOCK too many does no harm. One that says that the answer is
// elsewhere comes in front of that answer.
//
// What the other side has written is not trusted: lengths are bounded and bytes are
// copied before they are looked at.
#ifndef MTS_SHARED_H
#define MTS_SHARED_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <sched.h>

#include <atomic>

enum mts_shared_state : uint32_t {
    MTS_SHARED_IDLE = 0,
    MTS_SHARED_POSTED = 1,
    MTS_SHARED_TAKEN = 2,
    MTS_SHARED_ANSWERED = 3,
    MTS_SHARED_ELSEWHERE = 4
};

// Grows with each change of this layout, and of what its words mean.
#define MTS_SHARED_VERSION 1u

// The longest frame that goes through the memory; longer ones take the socket.
#define MTS_SHARED_MAX_FRAME 4032u

// Most of what is sent is zero, and a line of the processors' caches that goes from one
// to the other costs more than serving the request does. So lines of zeros stay where
// they are: bit i % 32 of word i / 32 says that line i of a frame is all zero, whatever
// stands there.
#define MTS_SHARED_LINE 64u
struct mts_shared_blanks {
    uint32_t words[2];
};

struct mts_shared_memory {
    alignas(64) uint32_t version = MTS_SHARED_VERSION; // the switch's
    std::atomic<uint32_t> requester_version;           // the requester's, before its first request

    // Grows whenever roles or settings that libraries of the agent keep have changed,
    // before the change is answered. 0: nothing may be kept.
    std::atomic<uint32_t> generation;

    alignas(64) std::atomic<uint32_t> state;
    std::atomic<uint32_t> requester_sleeps; // 1 while it does, else 0
    uint32_t request_length;                // bytes in `request`
    uint32_t reply_length;                  // bytes in `reply`
    mts_shared_blanks request_blanks;
    mts_shared_blanks reply_blanks;

    alignas(64) std::atomic<uint32_t> switch_sleeps; // 1 while it does, else 0

    alignas(64) uint8_t request[MTS_SHARED_MAX_FRAME];
    alignas(64) uint8_t reply[MTS_SHARED_MAX_FRAME];
};

static_assert(std::atomic<uint32_t>::is_always_lock_free && sizeof(std::atomic<uint32_t>) == 4);
static_assert(sizeof(mts_shared_memory) == 3 * 64 + 2 * 4032);
static_assert(offsetof(mts_shared_memory, version) == 0);
static_assert(MTS_SHARED_MAX_FRAME <= 8 * sizeof(mts_shared_blanks) * MTS_SHARED_LINE);

// What whoever watches the memory does between two looks.
inline void mts_shared_relax() {
#if defined(__i386__) || defined(__x86_64__)
    __builtin_ia32_pause();
#else
    std::atomic_signal_fence(std::memory_order_seq_cst);
#endif
}

// Looks so many times at most whether the other side has done something. Inlined, as is the
// next one, so that a profile shows the waiting in the function that waits.
template <typename Ready> [[gnu::always_inline]] inline bool mts_shared_look(Ready is_ready, int times) {
    for (int i = 0; i < times; ++i) {
        if (is_ready()) {
            return true;
        }
        mts_shared_relax();
    }
    return false;
}

// Looks for that until it is time to do something else.
template <typename Ready, typename Late>
[[gnu::always_inline]] inline bool mts_shared_watch(Ready is_ready, Late is_late) {
    do {
        if (mts_shared_look(is_ready, 16)) {
            return true;
        }
        // Others may want this processor, the other side among them.
        sched_yield();
    } while (!is_late());
    return is_ready();
}

// Whether some whole lines are all zero.
template <size_t lines> inline bool mts_shared_is_blank(const uint8_t *from) {
    typedef uint64_t part __attribute__((vector_size(16), aligned(1), may_alias));
    const part *parts = reinterpret_cast<const part *>(from);
    part any = parts[0];
    for (size_t i = 1; i < lines * MTS_SHARED_LINE / sizeof(part); ++i) {
        any |= parts[i];
    }
    return (any[0] | any[1]) == 0;
}

// Puts a frame of at most MTS_SHARED_MAX_FRAME bytes into the `request` or `reply` of the
// memory. Returns which of its lines were left out; a last line that is not full is not.
inline mts_shared_blanks mts_shared_write(uint8_t *to, const uint8_t *frame, size_t length) {
    constexpr size_t several = 4; // mostly there are many lines of zeros in a row
    const size_t lines = length / MTS_SHARED_LINE;
    uint64_t blank = 0;
    for (size_t line = 0; line < lines;) {
        const uint8_t *from = frame + line * MTS_SHARED_LINE;
        if (lines - line >= several && mts_shared_is_blank<several>(from)) {
            blank |= ((uint64_t{1} << several) - 1) << line;
            line += several;
            continue;
        }
        if (mts_shared_is_blank<1>(from)) {
            blank |= uint64_t{1} << line;
        } else {
            memcpy(to + line * MTS_SHARED_LINE, from, MTS_SHARED_LINE);
        }
        ++line;
    }
    if (length % MTS_SHARED_LINE != 0) { // an empty frame may have no address
        memcpy(to + lines * MTS_SHARED_LINE, frame + lines * MTS_SHARED_LINE, length % MTS_SHARED_LINE);
    }
    return {{static_cast<uint32_t>(blank), static_cast<uint32_t>(blank >> 32)}};
}

// Copies a frame of at most MTS_SHARED_MAX_FRAME bytes out of the memory.
inline void mts_shared_read(uint8_t *frame, size_t length, const uint8_t *from, mts_shared_blanks blanks) {
    if (length == 0) {
        return; // an empty frame may have no address
    }
    const size_t lines = length / MTS_SHARED_LINE;
    memset(frame, 0, lines * MTS_SHARED_LINE);
    for (size_t half = 0; half * 32 < lines; ++half) {
        const uint32_t inside = lines - half * 32 < 32 ? (1u << (lines - half * 32)) - 1 : UINT32_MAX;
        for (uint32_t left = ~blanks.words[half] & inside; left != 0; left &= left - 1) {
            const size_t at = (half * 32 + static_cast<size_t>(__builtin_ctz(left))) * MTS_SHARED_LINE;
            memcpy(frame + at, from + at, MTS_SHARED_LINE);
        }
    }
    memcpy(frame + lines * MTS_SHARED_LINE, from + lines * MTS_SHARED_LINE, length % MTS_SHARED_LINE);
}

#endif
