// SPDX-License-Identifier: Apache-2.0
#include "tool/subscription.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <iterator>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include "mts/mts_events.h"
#include "run_directory.h"
#include "tool/client.h"

namespace vswitchctl {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds shortest_pause(50);
constexpr milliseconds longest_pause(1000);

} // namespace

Deadline deadline_after(milliseconds time) {
    const auto now = steady_clock::now();
    const auto most = std::chrono::duration_cast<milliseconds>(steady_clock::time_point::max() - now);
    return time >= most ? Deadline() : Deadline(now + time);
}

int milliseconds_until(const Deadline &deadline) {
    if (!deadline) {
        return -1;
    }
    const auto left = std::chrono::ceil<milliseconds>(*deadline - steady_clock::now()).count();
    return static_cast<int>(std::clamp<decltype(left)>(left, 0, INT_MAX));
}

Subscription::~Subscription() {
    mts_events_close();
}

Subscription::Ready Subscription::wait(const Deadline &deadline) const {
    for (;;) {
        pollfd states[] = {{wake_descriptor_, POLLIN, 0}, {descriptor_, POLLIN, 0}};
        const int left = milliseconds_until(deadline);
        const int ready = poll(states, std::size(states), left);
        if (ready < 0 && errno != EINTR) {
            throw Refusal(connection_problem(errno));
        }
        if (ready > 0) {
            return states[0].revents ? Ready::woken : Ready::events;
        }
        // A wait of many weeks comes in parts.
        if (deadline && left < INT_MAX && milliseconds_until(deadline) == 0) {
            return Ready::nothing;
        }
    }
}

bool Subscription::open(const Deadline &deadline) {
    descriptor_ = mts_events_open(classes_.data(), classes_.size());
    if (descriptor_ < 0) {
        throw_connection_problem(errno);
    }
    switch (wait(deadline)) {
    case Ready::woken:
        return false;
    case Ready::nothing:
        throw_connection_problem(ETIMEDOUT);
    case Ready::events:
        break;
    }
    // The confirmation, which is no event; what comes behind it stays where it is.
    const mts_message *none = nullptr;
    if (mts_events_next(&none) < 0) {
        throw_connection_problem(errno);
    }
    return true;
}

const mts_message *Subscription::next(const Deadline &deadline) {
    for (;;) {
        const mts_message *event = nullptr;
        if (mts_events_next(&event) < 0) {
            throw_connection_problem(errno);
        }
        if (event || wait(deadline) != Ready::events) {
            return event;
        }
    }
}

Pauses::Pauses(int wake_descriptor)
    : wake_descriptor_(wake_descriptor), directory_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)), pause_(shortest_pause) {}

Pauses::~Pauses() {
    if (directory_ >= 0) {
        close(directory_);
    }
}

// Watches the run directory, again in case that it is another one by now. Returns whether something
// has happened there since the last look.
bool Pauses::look_at_directory() {
    if (directory_ < 0) {
        return false;
    }
    char events[4096];
    const bool is_changed = read(directory_, events, sizeof events) > 0;
    inotify_add_watch(directory_, run_directory(), IN_CREATE | IN_MOVED_TO | IN_ATTRIB);
    return is_changed;
}

bool Pauses::wait(const Deadline &deadline) {
    if (look_at_directory()) { // since the last attempt
        begin_again();
    }
    const Deadline end = deadline_after(pause_);
    pause_ = std::min(2 * pause_, longest_pause);
    pollfd states[] = {{wake_descriptor_, POLLIN, 0}, {directory_, POLLIN, 0}};
    const int ready = poll(states, std::size(states), milliseconds_until(deadline ? std::min(*end, *deadline) : *end));
    if (ready > 0 && states[1].revents) {
        // A socket stands there a moment before anybody listens at it.
        begin_again();
        look_at_directory();
    }
    return ready <= 0 || !states[0].revents;
}

void Pauses::begin_again() {
    pause_ = shortest_pause;
}

} // namespace vswitchctl
