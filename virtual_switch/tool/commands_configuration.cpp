// SPDX-License-Identifier: Apache-2.0
// Commands for what is configured: VSANs, ports, the system's texts, roles.
#include <fmt/format.h>

#include "tool/commands.h"

namespace vswitchctl {

namespace {

void add_vsan_options(Command &command) {
    command.text("--name", "name", "At most 32 characters, without blanks");
    command.word("--state", "state", "active or suspended", "STATE", texts_of(state_words));
    command.number("--mtu", "mtu", "Greatest frame, in bytes", {}, {VSAN_MTU_MIN, VSAN_MTU_MAX});
    command.word("--load-balancing", "loadBalancing", "What chooses a frame's path", "KIND",
                 texts_of(load_balancing_words));
    command.number("--interop", "interop", "Interoperability mode, 1 to 4, or none", interop_words,
                   {VSAN_INTEROP_MIN, VSAN_INTEROP_MAX});
    command.on_off("--inorder-delivery", "inorderDelivery", "Whether frames keep their order");
    command.number("--drop-latency", "networkDropLatency", "Network drop latency, in milliseconds", {},
                   {VSAN_DROP_LATENCY_MIN, VSAN_DROP_LATENCY_MAX});
}

void add_vsan_changes(Commands &commands) {
    Command create(commands, "vsan create", "Creates a VSAN",
                   "  vswitchctl vsan create 50\n  vswitchctl vsan create 50 --name tests --state suspended");
    create.number("id", "id", "VSAN number, 1 to 4095", {}, vsan_number_bounds)->required();
    add_vsan_options(create);
    create.flag("--may-exist", "mayExist", "One that exists is set to what is named");
    create.changes("vsan.create", print_vsan);
    Command set(commands, "vsan set", "Changes a VSAN; what is not named stays as it is",
                "  vswitchctl vsan set 50 --name lab --mtu 2048\n  vswitchctl vsan set 50 --state active");
    set.number("id", "id", "VSAN number", {}, vsan_number_bounds)->required();
    add_vsan_options(set);
    set.finish([](Json &arguments) {
        if (arguments.size() < 2) {
            throw UsageError("one of the options that change something is needed");
        }
    });
    set.changes("vsan.set", print_vsan);
    Command remove(commands, "vsan delete", "Deletes a VSAN; its ports move to VSAN 1", "  vswitchctl vsan delete 50");
    remove.number("id", "id", "VSAN number", {}, vsan_number_bounds)->required();
    remove.flag("--if-exists", "ifExists", "One that is not there is no failure");
    remove.changes("vsan.delete", [](const Json &reply) {
        if (reply.value("absent", false)) {
            fmt::print("There was no VSAN {}\n", reply.at("id").get<unsigned>());
            return;
        }
        fmt::print("VSAN {} deleted; ports moved to VSAN 1: {}\n", reply.at("id").get<unsigned>(),
                   reply.at("movedPorts").get<unsigned>());
    });
}

constexpr const char *which_port = "The port's ifIndex, or fcN for the Nth port";

// Makes of `off` and of the counters that were named what the switch is told.
void finish_traffic(Json &arguments) {
    const bool ends = arguments.erase("off") > 0;
    Json traffic = Json::object();
    for (const Counter &counter : counters) {
        if (const auto named = arguments.find(counter.key); named != arguments.end()) {
            traffic[counter.key] = *named;
            arguments.erase(named);
        }
    }
    if (ends != traffic.empty()) {
        throw UsageError("either off is needed, or some of the options that say how much");
    }
    for (const Counter &counter : counters) {
        if (ends) {
            traffic[counter.key] = 0;
        }
    }
    arguments["traffic"] = traffic;
}

// Commands that set one thing of a port, see port.set.
void add_port_settings(Commands &commands) {
    Command speed(commands, "port speed", "Sets a port's speed", "  vswitchctl port speed fc3 16000");
    speed.port("port", which_port)->required();
#define SPEED_WORD(speed) std::to_string(speed),
    const Values speeds{Values::Kind::words, {PORT_SPEEDS(SPEED_WORD)}};
#undef SPEED_WORD
    speed
        .completes(speed.number("speed", "speedMbps", "In Mbit/s: 2000, 4000, 8000, 16000 or 32000", {}, {2000, 32000}),
                   speeds)
        ->required();
    speed.changes("port.set", print_port_settings);
    Command alias(commands, "port alias", "Sets a port's alias", "  vswitchctl port alias fc3 tape_library");
    alias.port("port", which_port)->required();
    alias.text("alias", "alias", "At most 64 bytes, without control characters; '' for none")->required();
    alias.changes("port.set", print_port_settings);
    const auto add_state = [&](const char *name, bool enabled, const char *description) {
        Command state(commands, name, description, fmt::format("  vswitchctl {} fc3", name));
        state.port("port", which_port)->required();
        state.always("enabled", enabled);
        state.changes("port.set", print_port_settings);
    };
    add_state("port enable", true, "Takes a port into service");
    add_state("port disable", false, "Takes a port out of service, whatever its cable");
    Command traps(commands, "port traps", "Whether a port's going up and down is told as a notification",
                  "  vswitchctl port traps fc3 off");
    traps.port("port", which_port)->required();
    traps.on_off("on", "traps", "on or off")->required();
    traps.changes("port.set", print_port_settings);
    Command traffic(commands, "port traffic", "Simulates traffic; what is not named stays as it is",
                    "  vswitchctl port traffic fc3 --in-octets 120000000 --in-frames 60000\n"
                    "  vswitchctl port traffic fc3 off");
    traffic.port("port", which_port)->required();
    traffic.word("off", "off", "Ends it", "off", {"off"});
    for (const Counter &counter : counters) {
        traffic.number(fmt::format("--{}", counter.word), counter.key, "A second, while the port is up");
    }
    traffic.finish(finish_traffic);
    traffic.changes("port.set", print_port_settings);
}

} // namespace

void add_vsan(Commands &commands) {
    commands.group("vsan", "The switch's VSANs", "  vswitchctl vsan\n  vswitchctl vsan create 50 --name tests");
    Command list(commands, "vsan list", "All VSANs, the default",
                 "  vswitchctl vsan list\n  vswitchctl vsan list --json");
    list.lists("vsan.list", "vsans", "id", print_vsans);
    Command one(commands, "vsan show", "One VSAN", "  vswitchctl vsan show 10");
    one.number("id", "id", "VSAN number", {}, vsan_number_bounds)->required();
    one.looks("vsan.show", print_vsan);
    add_vsan_changes(commands);
}

void add_port(Commands &commands) {
    commands.group("port", "The switch's ports, by ifIndex or as fc1, fc2, ...",
                   "  vswitchctl port\n  vswitchctl port move fc3 10");
    Command list(commands, "port list", "All ports, the default",
                 "  vswitchctl port list\n  vswitchctl port list --vsan 10");
    list.number("--vsan", "vsan", "Only the ports of this VSAN", {}, vsan_number_bounds);
    list.lists("port.list", "ports", "ifIndex", print_ports);
    Command one(commands, "port show", "One port", "  vswitchctl port show fc3");
    one.port("port", which_port)->required();
    one.looks("port.show", print_port_settings);
    Command move(commands, "port move", "Moves a port to a VSAN",
                 "  vswitchctl port move fc3 10\n  vswitchctl port move 16785408 10");
    move.port("port", which_port)->required();
    move.number("vsan", "vsan", "VSAN number", {}, vsan_number_bounds)->required();
    move.changes("port.move", print_port);
    const auto add_link = [&](const char *name, const char *command, const char *description) {
        Command link(commands, name, description, fmt::format("  vswitchctl {} fc3", name));
        link.port("port", which_port)->required();
        link.changes(command, print_port);
    };
    add_link("port up", "port.up", "Plugs the cable in");
    add_link("port down", "port.down", "Pulls the cable");
    Command deny(commands, "port deny", "Sets a port's deny list", "  vswitchctl port deny fc3 0x5");
    deny.port("port", which_port)->required();
    deny.number("value", "denyList", "The list's bits")->required();
    deny.changes("port.deny", print_port);
    add_port_settings(commands);
}

void add_system(Commands &commands) {
    commands.group("system", "What the switch says of itself",
                   "  vswitchctl system\n  vswitchctl system location rack_7");
    Command one(commands, "system show", "Its texts and its world wide name, the default", "  vswitchctl system show");
    one.looks("system.show", print_system);
    const auto add = [&](const char *word, const char *description, const char *example) {
        const std::string name = fmt::format("system {}", word);
        Command set(commands, name, description, fmt::format("  vswitchctl {} {}", name, example));
        set.text("text", word, "At most 255 bytes, without control characters; '' for none")->required();
        set.changes("system.set", print_system);
    };
    add("name", "Sets the switch's name", "edge-1");
    add("contact", "Sets whom to ask about it", "alice@example.net");
    add("location", "Sets where it stands", "rack_7");
}

void add_role(Commands &commands) {
    commands.group("role", "Which users are restricted to which VSANs and ports",
                   "  vswitchctl role\n  vswitchctl role add tapes --vsans 30 --users alice");
    Command list(commands, "role list", "All roles, the default", "  vswitchctl role list");
    list.lists("role.list", "roles", "name", print_roles);
    Command add(commands, "role add", "Adds a role; its users are restricted at once",
                "  vswitchctl role add tapes --vsans 1,30-39 --interfaces 16777216 --users alice,bob\n"
                "  vswitchctl role add tapes --vsans 1 --users alice --replace");
    add.text("name", "name", "The role's name", "NAME")->required();
    add.texts("--vsans", "vsans", "VSANs that its users may touch", "N,N-N,...");
    add.texts("--interfaces", "interfaces", "Ports that its users may touch, by ifIndex", "N,N-N,...");
    add.texts("--users", "users", "SNMP users, or for v1 and v2c communities", "NAME,...");
    add.flag("--replace", "replace", "Replace a role of that name");
    add.flag("--may-exist", "mayExist", "A role of that name is set to what is named");
    add.changes("role.add", [](const Json &reply) { print_roles({{"roles", {reply}}}); });
    Command remove(commands, "role remove", "Removes a role", "  vswitchctl role remove tapes");
    remove.completes(remove.text("name", "name", "The role's name", "NAME"), {Values::Kind::roles, {}})->required();
    remove.flag("--if-exists", "ifExists", "One that is not there is no failure");
    remove.changes("role.remove", [](const Json &reply) {
        const std::string name = reply.at("name");
        fmt::print("{}\n",
                   reply.value("absent", false) ? "There was no role " + name : fmt::format("Role {} removed", name));
    });
}

} // namespace vswitchctl
