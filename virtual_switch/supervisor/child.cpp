// SPDX-License-Identifier: Apache-2.0
#include "supervisor/child.h"

#include <algorithm>
#include <csignal>
#include <fmt/format.h>
#include <sys/wait.h>
#include <utility>

namespace supervisor {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds patience{10};

} // namespace

Child::Child(asio::io_context &context, const Program &program, ChildOwner &owner)
    : program_(program), owner_(owner), timer_(context), notes_(context, [this] { told_ready(); }) {}

void Child::start() {
    policy_.started(Clock::now());
    serves_ = false;
    try {
        if (program_.attendant.empty()) {
            run();
        } else {
            prepare();
        }
    } catch (const Problem &problem) {
        fail(problem.what());
    }
}

void Child::prepare() {
    state_ = State::preparing;
    attendant_.start(program_.attendant, {std::nullopt, notes_.open(), *program_.tells});
    notes_.close_writer();
}

void Child::run() {
    Descriptors descriptors{program_.output, std::nullopt, -1};
    if (program_.attendant.empty() && program_.tells) {
        descriptors.telling = notes_.open();
        descriptors.telling_as = *program_.tells;
    }
    process_.start(program_.words, descriptors);
    state_ = State::running;
    if (descriptors.telling) {
        notes_.close_writer();
    } else if (program_.attendant.empty()) {
        note_serving();
    }
}

void Child::fail(const std::string &why) {
    state_ = State::idle;
    attendant_.signal(SIGTERM);
    notes_.close();
    owner_.could_not_start(*this, why);
}

void Child::told_ready() {
    if (state_ == State::running && program_.attendant.empty()) {
        note_serving();
    } else if (state_ == State::preparing) {
        try {
            run();
        } catch (const Problem &problem) {
            fail(problem.what());
        }
    }
}

void Child::note_serving() {
    if (!serves_) {
        serves_ = true;
        owner_.serves(*this, !std::exchange(has_served_, true));
    }
}

std::optional<std::chrono::milliseconds> Child::start_again() {
    const auto now = Clock::now();
    const auto next = policy_.next_start(now, notes_.away());
    if (!next) {
        return std::nullopt;
    }
    state_ = State::waiting;
    timer_.expires_at(*next);
    timer_.async_wait([this](const asio::error_code &error) {
        if (!error && state_ == State::waiting) {
            start();
        }
    });
    return std::chrono::ceil<std::chrono::milliseconds>(*next - now);
}

bool Child::reap(pid_t process) {
    if (attendant_.is_leader(process)) {
        attendant_ended(attendant_.reap());
    } else if (process_.is_leader(process)) {
        program_ended(process_.reap());
    } else {
        return false;
    }
    return true;
}

void Child::attendant_ended(int wait_status) {
    // The last that it has told may not have been read yet.
    notes_.read();
    if (state_ == State::running) {
        note_serving();
    } else if (state_ == State::preparing) {
        fail(WIFEXITED(wait_status) ? "" : fmt::format("its attendant {}", how_it_ended(wait_status)));
    }
}

void Child::program_ended(int wait_status) {
    notes_.read();
    attendant_.signal(SIGTERM);
    if (state_ == State::running) {
        state_ = State::idle;
        owner_.has_ended(*this, wait_status);
    }
}

void Child::halt() {
    state_ = State::halted;
    timer_.cancel();
    notes_.close();
}

void Child::end() {
    attendant_.signal(SIGTERM);
    process_.signal(SIGTERM);
    timer_.expires_after(patience);
    timer_.async_wait([this](const asio::error_code &error) {
        if (!error) {
            attendant_.signal(SIGKILL);
            process_.signal(SIGKILL);
        }
    });
}

bool Child::is_gone() {
    // Both are asked, since each forgets its group then.
    const bool attendant_is_gone = attendant_.is_gone();
    return process_.is_gone() && attendant_is_gone;
}

} // namespace supervisor
