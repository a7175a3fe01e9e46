// SPDX-License-Identifier: Apache-2.0
// A switch that serves requests: what an answer may depend on beside the switch itself. It lives
// in memory only.
#ifndef VSWITCH_SERVED_SWITCH_H
#define VSWITCH_SERVED_SWITCH_H

#include <chrono>
#include <compare>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <unistd.h>

#include "changes/switch.h"
#include "services/client_faults.h"
#include "services/faults.h"
#include "services/parcels.h"

namespace vswitch {

// What the daemon has served since it started.
struct Counters {
    struct Key {
        uint32_t service, opcode, kind;
        auto operator<=>(const Key &) const = default;
    };
    std::map<Key, uint64_t> requests;
    std::map<Key, uint64_t> requests_at_reset; // what the operator no longer wants to see of these
    std::string note_at_reset;                 // what the operator's tool had kept then
    uint64_t connections = 0;                  // open now
    uint64_t dropped_connections = 0;          // closed by the daemon because of what they sent or did not
                                               // read, or for want of room
    uint64_t refused_connections = 0;          // of processes that may not connect
    uint64_t subscriptions = 0;                // event classes subscribed to, over all open connections
};

// A transaction may keep the switch from everything else for so long. Checked memory and arithmetic take
// many times as long as what they check.
#ifdef __SANITIZE_ADDRESS__
inline constexpr std::chrono::seconds longest_transaction{60};
#else
inline constexpr std::chrono::seconds longest_transaction{2};
#endif

struct ServedSwitch : Switch {
    using Switch::Switch;

    Counters counters;
    Faults faults;
    ClientFaults client_faults;
    std::chrono::milliseconds transaction_time = longest_transaction; // of the processor
    Parcels parcels;
    std::string run_directory; // where the agent leaves its files; empty: nowhere

    // Ends the process at once, as a crash would, and does not return. Who starts it again should wait for so
    // many seconds.
    std::function<void(uint32_t)> crash = [](uint32_t) { _exit(fault_exit_status); };
};

} // namespace vswitch

#endif
