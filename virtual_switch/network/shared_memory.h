// SPDX-License-Identifier: Apache-2.0
// The switch's side of the memory that it shares with a requester, see mts/mts_shared.h,
// and how long the switch watches such memories before it sleeps.
#ifndef VSWITCH_SHARED_MEMORY_H
#define VSWITCH_SHARED_MEMORY_H

#include <chrono>
#include <cstdint>
#include <memory>

#include "model/bytes.h"
#include "mts/mts_shared.h"

namespace vswitch {

class SharedMemory {
  public:
    static constexpr size_t max_frame = MTS_SHARED_MAX_FRAME;

    // Memory of an unchangeable size, sent over a Unix stream socket beside the bytes of
    // `frame`. Null, with nothing sent, when the system has none or the socket is full.
    static std::unique_ptr<SharedMemory> send(int socket, Bytes frame, uint32_t generation);

    ~SharedMemory();
    SharedMemory(const SharedMemory &) = delete;
    SharedMemory &operator=(const SharedMemory &) = delete;

    // Whether a request waits to be taken.
    bool is_posted() const { return shared_.state.load(std::memory_order_seq_cst) == MTS_SHARED_POSTED; }

    // Copies the request that waits, at most max_frame bytes, into `request`. False when
    // there is none. It must be followed by one of the answers.
    bool take(Buffer &request);

    // Hands over the answer to the request that was taken, of at most max_frame bytes.
    // Returns whether the requester sleeps and has to be woken; so does the next one.
    bool answer(Bytes frame);

    // Says that the answer, if there is one, comes over the socket.
    bool answer_elsewhere();

    // Says whether the switch sleeps. It must look for a request once more after it has
    // said so.
    void announce_sleep(bool sleeping) { shared_.switch_sleeps.store(sleeping, std::memory_order_seq_cst); }

    void publish_generation(uint32_t generation) { shared_.generation.store(generation, std::memory_order_release); }

  private:
    explicit SharedMemory(mts_shared_memory &shared) : shared_(shared) {}

    bool finish(mts_shared_state state);

    mts_shared_memory &shared_;
};

// Requests come in bursts: while they do, the switch watches for the next one, because
// waking up takes longer than serving it. How long depends on how far apart those of the
// latest bursts were; where there are none, a short watch after each still catches the
// start of one. A switch that nobody asks sleeps.
class SpinWait {
  public:
    using Clock = std::chrono::steady_clock;

    // Without a second processor, nobody could ask while the switch watches.
    explicit SpinWait(bool has_other_processors) : enabled_(has_other_processors) {}

    void note_request(Clock::time_point now);

    // Until when to watch for the next request; in the past when it is time to sleep.
    Clock::time_point end() const { return end_; }

    // Waits until `ready()` or the time. Not inlined, so that a profile tells waiting from
    // working.
    template <typename Ready> [[gnu::noinline]] static bool until(Ready ready, Clock::time_point time) {
        return mts_shared_watch(ready, [time] { return Clock::now() >= time; });
    }

  private:
    bool enabled_;
    Clock::time_point latest_{};
    Clock::time_point end_{};
    Clock::duration longest_recent_gap_{}; // within bursts
};

} // namespace vswitch

#endif
