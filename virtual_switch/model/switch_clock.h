// SPDX-License-Identifier: Apache-2.0
// What time it is for the switch.
//
// The switch takes the machine's time of day once, when it starts, and counts on from there by
// a clock that nobody sets. So its time never goes back while it runs, and the distance
// between two times is what has passed: the agent, which knows when it started itself,
// makes an uptime of them. A clock that is set meanwhile is followed at the next start.
#ifndef VSWITCH_SWITCH_CLOCK_H
#define VSWITCH_SWITCH_CLOCK_H

#include <chrono>
#include <compare>
#include <cstdint>

namespace vswitch {

// A time since 1970 in UTC.
struct Timestamp {
    uint64_t seconds = 0;
    uint32_t microseconds = 0; // less than a million

    auto operator<=>(const Timestamp &) const = default;
};

// What the machine says that it is now.
Timestamp time_of_day();

class SwitchClock {
  public:
    explicit SwitchClock(Timestamp start = time_of_day())
        : start_(start), counted_from_(std::chrono::steady_clock::now()) {}

    Timestamp start() const { return start_; }
    Timestamp now() const;

    // A time that was noted earlier, as it may be told: one that is still to come was noted
    // in a former run, by a clock that has been set back since, and becomes the start.
    Timestamp told(Timestamp noted) const { return noted <= now() ? noted : start_; }

  private:
    Timestamp start_;
    std::chrono::steady_clock::time_point counted_from_;
};

} // namespace vswitch

#endif
