// SPDX-License-Identifier: Apache-2.0
// vswitchctl, the operator's tool.
#include <cstdio>
#include <cstdlib>
#include <fmt/format.h>

#include "contract/run_directory.h"
#include "tool/command_line.h"
#include "tool/print.h"

namespace {

constexpr int exit_refused = 1;
constexpr int exit_usage = 2;

// Does without, where nobody can be told: standard error may be a full disk.
void complain(const std::string &sentence) {
    std::fputs(fmt::format("vswitchctl: {}\n", sentence).c_str(), stderr);
}

// Carries out what a command line says.
void carry_out(const std::vector<std::string> &words) {
    vswitchctl::GlobalOptions options;
    vswitchctl::CommandLine command_line(&options);
    const vswitchctl::ParsedCommand command = command_line.parse(words);
    if (!options.run_directory.empty()) {
        setenv(RUN_DIRECTORY_VARIABLE, options.run_directory.c_str(), 1);
    }
    vswitchctl::print_as_json(options.json);
    command.run();
}

} // namespace

int main(int argc, char **argv) {
    try {
        carry_out({argv + 1, argv + argc});
        return std::fflush(stdout) == 0 ? 0 : exit_refused;
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
