// SPDX-License-Identifier: Apache-2.0
#include "supervisor/supervisor.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <fmt/format.h>
#include <fstream>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <utility>

namespace supervisor {

namespace {

// One line for the user, with the time of day.
void say(const std::string &sentence) {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char time_of_day[16];
    std::strftime(time_of_day, sizeof time_of_day, "%H:%M:%S", &local);
    std::fputs(fmt::format("{} {}\n", time_of_day, sentence).c_str(), stderr);
}

// "in 3 s", rounded up.
std::string when(std::chrono::milliseconds wait) {
    return wait.count() <= 0 ? "at once"
                             : fmt::format("in {} s", std::chrono::ceil<std::chrono::seconds>(wait).count());
}

std::string where_its_log_is(const Child &child) {
    return child.program().log.empty() ? "" : fmt::format("; its log is {}", child.program().log);
}

} // namespace

Supervisor::Supervisor(const std::vector<Program> &programs, Options options)
    : options_(std::move(options)), signals_(context_, SIGCHLD, SIGHUP, SIGINT) {
    signals_.add(SIGTERM);
    // Who is left of a group whose leader has ended is reaped here, which tells when the last is gone.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    for (const Program &program : programs) {
        children_.emplace_back(context_, program, static_cast<ChildOwner &>(*this));
    }
}

bool Supervisor::run() {
    await_signal();
    start_next();
    context_.run();
    return as_asked_;
}

void Supervisor::await_signal() {
    signals_.async_wait([this](const asio::error_code &error, int signal) {
        if (error) {
            return;
        }
        if (signal == SIGCHLD) {
            reap();
        } else {
            stop(true);
        }
        await_signal();
    });
}

// One signal may stand for several processes.
void Supervisor::reap() {
    siginfo_t info{};
    while (waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid != 0) {
        const pid_t process = info.si_pid;
        if (std::ranges::none_of(children_, [&](Child &child) { return child.reap(process); })) {
            waitpid(process, nullptr, 0);
        }
        info.si_pid = 0;
    }
    // Each learns now which of its groups are empty: their numbers may soon be others'.
    for (Child &child : children_) {
        child.is_gone();
    }
    if (stopping_) {
        end_next();
    }
}

void Supervisor::start_next() {
    const auto next = std::ranges::find_if(children_, [](const Child &child) { return !child.has_served(); });
    if (next != children_.end()) {
        next->start();
    }
}

void Supervisor::serves(Child &child, bool first) {
    if (first) {
        start_next();
    } else {
        say(fmt::format("{} is back", child.program().name));
    }
}

void Supervisor::has_ended(Child &child, int wait_status) {
    const std::string what = fmt::format("{} {}", child.program().name, how_it_ended(wait_status));
    if (options_.restart && child.has_served()) {
        return go_on(child, what);
    }
    if (options_.report.empty()) {
        say(what + where_its_log_is(child));
    } else {
        std::ofstream(options_.report) << fmt::format("{} {}\n", child.program().name, shell_status(wait_status));
    }
    stop(false);
}

void Supervisor::could_not_start(Child &child, const std::string &why) {
    const std::string what =
        fmt::format("{} could not be started{}{}", child.program().name, why.empty() ? "" : ": ", why);
    if (child.has_served()) {
        return go_on(child, what);
    }
    if (!why.empty()) {
        say(what);
    }
    stop(false);
}

void Supervisor::go_on(Child &child, const std::string &what) {
    const auto wait = child.start_again();
    if (wait) {
        say(fmt::format("{}; it comes back {}", what, when(*wait)));
        return;
    }
    say(fmt::format("{} after {} restarts within a minute, and is not started again{}", what,
                    RestartPolicy::most_restarts, where_its_log_is(child)));
    stop(false);
}

void Supervisor::stop(bool as_asked) {
    if (stopping_) {
        return;
    }
    stopping_ = true;
    as_asked_ = as_asked;
    for (Child &child : children_) {
        child.halt();
    }
    end_next();
}

// Ends the last of those that are left, if it is not being ended already.
void Supervisor::end_next() {
    const auto left = std::find_if(children_.rbegin(), children_.rend(), [](Child &child) { return !child.is_gone(); });
    if (left == children_.rend()) {
        context_.stop();
    } else if (std::exchange(ending_, &*left) != &*left) {
        left->end();
    }
}

} // namespace supervisor
