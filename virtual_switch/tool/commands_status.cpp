// SPDX-License-Identifier: Apache-2.0
// Commands that show what goes on: the whole switch, its events, what the agent recorded.
#include <fmt/format.h>

#include "tool/commands.h"
#include "tool/history.h"
#include "tool/request_counters.h"
#include "tool/watch.h"

namespace vswitchctl {

namespace {

void print_histories(const Json &reply) {
    if (reply.at("histories").empty()) {
        fmt::print("No agent has left an event history.\n");
    }
    for (const Json &history : reply.at("histories")) {
        print_history(history);
    }
}

void show_histories(const Json &arguments) {
    HistoryQuestion question;
    question.name = arguments.value("name", "");
    if (arguments.contains("last")) {
        question.last = arguments["last"].get<uint32_t>();
    }
    if (arguments.contains("class")) {
        question.event_class = arguments["class"].get<uint32_t>();
    }
    show(read_histories(question), print_histories);
}

} // namespace

void add_counters(Commands &commands) {
    Command command(commands, "counters", "How often agents have asked the switch for what",
                    "  vswitchctl counters\n  vswitchctl counters --reset");
    command.flag("--reset", "reset", "Begin at 0 after this; what was counted until now is printed once more");
    command.run([](const Json &arguments) {
        show(read_request_counters(arguments.contains("reset")), print_request_counters);
    });
}

void add_show(Commands &commands) {
    Command command(commands, "show", "The whole switch at a glance", "  vswitchctl show\n  vswitchctl show --json");
    command.run([](const Json &) {
        Json reply = look("switch.show");
        reply["vsanList"] = list("vsan.list", "vsans", "id")["vsans"];
        reply["portList"] = list("port.list", "ports", "ifIndex")["ports"];
        show(reply, print_switch);
    });
}

void add_watch(Commands &commands) {
    Command command(commands, "watch", "Prints the switch's present state, then its events as they happen",
                    "  vswitchctl watch\n  vswitchctl watch --events-only --count 1 --json");
    command.number("--count", "count", "End after so many events");
    command.flag("--events-only", "eventsOnly", "Leave the present state out");
    command.run([](const Json &arguments) {
        const auto count = arguments.find("count");
        watch({prints_json(), arguments.contains("eventsOnly"),
               count == arguments.end() ? std::nullopt : std::optional<uint32_t>(*count)});
    });
}

void add_agent(Commands &commands) {
    Command history(commands, "event-history", "What the agent has recorded, oldest first",
                    "  vswitchctl event-history --last 20\n  vswitchctl event-history --class 100");
    history.text("--name", "name", "Only the history of this name", "NAME");
    history.number("--last", "last", "Only so many of the latest records");
    history.number("--class", "class", "Only one class: failures or trace", class_words);
    history.run(show_histories);

    commands.group("debug", "What the agent records and prints",
                   "  vswitchctl debug\n  vswitchctl debug set 101 history on");
    Command filters(commands, "debug show", "The filters, the default", "  vswitchctl debug show");
    filters.looks("debug.show", print_filters);
    Command set(commands, "debug set", "Sets a filter; the agent goes by it within a quarter of a second",
                "  vswitchctl debug set 101 history on\n  vswitchctl debug set failures debug off");
    set.number("class", "class", "100 or failures, 101 or trace, or another number", class_words)->required();
    set.word("what", "what", "history or debug", "WHAT", {"history", "debug"})->required();
    set.on_off("on", "on", "on or off")->required();
    set.orders("debug.set", print_filters);
}

} // namespace vswitchctl
