// SPDX-License-Identifier: Apache-2.0
// The command that waits for a state of the switch.
#include "tool/commands.h"
#include "tool/condition.h"

namespace vswitchctl {

namespace {

using std::chrono::milliseconds;

Condition condition_of(const Json &arguments) {
    return Condition::parse(arguments.at("condition").get<std::vector<std::string>>());
}

// A complaint as it stands behind the command's name.
template <typename Read> auto read_or_complain(Read read) {
    try {
        return read();
    } catch (const UsageError &error) {
        std::string sentence = error.what();
        sentence.pop_back();
        throw UsageError(sentence);
    }
}

void finish_wait(Json &arguments) {
    read_or_complain([&] { return condition_of(arguments); });
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
                   [](const std::string &, const std::string &text) {
                       return Json(read_or_complain([&] { return parse_duration(text); }).count());
                   });
    command.finish(finish_wait);
    command.run(wait_for);
}

} // namespace vswitchctl
