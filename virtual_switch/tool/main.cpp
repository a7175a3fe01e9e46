// SPDX-License-Identifier: Apache-2.0
// vswitchctl, the operator's tool.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fmt/format.h>

#include "contract/run_directory.h"
#include "tool/command_line.h"
#include "tool/print.h"
#include "tool/transfer.h"

namespace {

constexpr int exit_refused = 1;
constexpr int exit_usage = 2;

// Does without, where nobody can be told: standard error may be a full disk.
void complain(const std::string &sentence) {
    std::fputs(fmt::format("vswitchctl: {}\n", sentence).c_str(), stderr);
}

using Words = std::vector<std::string>;

// The commands of a command line, which have a lone -- between them. Where no command begins behind it, it
// ends the options of its own. Words that are to be completed are one command.
std::vector<Words> commands_of(const Words &words, const vswitchctl::CommandLine &command_line) {
    if (!words.empty() && words.front() == vswitchctl::completion_command) {
        return {words};
    }
    const Words names = command_line.names();
    std::vector<Words> commands(1);
    for (auto word = words.begin(); word != words.end(); ++word) {
        const bool begins_next = *word == "--" && (word + 1 == words.end() || word[1] == "--" ||
                                                   std::find(names.begin(), names.end(), word[1]) != names.end());
        if (begins_next) {
            commands.emplace_back();
        } else {
            commands.back().push_back(*word);
        }
    }
    return commands;
}

// Makes several changes one, and prints the reply to each as if it had been alone.
void carry_out_all(const std::vector<vswitchctl::ParsedCommand> &commands) {
    std::vector<vswitchctl::Json> changes;
    for (const vswitchctl::ParsedCommand &command : commands) {
        if (command.change.is_null()) {
            throw vswitchctl::UsageError(fmt::format("{}: it is no change of the configuration, and cannot be one of "
                                                     "several commands with -- between them.",
                                                     command.name.empty() ? "help" : command.name));
        }
        changes.push_back(command.change);
    }
    vswitchctl::Json reply;
    try {
        reply = vswitchctl::change_all(changes, false);
    } catch (const vswitchctl::TransactionRefusal &refusal) {
        const std::string sentence = commands.at(refusal.number - 1).explain(refusal.reason);
        throw vswitchctl::Refusal(
            fmt::format("Nothing is changed, because of command {}, {}", refusal.number, sentence));
    }
    const vswitchctl::Json &replies = reply.at("replies");
    vswitchctl::show(replies, [&](const vswitchctl::Json &) {
        for (size_t number = 0; number < commands.size(); ++number) {
            commands[number].print(replies.at(number));
        }
    });
}

// Carries out what a command line says.
void carry_out(const Words &words) {
    vswitchctl::GlobalOptions options;
    vswitchctl::CommandLine command_line(&options);
    std::vector<vswitchctl::ParsedCommand> commands;
    for (const Words &command : commands_of(words, command_line)) {
        commands.push_back(command_line.parse(command));
    }
    if (!options.run_directory.empty()) {
        setenv(RUN_DIRECTORY_VARIABLE, options.run_directory.c_str(), 1);
    }
    vswitchctl::print_as_json(options.json);
    if (commands.size() == 1) {
        commands.front().run();
    } else {
        carry_out_all(commands);
    }
}

} // namespace

int main(int argc, char **argv) {
    try {
        carry_out({argv + 1, argv + argc});
        if (std::fflush(stdout) != 0) {
            complain(fmt::format("Cannot write all of it to standard output: {}.", std::strerror(errno)));
            return exit_refused;
        }
        return 0;
    } catch (const vswitchctl::UsageError &error) {
        complain(error.what());
        return exit_usage;
    } catch (const vswitchctl::Refusal &refusal) {
        complain(refusal.what());
        return exit_refused;
    } catch (const vswitchctl::Json::exception &error) {
        complain(fmt::format("The switch answered something that this tool does not know ({}).", error.what()));
        return exit_refused;
    }
}
