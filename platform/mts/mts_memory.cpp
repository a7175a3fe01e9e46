// SPDX-License-Identifier: Apache-2.0
#include "mts_memory.h"

#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// How long to watch follows from how long the latest answers took: twice as long, at
// least the time in which a switch that watches answers, too. Where they take longer than
// the last of these it is better to sleep: waking up takes some 50 microseconds.
constexpr mts_time SHORTEST_SPIN = 4000;
constexpr mts_time LONGEST_TIME = 250000;

// Most answers come before this many looks at the memory, for which the clock is not
// asked.
constexpr int FIRST_LOOKS = 64;

// With one processor the switch cannot do anything while this process watches.
bool can_watch(void) {
    static long processors;
    if (processors == 0) {
        processors = sysconf(_SC_NPROCESSORS_ONLN);
    }
    return processors > 1;
}

bool is_end(uint32_t state) {
    return state == MTS_SHARED_ANSWERED || state == MTS_SHARED_ELSEWHERE;
}

bool has_met_other_version;

// Tells the switch which layout this side knows. Returns whether it is the switch's.
bool agree_on_version(mts_shared_memory &shared) {
    const uint32_t version = *const_cast<const volatile uint32_t *>(&shared.version);
    shared.requester_version.store(MTS_SHARED_VERSION, std::memory_order_relaxed);
    return version == MTS_SHARED_VERSION;
}

// Wait without sleeping. Functions of their own, so that profiles tell waiting from working.
[[gnu::noinline]] bool mts_spin_until_first_looks(const mts_memory &memory) {
    return mts_shared_look([&] { return mts_memory_is_done(memory); }, FIRST_LOOKS);
}

[[gnu::noinline]] bool mts_spin_until(const mts_memory &memory, mts_time end) {
    return mts_shared_watch([&] { return mts_memory_is_done(memory); }, [&] { return mts_now() >= end; });
}

mts_time spin_after(mts_time usual_time) {
    const mts_time spin = usual_time > LONGEST_TIME ? 0 : 2 * usual_time;
    return spin < SHORTEST_SPIN ? SHORTEST_SPIN : spin;
}

} // namespace

bool mts_memory_map(mts_memory &memory, int fd) {
    static uint32_t count;
    struct stat status = {};
    void *mapped = MAP_FAILED;
    // A file that could shrink would turn reading it into a fatal signal.
    const int seals = fcntl(fd, F_GET_SEALS);
    const bool is_memory = seals != -1 && (seals & F_SEAL_SHRINK) != 0 && fstat(fd, &status) == 0;
    const bool has_right_size = status.st_size == static_cast<off_t>(sizeof *memory.shared);
    if (is_memory && has_right_size) {
        mapped = mmap(nullptr, sizeof *memory.shared, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    }
    close(fd);
    has_met_other_version |= is_memory && !has_right_size;
    if (mapped == MAP_FAILED) {
        return false;
    }
    memory = {static_cast<mts_shared_memory *>(mapped), ++count, 0, 0};
    if (!agree_on_version(*memory.shared)) {
        has_met_other_version = true;
        mts_memory_unmap(memory);
        return false;
    }
    return true;
}

bool mts_memory_has_met_other_version(void) {
    return has_met_other_version;
}

void mts_memory_unmap(mts_memory &memory) {
    if (memory.shared != nullptr) {
        munmap(memory.shared, sizeof *memory.shared);
        memory = {};
    }
}

bool mts_memory_post(mts_memory &memory, const struct iovec *parts, size_t count) {
    static uint8_t frame[MTS_SHARED_MAX_FRAME]; // too large for the agent's stack
    mts_shared_memory &shared = *memory.shared;
    size_t length = 0;
    for (size_t i = 0; i < count; ++i) {
        if (parts[i].iov_len > 0) {
            memcpy(frame + length, parts[i].iov_base, parts[i].iov_len);
            length += parts[i].iov_len;
        }
    }
    shared.request_blanks = mts_shared_write(shared.request, frame, length);
    shared.request_length = static_cast<uint32_t>(length);
    shared.requester_sleeps.store(0, std::memory_order_relaxed);
    shared.state.store(MTS_SHARED_POSTED, std::memory_order_seq_cst);
    return shared.switch_sleeps.load(std::memory_order_seq_cst) != 0;
}

bool mts_memory_withdraw(mts_memory &memory) {
    uint32_t expected = MTS_SHARED_POSTED;
    return memory.shared->state.compare_exchange_strong(expected, MTS_SHARED_IDLE);
}

bool mts_memory_is_done(const mts_memory &memory) {
    return is_end(memory.shared->state.load(std::memory_order_acquire));
}

bool mts_memory_watch(mts_memory &memory) {
    if (!can_watch()) {
        return mts_memory_is_done(memory);
    }
    memory.watch_start = 0;
    if (mts_spin_until_first_looks(memory)) {
        return true;
    }
    memory.watch_start = mts_now();
    return mts_spin_until(memory, memory.watch_start + spin_after(memory.usual_time));
}

void mts_memory_note_answer(mts_memory &memory) {
    const mts_time time = memory.watch_start == 0 ? 0 : mts_now() - memory.watch_start;
    const mts_time counted = time > 2 * LONGEST_TIME ? 2 * LONGEST_TIME : time;
    memory.usual_time += (counted - memory.usual_time) / 8;
}

bool mts_memory_fall_asleep(mts_memory &memory) {
    memory.shared->requester_sleeps.store(1, std::memory_order_seq_cst);
    return !is_end(memory.shared->state.load(std::memory_order_seq_cst));
}

bool mts_memory_holds_answer(const mts_memory &memory) {
    return memory.shared->state.load(std::memory_order_acquire) == MTS_SHARED_ANSWERED;
}

size_t mts_memory_copy_answer(const mts_memory &memory, uint8_t (&answer)[MTS_SHARED_MAX_FRAME]) {
    const uint32_t length = *const_cast<const volatile uint32_t *>(&memory.shared->reply_length);
    if (length > sizeof answer) {
        return 0;
    }
    mts_shared_read(answer, length, memory.shared->reply, memory.shared->reply_blanks);
    return length;
}

uint64_t mts_memory_generation(const mts_memory &memory) {
    if (memory.shared == nullptr) {
        return 0;
    }
    const uint32_t generation = memory.shared->generation.load(std::memory_order_acquire);
    return generation == 0 ? 0 : static_cast<uint64_t>(memory.number) << 32 | generation;
}
