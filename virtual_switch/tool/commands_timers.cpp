// SPDX-License-Identifier: Apache-2.0
// Commands for timers, latencies and what distributes the timers.
#include <fmt/format.h>

#include "tool/commands.h"

namespace vswitchctl {

namespace {

// Gives the setting the name that the switch knows, and the value its type.
void finish_setting(Json &arguments) {
    const std::string setting = arguments.at("setting");
    const std::string value = arguments.at("value");
    if (setting == inorder_delivery.word) {
        arguments["setting"] = inorder_delivery.key;
        arguments["value"] = read_on_or_off("value", value);
        return;
    }
    for (const Setting &latency : latencies) {
        if (setting == latency.word) {
            arguments["setting"] = latency.key;
        }
    }
    arguments["value"] = read_number("value", value, {}, {0, TIMER_MAX});
}

void print_setting(const Json &reply) {
    fmt::print("{}{} is {}{}\n", reply.at("setting").get<std::string>(),
               reply.contains("vsan") ? fmt::format(" of VSAN {}", reply["vsan"].get<unsigned>()) : "",
               reply.at("value").dump(), reply.at("pending").get<bool>() ? ", once it is committed" : "");
}

} // namespace

void add_timers(Commands &commands) {
    commands.group("timers", "Fabric timers, latencies and in-order delivery",
                   "  vswitchctl timers\n  vswitchctl timers set ratov 12000 --vsan 10");
    Command list(commands, "timers show", "All of them, the default",
                 "  vswitchctl timers show\n  vswitchctl timers show --vsan 10");
    list.number("--vsan", "vsan", "Only this VSAN's", {}, vsan_number_bounds);
    list.lists("timers.show", "vsans", "id", print_timers);
    Command set(commands, "timers set", "Changes one of them",
                "  vswitchctl timers set ratov 12000\n  vswitchctl timers set edtov 9000 --vsan 10 --force\n"
                "  vswitchctl timers set network-latency 3000\n  vswitchctl timers set inorder-delivery on");
    set.word("setting", "setting", "edtov, ratov, dstov, fstov, switch-latency, network-latency or inorder-delivery",
             "SETTING", setting_words())
        ->required();
    set.text("value", "value", "Milliseconds; on or off for in-order delivery", "VALUE")->required();
    set.number("--vsan", "vsan", "Set the timer of this VSAN, not the switch's", {}, vsan_number_bounds);
    set.flag("--force", "force", "Even where edtov would not be below ratov");
    set.finish(finish_setting);
    set.changes("timers.set", print_setting);
}

void add_tdx(Commands &commands) {
    commands.group("tdx", "The distribution service of the fabric timers",
                   "  vswitchctl tdx\n  vswitchctl tdx enable\n  vswitchctl tdx commit");
    Command state(commands, "tdx show", "Its settings and its session, the default", "  vswitchctl tdx show");
    state.lists("tdx.show", "pending", "vsan", print_tdx);
    const auto add = [&](const char *name, const char *command, const char *description) {
        Command simple(commands, name, description, fmt::format("  vswitchctl {}", name));
        simple.changes(command, print_tdx);
    };
    add("tdx enable", "tdx.enable", "Lets the service govern the timers");
    add("tdx disable", "tdx.disable", "Ends that");
    add("tdx commit", "tdx.commit", "Puts the session's pending values into force");
    add("tdx abort", "tdx.abort", "Drops the session's pending values");
    Command pending(commands, "tdx pending", "The session: its holder, and what is not yet committed",
                    "  vswitchctl tdx pending");
    pending.lists("tdx.show", "pending", "vsan", print_pending);
    const auto add_switch = [&](const char *name, const char *command, const char *description) {
        Command on_off(commands, name, description, fmt::format("  vswitchctl {} on", name));
        on_off.on_off("on", "on", "on or off")->required();
        on_off.changes(command, print_tdx);
    };
    add_switch("tdx show-run", "tdx.show-run", "Whether reads show the running configuration all the same");
    add_switch("tdx refuse", "tdx.refuse", "Whether the service refuses, as it does without a fabric");
}

} // namespace vswitchctl
