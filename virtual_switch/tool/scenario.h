// SPDX-License-Identifier: Apache-2.0
// Scenarios: files of commands with times, repetitions and conditions. This is what stands in one, and the
// reader; timeline.h has the order in which the lines act.
//
// A line is one statement:
//
//   COMMAND                                           acts when the lines above are done
//   at TIME [jitter TIME] [chance N%] COMMAND         so long after the start, wherever it stands
//   every TIME for TIME [jitter TIME] [chance N%] COMMAND
//   every TIME N times [jitter TIME] [chance N%] COMMAND
//                                                     begins when the lines above are done, and goes on
//                                                     beside those below
//   wait TIME
//   wait CONDITION within TIME
//   expect CONDITION
//   expect refused COMMAND
//   seed N                                            what chance and jitter are drawn from
//   for each [active] vsan | for each [up] port       the lines from here to `end`, once for each; {vsan} and
//   end                                               {port} stand for it
#ifndef VSWITCHCTL_SCENARIO_H
#define VSWITCHCTL_SCENARIO_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "tool/usage_error.h"

namespace vswitchctl {

// What a scenario may be, so that a file from anywhere can be read.
inline constexpr size_t max_scenario_bytes = 4u << 20;
inline constexpr uint32_t max_scenario_lines = 100000;
inline constexpr size_t max_scenario_line_bytes = 4096;
inline constexpr uint64_t max_scenario_actions = 1000000; // with all repetitions

enum class StatementKind { command, timed, pause, wait, expect, refused, each };

// Whatever there are several of on a switch, and the text that stands for one of them.
struct EachKind {
    std::string_view words;
    std::string_view placeholder;
    std::string_view sample; // with which the lines are checked
};
inline constexpr EachKind each_kinds[] = {
    {"vsan", "{vsan}", "1"}, {"active vsan", "{vsan}", "1"}, {"port", "{port}", "fc1"}, {"up port", "{port}", "fc1"}};

struct Statement {
    StatementKind kind = StatementKind::command;
    uint32_t line = 0;
    std::vector<std::string> words; // of the command or the condition

    // Of timed statements.
    bool is_every = false;
    std::chrono::milliseconds first{0}; // after the start (`at`), or after its turn has come (`every`)
    std::chrono::milliseconds period{0};
    std::chrono::milliseconds jitter{0}; // the greatest delay that is drawn, half of the period at most
    uint32_t percent = 100;
    uint32_t repetitions = 1;

    std::chrono::milliseconds time{0}; // how long a pause lasts, how long is waited at most

    // Of `for each`.
    const EachKind *each = nullptr;
    std::vector<Statement> block;
};

struct Scenario {
    std::string name; // of the file, for complaints
    uint64_t seed = 1;
    std::vector<Statement> statements;
};

// What is no matter of the scenario's language: both throw UsageError, a sentence without the place.
struct ScenarioChecks {
    std::function<void(const std::vector<std::string> &words)> command;
    std::function<void(const std::vector<std::string> &words)> condition;
    std::vector<std::string> commands; // their first words
};

// Reads a whole file: standard input for "-". Throws Refusal when it cannot be read, UsageError when it
// is larger than a scenario may be; no more than that is read.
std::string read_scenario_file(const std::string &path);

// What a file is called in complaints.
std::string scenario_name(const std::string &path);

// Reads a scenario. Throws UsageError, which begins with NAME:LINE.
Scenario read_scenario(std::string_view text, const std::string &name, const ScenarioChecks &checks);

// The place in front of a complaint: "NAME:LINE: sentence".
std::string at_line(const std::string &name, uint32_t line, const std::string &sentence);

// Splits a line into words at its blanks. '...' and "..." keep blanks and join what stands beside them,
// # at the beginning of a word begins a comment; nothing else is special. Throws UsageError.
std::vector<std::string> split_words(std::string_view line);

// Words as a line of a scenario, as they may be printed.
std::string line_text(const std::vector<std::string> &words);

// The words with `value` in the place of each placeholder.
std::vector<std::string> with_value(const std::vector<std::string> &words, std::string_view placeholder,
                                    const std::string &value);

// Throws UsageError, with the line, unless the scenario is nothing but commands, so that they can be one
// transaction.
void require_commands_only(const Scenario &scenario);

} // namespace vswitchctl

#endif
