// SPDX-License-Identifier: Apache-2.0
// Commands that make the switch, or its agent, fail on purpose.
#include <algorithm>
#include <chrono>
#include <fmt/format.h>
#include <thread>

#include "tool/commands.h"
#include "tool/object_names.h"

namespace vswitchctl {

namespace {

void print_fault(const Json &reply) {
    print_faults({{"faults", {reply}}, {"fetched", reply.value("fetched", true)}});
}

// Whether the agent goes by the faults as they are now. It is told of a change at once, so a script
// may go on with what is to meet them; an agent that does not ask is not waited for longer.
bool agent_knows_faults() {
    constexpr int tries = 50;
    for (int turn = 0; turn < tries; ++turn) {
        const Json reply = look("fault.list", {{"limit", 1}});
        if (reply.value("fetched", true)) {
            return true;
        }
        if (reply.at("agents") == 0) {
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
}

std::vector<std::string> client_actions() {
    std::vector<std::string> words;
    for (const auto &[word, about, value] : client_fault_words) {
        words.emplace_back(word);
    }
    return words;
}

// Which messages a client fault is for.
void add_choice(Command &command) {
    command.text("--oid", "oid", "Messages with a name that begins with this one: vsanName, vsanName.10, 1.3.6.1",
                 "OID");
#define PDU_WORD(number, name, word) word,
    const Values pdus{Values::Kind::words, {CLIENT_FAULT_PDUS(PDU_WORD)}};
#undef PDU_WORD
    command.completes(
        command.texts("--pdu", "pdus", "get, get-next, get-bulk, set; of notifications trap, inform", "TYPE,..."),
        pdus);
    command.text("--user", "user", "SNMP user, or for v1 and v2c community", "NAME");
    command.text("--from", "from", "Requests from this address", "ADDRESS[/BITS]");
    command.text("--to", "to", "Notifications to this address", "ADDRESS[/BITS]");
    command.number("--times", "times", "Apply so many times, then no more");
    command.number("--after", "after", "Let so many messages pass first");
    command.number("--percent", "percent", "Apply to so many of a hundred, as chance will have it", {}, {1, 100});
    command.number("--seed", "seed", "Another seed, another chance; by default 1");
}

void require_value(const std::string &action, bool wanted, const Json &arguments) {
    if (wanted != arguments.contains("value")) {
        throw UsageError(fmt::format("{} {}", action, wanted ? "needs a value" : "takes no value"));
    }
}

// What was chosen must go with the action, and is told in the switch's words.
void finish_client_fault(Json &arguments) {
    const std::string word = arguments.at("action");
    const ClientFaultWord &action = *std::find_if(std::begin(client_fault_words), std::end(client_fault_words),
                                                  [&](const ClientFaultWord &row) { return row.word == word; });
    require_value(word, action.value != VALUE_NONE, arguments);
    const bool is_notification = action.about == ABOUT_NOTIFICATIONS;
    if (arguments.contains(is_notification ? "from" : "to")) {
        throw UsageError(
            fmt::format("{} {}", word, is_notification ? "takes --to, not --from" : "takes --from, not --to"));
    }
    const char *side = is_notification ? "to" : "from";
    if (arguments.contains(side)) {
        arguments["address"] = arguments[side];
        arguments.erase(side);
    }
    if (arguments.contains("oid")) {
        const std::string object = arguments["oid"];
        const auto oid = oid_of(object);
        if (!oid) {
            wrong_value("--oid", object, "an object of the switch such as vsanName, or numbers with dots between");
        }
        arguments["oid"] = *oid;
    }
}

void add_client_fault(Commands &commands) {
    Command command(commands, "fault add client",
                    "Sets a fault that the agent's clients meet, for the messages that agree",
                    "  vswitchctl fault add client lose-answer --oid vsanName --user alice --times 3\n"
                    "  vswitchctl fault add client delay-answer 1500 --deviation 500 --pdu get-bulk\n"
                    "  vswitchctl fault add client error genErr --index 2 --pdu set --percent 20 --seed 7\n"
                    "  vswitchctl fault add client too-big 1000 --from 192.0.2.0/24\n"
                    "  vswitchctl fault add client reboot-engine\n"
                    "  vswitchctl fault add client lose-notification --oid linkDown --to 192.0.2.7");
    command
        .word("action", "action",
              "delay-answer and delay-notification MILLISECONDS, cut-answer and too-big BYTES, "
              "error STATUS; the others take no value",
              "ACTION", client_actions())
        ->required();
    command.number("value", "value", "Of these", error_words)->type_name("VALUE");
    command.number("--deviation", "deviation", "Milliseconds by which a delay may differ, either way");
    command.number("--index", "index", "Which variable an error names, counted from 1; by default 0, none");
    add_choice(command);
    command.finish(finish_client_fault);
    command.run([](const Json &arguments) {
        Json reply = change("fault.add-client", arguments);
        reply["fetched"] = agent_knows_faults();
        show(reply, print_fault);
    });
}

void add_fault_add(Commands &commands) {
    Command add(commands, "fault add", "Sets a fault for the requests that agree with all of its options",
                "  vswitchctl fault add status store-failed --opcode vsan --kind set --times 1\n"
                "  vswitchctl fault add delay 3000 --service vsan\n"
                "  vswitchctl fault add no-data --port fc3\n  vswitchctl fault add short 600 --opcode vsan\n"
                "  vswitchctl fault add drop --opcode timer --vsan 10\n  vswitchctl fault add close --times 1\n"
                "  vswitchctl fault add exit --opcode vsan --kind set\n"
                "  vswitchctl fault add exit 30 --times 1");
    add.word("action", "action",
             "status S, delay MILLISECONDS, no-data, short BYTES, drop, close or exit [SECONDS] (of the whole switch)",
             "ACTION", {"status", "delay", "no-data", "short", "drop", "close", "exit"})
        ->required();
    add.number("value", "value", "Of status, delay and short; of exit, how long it stays away", status_words())
        ->type_name("VALUE");
    add.flag("--with-data", "withData", "With status: carry the request out, and answer its data, too");
    add.number("--service", "service", "vsan, port, roles, distribution or a number", service_words);
    add.number("--opcode", "opcode", "vsan, interface, timer, latency, ... or a number", opcode_words);
    add.number("--kind", "kind", "get, get-next, set, delete, distributed-get or a number", kind_words);
    add.number("--vsan", "vsan", "Requests whose record names this VSAN");
    add.port("--port", "Requests whose record names this port")->type_name("PORT");
    add.number("--times", "times", "Apply so many times, then no more");
    add.finish([](Json &arguments) {
        const std::string action = arguments.at("action");
        if (action != "exit") {
            require_value(action, action == "status" || action == "delay" || action == "short", arguments);
        }
    });
    add.run([](Json arguments) {
        if (arguments.contains("ifIndex")) {
            arguments["ifIndex"] = find_port(arguments["ifIndex"]);
        }
        show(change("fault.add", arguments), print_fault);
    });
    add_client_fault(commands);
}

} // namespace

void add_fault(Commands &commands) {
    commands.group("fault", "Makes the switch and its agent fail on purpose, to test who manages them",
                   "  vswitchctl fault add status no-such-vsan --vsan 10 --times 1\n"
                   "  vswitchctl fault add delay 3000 --opcode vsan\n  vswitchctl fault clear");
    Command list(commands, "fault list", "The faults that are set, the default", "  vswitchctl fault list");
    list.lists("fault.list", "faults", "number", print_faults);
    add_fault_add(commands);
    Command clear(commands, "fault clear", "Removes one fault, or all",
                  "  vswitchctl fault clear\n  vswitchctl fault clear 2");
    clear.number("number", "number", "The fault's number");
    clear.run([](const Json &arguments) {
        const Json reply = change("fault.clear", arguments);
        agent_knows_faults();
        show(reply, [](const Json &done) { fmt::print("Faults cleared: {}\n", done.at("cleared").get<unsigned>()); });
    });
    Command storm(commands, "fault storm", "Publishes events that nothing has caused, all at once",
                  "  vswitchctl fault storm 10000\n  vswitchctl fault storm 100 --class 102");
    storm.number("count", "count", "How many")->required();
    storm.number("--class", "class", "145, VSAN events, or 102, port events");
    storm.number("--vsan", "vsan", "About which VSAN, by default 1", {}, vsan_number_bounds);
    storm.orders("events.inject", [](const Json &reply) {
        fmt::print("Events published: {}\n", reply.at("published").get<unsigned>());
    });
}

} // namespace vswitchctl
