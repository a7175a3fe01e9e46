// SPDX-License-Identifier: Apache-2.0
#include "model/switch_clock.h"

namespace vswitch {

namespace {

constexpr uint32_t second = 1000000; // microseconds

uint64_t microseconds_in(std::chrono::nanoseconds duration) {
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(duration).count());
}

} // namespace

Timestamp time_of_day() {
    const uint64_t now = microseconds_in(std::chrono::system_clock::now().time_since_epoch());
    return {now / second, static_cast<uint32_t>(now % second)};
}

Timestamp SwitchClock::now() const {
    const uint64_t passed = start_.microseconds + microseconds_in(std::chrono::steady_clock::now() - counted_from_);
    return {start_.seconds + passed / second, static_cast<uint32_t>(passed % second)};
}

} // namespace vswitch
