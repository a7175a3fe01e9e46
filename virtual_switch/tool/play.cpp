// SPDX-License-Identifier: Apache-2.0
#include "tool/play.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fmt/format.h>
#include <thread>
#include <unistd.h>

#include "tool/captured_output.h"
#include "tool/command_line.h"
#include "tool/condition.h"
#include "tool/print.h"
#include "tool/scenario.h"
#include "tool/timeline.h"

namespace vswitchctl {

namespace {

using std::chrono::duration_cast;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

// What must not be done by a line, since it would hold up the others, and what it does instead.
struct Excluded {
    std::string_view command;
    const char *instead;
};
constexpr Excluded excluded[] = {
    {"play", "One scenario cannot play another."},
    {"watch", "'watch' cannot be part of a scenario, since it waits; run it beside the scenario."},
    {"wait-until", "'wait-until' cannot be part of a scenario; write 'wait CONDITION within 5s'."}};

ParsedCommand parse_line(CommandLine &command_line, const std::vector<std::string> &words) {
    ParsedCommand command = command_line.parse(words);
    for (const Excluded &row : excluded) {
        if (command.name == row.command) {
            throw UsageError(row.instead);
        }
    }
    return command;
}

// For the handler of signals: which line is under way, and where.
volatile std::sig_atomic_t line_under_way = 0;
char played_file[512];

void write_text(const char *text) {
    // Nobody is left to be told that it failed.
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text, std::strlen(text));
}

// Only what may be done while anything else is under way.
void end_by_signal(int number) {
    char digits[16];
    char *first = std::end(digits);
    *--first = '\0';
    for (int line = line_under_way; line > 0; line /= 10) {
        *--first = static_cast<char>('0' + line % 10);
    }
    for (const char *text :
         {"vswitchctl: ", static_cast<const char *>(played_file), ":", static_cast<const char *>(first),
          ": ended here by ", number == SIGINT ? "Ctrl-C.\n" : "SIGTERM.\n"}) {
        write_text(text);
    }
    // It ends the process once this has returned.
    std::signal(number, SIG_DFL);
    raise(number);
}

void end_on_signals(const std::string &name) {
    name.copy(played_file, sizeof played_file - 1);
    struct sigaction action {};
    action.sa_handler = end_by_signal;
    for (const int number : {SIGINT, SIGTERM}) {
        struct sigaction former {};
        // Who starts a program so that a signal does not end it means that.
        if (sigaction(number, nullptr, &former) == 0 && former.sa_handler != SIG_IGN) {
            sigaction(number, &action, nullptr);
        }
    }
}

// The switch, the machine's clock, and standard output, on which each line is told.
class SwitchStage : public Stage {
  public:
    SwitchStage(CommandLine &command_line, bool quiet) : command_line_(command_line), quiet_(quiet) {}

    Milliseconds now() override { return duration_cast<Milliseconds>(steady_clock::now() - start_); }

    void sleep_until(Milliseconds moment, uint32_t line) override {
        line_under_way = static_cast<int>(line);
        std::this_thread::sleep_until(start_ + moment);
    }

    void act(uint32_t line, const std::vector<std::string> &words) override {
        begin(line, carried_out, words);
        run(words);
        end();
    }

    std::optional<std::string> refusal(uint32_t line, const std::vector<std::string> &words) override {
        begin(line, refused_as_expected, words);
        try {
            run(words);
            return std::nullopt;
        } catch (const Unreachable &) {
            throw;
        } catch (const Refusal &refused) {
            told_["refused"] = refused.what();
            end();
            return refused.what();
        }
    }

    std::optional<std::string> failure(uint32_t line, const std::vector<std::string> &words) override {
        const Patience patience{milliseconds(1000)};
        auto failure = Condition::parse(words).failure();
        if (!failure) {
            begin(line, expected, words);
            end();
        }
        return failure;
    }

    bool wait(uint32_t line, const std::vector<std::string> &words, Milliseconds moment) override;
    std::vector<std::string> values(const EachKind &each) override;

    // The end of it all, after so many actions.
    void finish(uint32_t actions, Milliseconds latest);

  private:
    // How a line is told: as a member of a JSON object, and in words in front of its own.
    struct Kind {
        const char *key;
        const char *before;
    };
    static constexpr Kind carried_out = {"command", ""}, waited = {"wait", "wait "}, expected = {"expect", "expect "},
                          refused_as_expected = {"expectRefused", "expect refused "};

