// SPDX-License-Identifier: Apache-2.0
// What the agents have asked the switch for, from their files in the run directory, and what the switch
// has answered.
#ifndef VSWITCHCTL_REQUEST_COUNTERS_H
#define VSWITCHCTL_REQUEST_COUNTERS_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <tuple>

#include "tool/client.h"

namespace vswitchctl {

// Service, opcode and kind.
using RequestKey = std::tuple<uint32_t, uint32_t, uint32_t>;

// What one process has counted under a key.
struct RequestCounts {
    uint64_t asked = 0;
    uint64_t refused = 0;
    uint64_t unanswered = 0;

    bool operator==(const RequestCounts &) const = default;
};

// A process's counters, see contract/request_counters.h.
struct AgentCounters {
    uint64_t instance = 0;
    std::map<RequestKey, RequestCounts> rows;

    bool operator==(const AgentCounters &) const = default;
};

// Decodes such a file. Nothing when it is none: its size, magic or version is another one, or a row is
// neither used nor unused.
std::optional<AgentCounters> decode_request_counters(std::span<const std::byte> bytes);

// What was counted since the last reset:
//
//   {"requests": [{"service": 15, "opcode": 149, "kind": 1, "asked": 7, "answered": 7, "refused": 0,
//                  "unanswered": 0}, ...],
//    "agents": [{"name": "snmpd", "pid": 4711}, ...]}
//
// with the rows in the order of their numbers; an agent whose file is of no use has "problem", too.
// With `reset` the next call begins at 0; nothing that was counted in between is lost, only told then.
// Throws Refusal.
Json read_request_counters(bool reset);

} // namespace vswitchctl

#endif
