// SPDX-License-Identifier: Apache-2.0
// The switch's events as they are published, beginning with the state that they change.
#ifndef VSWITCHCTL_WATCH_H
#define VSWITCHCTL_WATCH_H

#include <cstdint>
#include <optional>

namespace vswitchctl {

struct WatchWish {
    bool as_json = false;          // one object a line, else words
    bool events_only = false;      // without the present state
    std::optional<uint32_t> count; // so many events; without it until SIGINT or SIGTERM
};

// Prints the present state and each event from then on; what happens while the state is read comes
// behind it, so that nothing is lost. A switch that goes away is waited for: standard error says so,
// and the state is printed again. Throws Refusal when the switch is not there at the beginning, or
// refuses.
void watch(const WatchWish &wish);

} // namespace vswitchctl

#endif
