// SPDX-License-Identifier: Apache-2.0
#include "supervisor/restart_policy.h"

#include <algorithm>

namespace supervisor {

void RestartPolicy::started(Time now) {
    if (last_start_) {
        restarts_.push_back(now);
    }
    last_start_ = now;
}

std::optional<RestartPolicy::Time> RestartPolicy::next_start(Time now, std::chrono::seconds away) {
    while (!restarts_.empty() && restarts_.front() + period <= now) {
        restarts_.pop_front();
    }
    if (restarts_.size() >= most_restarts) {
        return std::nullopt;
    }
    return std::max(now + away, last_start_ ? *last_start_ + spacing : now);
}

} // namespace supervisor
