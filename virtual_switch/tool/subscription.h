// SPDX-License-Identifier: Apache-2.0
// The switch's events as the tool waits for them, and a switch that is away as it waits for that.
#ifndef VSWITCHCTL_SUBSCRIPTION_H
#define VSWITCHCTL_SUBSCRIPTION_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "mts.h"

namespace vswitchctl {

// When a wait ends; nothing for one without an end.
using Deadline = std::optional<std::chrono::steady_clock::time_point>;

// The deadline after so much time, which may be more than a clock can count.
Deadline deadline_after(std::chrono::milliseconds time);

// Milliseconds that are left until then, as poll(2) takes them: 0 to INT_MAX, -1 without an end.
int milliseconds_until(const Deadline &deadline);

// The subscription of this process; there is one at a time.
class Subscription {
  public:
    // `classes` are event classes; while the subscription waits, it also ends for `wake_descriptor` when
    // that becomes readable, which stays the caller's; -1 for none.
    explicit Subscription(std::vector<uint32_t> classes, int wake_descriptor = -1)
        : classes_(std::move(classes)), wake_descriptor_(wake_descriptor) {}
    ~Subscription();
    Subscription(const Subscription &) = delete;
    Subscription &operator=(const Subscription &) = delete;

    // Subscribes, and waits for the switch's word that from now on no event is missed. False when the
    // caller was woken. Throws Away when the switch is away or does not answer until then, and
    // Unreachable when it cannot be talked to.
    bool open(const Deadline &deadline);

    // The next event, valid until the next call; null at the deadline, or when the caller was woken.
    // Throws Away when the switch goes away.
    const mts_message *next(const Deadline &deadline);

  private:
    enum class Ready { events, nothing, woken };
    Ready wait(const Deadline &deadline) const;

    std::vector<uint32_t> classes_;
    int wake_descriptor_;
    int descriptor_ = -1; // the message service's
};

// The pauses between attempts to reach a switch that is away. They grow from 50 ms to a second,
// and end early when something new stands in the run directory, as its socket does when it starts.
class Pauses {
  public:
    // As for Subscription.
    explicit Pauses(int wake_descriptor = -1);
    ~Pauses();
    Pauses(const Pauses &) = delete;
    Pauses &operator=(const Pauses &) = delete;

    // Waits for one of them, at most until the deadline. False when the caller was woken.
    bool wait(const Deadline &deadline);

    // The switch was reached: the next pause is a short one.
    void begin_again();

  private:
    bool look_at_directory();

    int wake_descriptor_;
    int directory_ = -1; // an inotify descriptor; -1 where there is none to be had
    std::chrono::milliseconds pause_;
};

} // namespace vswitchctl

#endif
