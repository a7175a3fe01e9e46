// SPDX-License-Identifier: Apache-2.0
// The agent's event history, from its files in the run directory: nobody has to run for it.
#ifndef VSWITCHCTL_HISTORY_H
#define VSWITCHCTL_HISTORY_H

#include <cstdint>
#include <optional>
#include <string>

#include "tool/client.h"

namespace vswitchctl {

// What is wanted of the history.
struct HistoryQuestion {
    std::string name; // the process; empty for all that have left a history
    std::optional<uint32_t> event_class;
    uint32_t last = 0; // so many of the latest records of each process; 0 for all
};

// {"histories": [{"name": ..., "records": [...]}, ...]} with the records oldest first. Throws
// Refusal.
Json read_histories(const HistoryQuestion &question);

} // namespace vswitchctl

#endif
