// SPDX-License-Identifier: Apache-2.0
#include "tool/play.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fmt/format.h>
#include <functional>
#include <thread>
#include <unistd.h>

#include "contract/limits.h"
#include "tool/captured_output.h"
#include "tool/command_line.h"
#include "tool/condition.h"
#include "tool/print.h"
#include "tool/scenario.h"
#include "tool/timeline.h"
#include "tool/transfer.h"

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
         {"vswitchctl: ", static_cast<const char *>(played_file), line_under_way > 0 ? ":" : "",
          static_cast<const char *>(first), ": ended here by ", number == SIGINT ? "Ctrl-C.\n" : "SIGTERM.\n"}) {
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

// What the switch has of a kind. Throws Refusal.
std::vector<std::string> values_on_switch(const EachKind &each) {
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
    std::vector<std::string> values(const EachKind &each) override { return values_on_switch(each); }

    // Tells what became of a command that was carried out with others at once.
    void tell(uint32_t line, const std::vector<std::string> &words, const ParsedCommand &command, const Json &reply) {
        begin(line, carried_out, words);
        if (prints_json()) {
            told_["reply"] = reply;
        } else if (!quiet_) {
            command.print(reply);
        }
        end();
    }
    // The end of it all, after so many actions; `latest` is nothing where they were one.
    void finish(size_t actions, std::optional<Milliseconds> latest);

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

void SwitchStage::finish(size_t actions, std::optional<Milliseconds> latest) {
    if (!quiet_ && prints_json()) {
        Json told = {{"time", seconds()}, {"done", actions}};
        if (latest) {
            told["latest"] = latest->count();
        }
        fmt::print("{}\n", told.dump());
    } else if (!quiet_) {
        fmt::print("{:9.3f} s  done: {} command{}, {}\n", seconds(), actions, actions == 1 ? "" : "s",
                   latest ? fmt::format("at most {} ms late", latest->count()) : "as one change");
    }
    std::fflush(stdout);
    if (std::ferror(stdout)) {
        throw Refusal("Cannot print all of what was done.");
    }
}

// A scenario as one transaction.
class Transaction {
  public:
    // Takes what there is of each kind from `values`. Throws UsageError, with the line, for what cannot be part of one.
    Transaction(const Scenario &scenario, CommandLine &command_line,
                const std::function<std::vector<std::string>(const EachKind &)> &values);

    // Carries all of it out, or nothing, and tells what it came to. Throws PlacedRefusal.
    void carry_out(SwitchStage &stage) const;

  private:
    struct Line {
        uint32_t number;
        std::vector<std::string> words;
        ParsedCommand command;
    };

    void add(const Statement &statement, std::vector<std::string> words);

    const std::string name_;
    CommandLine &command_line_;
    std::vector<Line> lines_;
};

Transaction::Transaction(const Scenario &scenario, CommandLine &command_line,
                         const std::function<std::vector<std::string>(const EachKind &)> &values)
    : name_(scenario.name), command_line_(command_line) {
    require_commands_only(scenario);
    for (const Statement &statement : scenario.statements) {
        if (statement.kind != StatementKind::each) {
            add(statement, statement.words);
            continue;
        }
        for (const std::string &value : values(*statement.each)) {
            for (const Statement &below : statement.block) {
                add(below, with_value(below.words, statement.each->placeholder, value));
            }
        }
    }
}

void Transaction::add(const Statement &statement, std::vector<std::string> words) {
    ParsedCommand command;
    try {
        command = parse_line(command_line_, words);
    } catch (const UsageError &error) {
        throw UsageError(at_line(name_, statement.line, error.what()));
    }
    if (command.change.is_null()) {
        throw UsageError(at_line(
            name_, statement.line,
            fmt::format("'{}' is no change of the configuration, and cannot be part of one.", line_text(words))));
    }
    if (lines_.size() == TRANSACTION_COMMANDS_MAX) {
        throw UsageError(at_line(name_, statement.line,
                                 fmt::format("With this line there are more than {} commands, and no more can be one "
                                             "change.",
                                             TRANSACTION_COMMANDS_MAX)));
    }
    lines_.push_back({statement.line, std::move(words), std::move(command)});
}

void Transaction::carry_out(SwitchStage &stage) const {
    std::vector<Json> changes;
    changes.reserve(lines_.size());
    for (const Line &line : lines_) {
        changes.push_back(line.command.change);
    }
    Json reply = {{"replies", Json::array()}};
    try {
        if (!changes.empty()) {
            reply = change_all(changes, false);
        }
    } catch (const TransactionRefusal &refusal) {
        const Line &line = lines_.at(refusal.number - 1);
        throw PlacedRefusal(
            at_line(name_, line.number, fmt::format("{} Nothing is changed.", line.command.explain(refusal.reason))));
    }
    for (size_t at = 0; at < lines_.size(); ++at) {
        stage.tell(lines_[at].number, lines_[at].words, lines_[at].command, reply.at("replies").at(at));
    }
    stage.finish(lines_.size(), std::nullopt);
}

std::vector<std::string> sample_of(const EachKind &each) {
    return {std::string(each.sample)};
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
    if (options.atomic) {
        const Transaction transaction(scenario, command_line, options.check ? sample_of : values_on_switch);
        if (!options.check) {
            SwitchStage stage(command_line, options.quiet);
            transaction.carry_out(stage);
        }
        return;
    }
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
