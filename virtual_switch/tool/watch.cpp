// SPDX-License-Identifier: Apache-2.0
#include "tool/watch.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fmt/format.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "contract/events.h"
#include "mts/mts_events.h"
#include "tool/event_words.h"
#include "tool/present_state.h"
#include "tool/subscription.h"

namespace vswitchctl {

namespace {

// How long the switch may take for one answer: as long, a signal may go unheard.
constexpr std::chrono::milliseconds patience(2000);

// The signals that end the tool, taken when it is convenient, so that no line stays half printed.
class EndingSignals {
  public:
    EndingSignals() {
        sigset_t ending;
        sigemptyset(&ending);
        sigaddset(&ending, SIGINT);
        sigaddset(&ending, SIGTERM);
        sigprocmask(SIG_BLOCK, &ending, &former_);
        descriptor_ = signalfd(-1, &ending, SFD_CLOEXEC | SFD_NONBLOCK);
        if (descriptor_ < 0) {
            sigprocmask(SIG_SETMASK, &former_, nullptr);
        }
    }
    ~EndingSignals() {
        if (descriptor_ >= 0) {
            // What has come has been heeded.
            for (signalfd_siginfo taken; read(descriptor_, &taken, sizeof taken) == sizeof taken;) {
            }
            close(descriptor_);
            sigprocmask(SIG_SETMASK, &former_, nullptr);
        }
    }
    EndingSignals(const EndingSignals &) = delete;
    EndingSignals &operator=(const EndingSignals &) = delete;

    // Readable when one has come; -1 where they end the tool as they always do.
    int descriptor() const { return descriptor_; }

  private:
    sigset_t former_;
    int descriptor_;
};

class Watch {
  public:
    explicit Watch(const WatchWish &wish) : wish_(wish) {}

    void run();

  private:
    // One connection, from the state on. Returns when the watch is over. Throws Away when the
    // switch goes away.
    void follow();
    void print_state(const PresentState &state) const;
    void print_event(const mts_message *message, const PortNames &names) const;
    void print(const std::string &time, Json object) const;
    void complain(const std::string &sentence) const;

    const WatchWish wish_;
    const EndingSignals signals_;
    Pauses pauses_{signals_.descriptor()};
    const Patience patience_{patience};
    bool has_begun_ = false;
    bool is_away_ = false;
    uint32_t seen_ = 0;
};

// Who reads from a pipe wants each event at once, and nobody wants events that go nowhere.
void flush() {
    if (std::fflush(stdout) != 0) {
        throw Refusal(fmt::format("Cannot print: {}.", std::strerror(errno)));
    }
}

void Watch::complain(const std::string &sentence) const {
    std::fputs(fmt::format("{} {}\n", time_now(), sentence).c_str(), stderr);
}

void Watch::print(const std::string &time, Json object) const {
    object["time"] = time;
    fmt::print("{}\n", object.dump(-1, ' ', false, Json::error_handler_t::replace));
}

void Watch::print_state(const PresentState &state) const {
    const std::string now = time_now();
    if (wish_.as_json) {
        for (Json &object : state_objects(state)) {
            print(now, std::move(object));
        }
    } else {
        for (const std::string &line : state_lines(state)) {
            fmt::print("{} now: {}\n", now, line);
        }
    }
    flush();
}

void Watch::print_event(const mts_message *message, const PortNames &names) const {
    Json event = decode_event(mts_message_class(message), mts_payload_get(message), mts_payload_size(message));
    add_port_name(event, names);
    if (wish_.as_json) {
        print(time_now(), std::move(event));
    } else {
        fmt::print("{} {}\n", time_now(), event_words(event));
    }
    flush();
}

void Watch::follow() {
#define EVENT_CLASS(number, name, word) number,
    Subscription events({EVENTS(EVENT_CLASS) EVENT_ANY_CHANGE}, signals_.descriptor());
#undef EVENT_CLASS
    if (!events.open(deadline_after(patience))) {
        return;
    }
    // What is printed is whole, or it is not begun.
    const auto state = wish_.events_only ? std::nullopt : std::optional(read_present_state());
    const PortNames names = port_names(state ? state->ports : list("port.list", "ports", "ifIndex")["ports"]);
    if (!has_begun_) {
        std::fputs("watching; Ctrl-C ends\n", stderr);
    } else if (is_away_) {
        complain("The switch is back.");
    }
    has_begun_ = true;
    is_away_ = false;
    pauses_.begin_again();
    if (state) {
        print_state(*state);
    }
    while (!wish_.count || seen_ < *wish_.count) {
        const mts_message *event = events.next({});
        if (!event) {
            return;
        }
        if (mts_message_class(event) != EVENT_ANY_CHANGE) {
            print_event(event, names);
            ++seen_;
        }
    }
}

void Watch::run() {
    for (;;) {
        try {
            return follow();
        } catch (const Away &problem) {
            if (!has_begun_) {
                throw;
            }
            if (!is_away_) {
                complain(fmt::format("{} Waiting for it.", problem.what()));
            }
            is_away_ = true;
        }
        if (!pauses_.wait({})) {
            return;
        }
    }
}

} // namespace

void watch(const WatchWish &wish) {
    Watch(wish).run();
}

} // namespace vswitchctl
