// SPDX-License-Identifier: Apache-2.0
// The command that plays scenarios.
#include <charconv>

#include "tool/commands.h"
#include "tool/play.h"

namespace vswitchctl {

namespace {

Json read_seed(const std::string &option, const std::string &text) {
    uint64_t seed = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), seed);
    if (result.ec != std::errc() || result.ptr != text.data() + text.size()) {
        wrong_value(option, text, "a number from 0 to 18446744073709551615");
    }
    return seed;
}

} // namespace

void add_play(Commands &commands) {
    Command command(commands, "play", "Plays a scenario: a file of commands with times, repetitions and conditions",
                    "  vswitchctl play flapping-port.scenario\n  vswitchctl play night.scenario --check\n"
                    "  vswitchctl play night.scenario --seed 7 --quiet");
    command.text("file", "file", "The scenario; - for standard input", "FILE")->required();
    command.flag("--check", "check", "Read it, and say what is wrong with it, without a switch");
    command.flag("--atomic", "atomic", "Make all of its commands one change, or none; it has no times then");
    command.flag("--quiet", "quiet", "Print nothing of what goes well");
    command.option("--seed", "seed", "What chance and jitter are drawn from, instead of its own seed", "N", read_seed);
    command.run([](const Json &arguments) {
        PlayOptions options;
        options.file = arguments.at("file");
        options.check = arguments.contains("check");
        options.atomic = arguments.contains("atomic");
        options.quiet = arguments.contains("quiet");
        if (const auto seed = arguments.find("seed"); seed != arguments.end()) {
            options.seed = seed->get<uint64_t>();
        }
        play(options);
    });
}

} // namespace vswitchctl
