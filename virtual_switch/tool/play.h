// SPDX-License-Identifier: Apache-2.0
// Plays a scenario on the running switch.
#ifndef VSWITCHCTL_PLAY_H
#define VSWITCHCTL_PLAY_H

#include <cstdint>
#include <optional>
#include <string>

namespace vswitchctl {

struct PlayOptions {
    std::string file;             // "-" for standard input
    bool check = false;           // reads it, and does nothing
    bool atomic = false;          // as one transaction
    bool quiet = false;           // prints nothing of what goes well
    std::optional<uint64_t> seed; // instead of the scenario's own
};

// Reads the whole file, then plays it and prints what it does. Throws UsageError where it is no scenario, Refusal when
// the switch refuses something or is not what is expected; both name the line. SIGINT and SIGTERM end the
// process at once, and it says at which line.
void play(const PlayOptions &options);

} // namespace vswitchctl

#endif
