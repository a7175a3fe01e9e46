// SPDX-License-Identifier: Apache-2.0
// The command that waits for a state of the switch.
#include "tool/commands.h"
#include "tool/condition.h"
#include "tool/duration.h"

namespace vswitchctl {

namespace {

using std::chrono::milliseconds;

Condition condition_of(const Json &arguments) {
    return Condition::parse(arguments.at("condition").get<std::vector<std::string>>());
}

void finish_wait(Json &arguments) {
    try {
        condition_of(arguments);
    } catch (const UsageError &error) {
        // It stands behind the command's name, and the full stop behind it.
        std::string sentence = error.what();
        sentence.pop_back();
        throw UsageError(sentence);
    }
}

void wait_for(const Json &arguments) {
    const Condition condition = condition_of(arguments);
    const auto timeout = arguments.contains("timeout") ? milliseconds(arguments["timeout"].get<milliseconds::rep>())
                                                       : milliseconds::max();
    if (!wait_until(condition, timeout)) {
        const Patience patience(std::chrono::seconds(1));
        if (const auto failure = condition.failure()) {
            throw Refusal(*failure);
        }
    }
    show({{"condition", condition.text()}, {"holds", true}}, [](const Json &) {});
}

} // namespace

void add_wait_until(Commands &commands) {
    Command command(commands, "wait-until", "Waits until something is so, or ends with 1 and says what is instead",
                    "  vswitchctl wait-until ready --timeout 10s\n"
                    "  vswitchctl wait-until vsan 10 oper up --timeout 500ms\n"
                    "  vswitchctl wait-until port fc3 vsan 10 --timeout 0\n"
                    "  vswitchctl wait-until timer ratov 10000 vsan 10 --timeout 0\n"
                    "  vswitchctl wait-until tdx session none --timeout 0");
    CLI::Option *condition =
        command.words("condition", "condition",
                      "ready; vsan N exists, absent, oper up|down, state active|suspended or name TEXT; port P oper "
                      "up|down, link up|down, vsan N, enabled or disabled; tdx session open|none; timer SETTING VALUE "
                      "[vsan N]; agents N; faults N",
                      "CONDITION");
    command.completes(condition, {Values::Kind::condition, {}})->required();
    command.option("--timeout", "timeout",
                   "Wait no longer than so many seconds, or 500ms, 5s, 2m; by default without an end", "TIME",
                   [](const std::string &option, const std::string &text) {
                       const bool is_bare = text.find_first_not_of("0123456789") == std::string::npos;
                       const auto duration = read_duration(is_bare ? text + "s" : text);
                       if (!duration) {
                           wrong_value(option, text, "a time, which is seconds, or 500ms, 5s, 2m, 1h, up to a week");
                       }
                       return Json(duration->count());
                   });
    command.finish(finish_wait);
    command.run(wait_for);
}

} // namespace vswitchctl