    void note(uint32_t line, const Kind &kind, const std::vector<std::string> &words);
    void begin(uint32_t line, const Kind &kind, const std::vector<std::string> &words);
    void run(const std::vector<std::string> &words);
    void end();
    double seconds() { return static_cast<double>(now().count()) / 1000; }

    CommandLine &command_line_;
    const bool quiet_;
    const steady_clock::time_point start_ = steady_clock::now();
    uint32_t waiting_line_ = 0;
    Json told_; // of the line under way
};

void SwitchStage::note(uint32_t line, const Kind &kind, const std::vector<std::string> &words) {
    told_ = {{"time", seconds()}, {"line", line}, {kind.key, line_text(words)}};
}

void SwitchStage::begin(uint32_t line, const Kind &kind, const std::vector<std::string> &words) {
    line_under_way = static_cast<int>(line);
    note(line, kind, words);
    if (!quiet_ && !prints_json()) {
        fmt::print("{:9.3f} s  line {:<5} {}{}\n", seconds(), line, kind.before, line_text(words));
        std::fflush(stdout);
    }
}

void SwitchStage::run(const std::vector<std::string> &words) {
    const ParsedCommand command = parse_line(command_line_, words);
    if (!quiet_ && !prints_json()) {
        return command.run();
    }
    const CapturedOutput output;
    command.run();
    const std::string text = output.text();
    Json reply = Json::parse(text, nullptr, false);
    if (!reply.is_discarded()) {
        told_["reply"] = std::move(reply);
    } else if (!text.empty()) {
        told_["output"] = text;
    }
}

void SwitchStage::end() {
    if (!quiet_ && prints_json()) {
        fmt::print("{}\n", told_.dump(-1, ' ', false, Json::error_handler_t::replace));
    }
    std::fflush(stdout);
}

bool SwitchStage::wait(uint32_t line, const std::vector<std::string> &words, Milliseconds moment) {
    // A subscription to the switch's events is worth its while from here on.
    constexpr milliseconds short_time(50);
    if (waiting_line_ != line) {
        waiting_line_ = line;
        begin(line, waited, words);
    }
    line_under_way = static_cast<int>(line);
    const Condition condition = Condition::parse(words);
    const milliseconds left = std::max(moment - now(), milliseconds(0));
    const bool holds = wait_until(condition, left < short_time ? milliseconds(0) : left);
    if (!holds) {
        sleep_until(moment, line);
    } else {
        waiting_line_ = 0;
        note(line, waited, words); // others have acted meanwhile
        end();
    }
    return holds;
}

std::vector<std::string> SwitchStage::values(const EachKind &each) {
    std::vector<std::string> values;
    if (each.placeholder == "{vsan}") {
        const Json reply = list("vsan.list", "vsans", "id");
        for (const Json &vsan : reply.at("vsans")) {
            if (each.words == "vsan" || vsan.at("state") == "active") {
                values.push_back(vsan.at("id").dump());
            }
        }
        return values;
    }
    const Json reply = list("port.list", "ports", "ifIndex");
    for (const Json &port : reply.at("ports")) {
        if (each.words == "port" || port.at("oper") == "up") {
            values.push_back(port.at("name").get<std::string>());
        }
    }
    return values;
}

void SwitchStage::finish(uint32_t actions, Milliseconds latest) {
    if (!quiet_ && prints_json()) {
        fmt::print("{}\n", Json({{"time", seconds()}, {"done", actions}, {"latest", latest.count()}}).dump());
    } else if (!quiet_) {
        fmt::print("{:9.3f} s  done: {} command{}, at most {} ms late\n", seconds(), actions, actions == 1 ? "" : "s",
                   latest.count());
    }
    std::fflush(stdout);
    if (std::ferror(stdout)) {
        throw Refusal("Cannot print all of what was done.");
    }
}

Scenario read_checked(const PlayOptions &options, CommandLine &command_line) {
    const ScenarioChecks checks{[&](const std::vector<std::string> &words) { parse_line(command_line, words); },
                                [](const std::vector<std::string> &words) { Condition::parse(words); },
                                command_line.names()};
    Scenario scenario = read_scenario(read_scenario_file(options.file), scenario_name(options.file), checks);
    scenario.seed = options.seed.value_or(scenario.seed);
    return scenario;
}

} // namespace

void play(const PlayOptions &options) {
    CommandLine command_line;
    const Scenario scenario = read_checked(options, command_line);
    if (options.check) {
        return;
    }
    end_on_signals(scenario.name);
    SwitchStage stage(command_line, options.quiet);
    Timeline timeline(scenario, stage);
    timeline.play();
    stage.finish(timeline.actions(), timeline.latest());
}

} // namespace vswitchctl
