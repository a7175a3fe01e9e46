// SPDX-License-Identifier: Apache-2.0
// When a program that has ended is started again, and when that is given up.
#ifndef SUPERVISOR_RESTART_POLICY_H
#define SUPERVISOR_RESTART_POLICY_H

#include <chrono>
#include <deque>
#include <optional>

namespace supervisor {

// One program's. It knows no clock: who asks hands the times in, which never go back.
class RestartPolicy {
  public:
    using Time = std::chrono::steady_clock::time_point;

    // From one start to the next at least, and how many starts again there may be within how long.
    static constexpr std::chrono::seconds spacing{1};
    static constexpr size_t most_restarts = 10;
    static constexpr std::chrono::seconds period{60};

    // The program is started. Every start but the first counts as one again.
    void started(Time now);

    // The program has ended, or could not be started, and is to stay away for `away` at least. When it is
    // to be started again, `now` or later; nothing when it has been too often.
    std::optional<Time> next_start(Time now, std::chrono::seconds away);

  private:
    std::optional<Time> last_start_;
    std::deque<Time> restarts_; // of the last period, the oldest first
};

} // namespace supervisor

#endif
