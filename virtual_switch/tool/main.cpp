// SPDX-License-Identifier: Apache-2.0
// vswitchctl, the operator's tool: its command line.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fmt/format.h>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <thread>

#include "contract/run_directory.h"
#include "tool/history.h"
#include "tool/object_names.h"
#include "tool/print.h"
#include "tool/words.h"

namespace {

using vswitchctl::Json;
using Printer = void (*)(const Json &);

constexpr int exit_refused = 1;
constexpr int exit_usage = 2;

// Does without, where nobody can be told: standard error may be a full disk.
void complain(const std::string &sentence) {
    std::fputs(fmt::format("vswitchctl: {}\n", sentence).c_str(), stderr);
}

bool as_json = false;

void show(const Json &reply, Printer print) {
    if (as_json) {
        vswitchctl::print_json(reply);
    } else {
        print(reply);
    }
}

// What the words of the command line make of one command of the tool.
std::map<const CLI::App *, std::function<void()>> actions;

[[noreturn]] void wrong_value(const std::string &option, const std::string &text, const std::string &wanted) {
    throw CLI::ValidationError(option, fmt::format("'{}' is not {}", text, wanted));
}

// A number, decimal or after 0x hexadecimal, or a word that stands for one.
uint32_t number(const std::string &option, const std::string &text, vswitchctl::Words words) {
    for (const auto &[word, value] : words) {
        if (text == word) {
            return value;
        }
    }
    const bool hexadecimal = text.starts_with("0x");
    const char *end = text.data() + text.size();
    uint32_t value = 0;
    const auto result = std::from_chars(text.data() + (hexadecimal ? 2 : 0), end, value, hexadecimal ? 16 : 10);
    if (result.ec == std::errc() && result.ptr == end) {
        return value;
    }
    std::string wanted = "a number from 0 to 4294967295";
    for (const auto &[word, stands_for] : words) {
        wanted += fmt::format(", {}", word);
    }
    wrong_value(option, text, wanted);
}

bool on_or_off(const std::string &option, const std::string &text) {
    if (text != "on" && text != "off") {
        wrong_value(option, text, "on or off");
    }
    return text == "on";
}

// A port as the switch takes it: its ifIndex, or its name.
Json port(const std::string &option, const std::string &text) {
    if (text.starts_with("fc") && text.size() > 2 && text.size() < 8 &&
        text.find_first_not_of("0123456789", 2) == std::string::npos) {
        return text;
    }
    if (text.find_first_not_of("0123456789") != std::string::npos) {
        wrong_value(option, text, "an ifIndex or fc1, fc2, ...");
    }
    return number(option, text, {});
}

// One command of the tool: its options, and with them the arguments of the switch's command.
class Command {
  public:
    Command(CLI::App &parent, const std::string &name, const std::string &description, const std::string &examples)
        : app_(parent.add_subcommand(name, description)), arguments_(std::make_shared<Json>(Json::object())) {
        app_->fallthrough();
        app_->footer("Examples:\n" + examples);
    }

    CLI::App &app() { return *app_; }
    std::shared_ptr<Json> arguments() { return arguments_; }

    CLI::Option *number(const std::string &option, const char *key, const std::string &help,
                        vswitchctl::Words words = {}) {
        return text_option(option, key, help, "N", [words](const std::string &name, const std::string &text) -> Json {
            return ::number(name, text, words);
        });
    }
    CLI::Option *text(const std::string &option, const char *key, const std::string &help, const char *type = "TEXT") {
        return text_option(option, key, help, type, [](const std::string &name, const std::string &given) -> Json {
            if (!vswitchctl::is_utf8(given)) {
                throw CLI::ValidationError(name, "is not UTF-8");
            }
            return given;
        });
    }
    CLI::Option *on_off(const std::string &option, const char *key, const std::string &help) {
        return text_option(option, key, help, "on|off", [](const std::string &name, const std::string &given) -> Json {
            return on_or_off(name, given);
        });
    }
    CLI::Option *port(const std::string &option, const std::string &help) {
        return text_option(option, "ifIndex", help, "PORT", ::port);
    }
    void flag(const std::string &option, const char *key, const std::string &help) {
        app_->add_flag_callback(
            option, [arguments = arguments_, key] { (*arguments)[key] = true; }, help);
    }
    // Texts separated by commas.
    void texts(const std::string &option, const char *key, const std::string &help, const char *type) {
        text_option(option, key, help, type, [](const std::string &, const std::string &given) {
            Json list = Json::array();
            for (const std::string &item : CLI::detail::split(given, ',')) {
                list.push_back(item);
            }
            return list;
        });
    }

    void run(std::function<void()> action) { actions[app_] = std::move(action); }
    void looks(const char *command, Printer print) {
        run([=, arguments = arguments_] { show(vswitchctl::look(command, *arguments), print); });
    }
    void lists(const char *command, const char *key, const char *after, Printer print) {
        run([=, arguments = arguments_] { show(vswitchctl::list(command, key, after, *arguments), print); });
    }
    void changes(const char *command, Printer print) {
        run([=, arguments = arguments_] { show(vswitchctl::change(command, *arguments), print); });
    }

  private:
    template <typename Convert>
    CLI::Option *text_option(const std::string &option, const char *key, const std::string &help, const char *type,
                             Convert convert) {
        return app_
            ->add_option_function<std::string>(
                option,
                [arguments = arguments_, key, option, convert](const std::string &text) {
                    (*arguments)[key] = convert(option, text);
                },
                help)
            ->type_name(type);
    }

    CLI::App *app_;
    std::shared_ptr<Json> arguments_;
};

// A command that only groups others. Given alone, it does what `otherwise` does.
CLI::App &add_group(CLI::App &app, const char *name, const char *description, const char *examples) {
    CLI::App *group = app.add_subcommand(name, description);
    group->fallthrough();
    group->require_subcommand(0, 1);
    group->footer(std::string("Examples:\n") + examples);
    return *group;
}

void same_as(CLI::App &group, Command &command) {
    actions[&group] = actions.at(&command.app());
}

void add_vsan_options(Command &command) {
    command.text("--name", "name", "At most 32 characters, without blanks");
    command.text("--state", "state", "active or suspended", "STATE")
        ->check(CLI::IsMember(vswitchctl::texts_of(vswitchctl::state_words)));
    command.number("--mtu", "mtu", "Greatest frame, in bytes");
    command.text("--load-balancing", "loadBalancing", "What chooses a frame's path", "KIND")
        ->check(CLI::IsMember(vswitchctl::texts_of(vswitchctl::load_balancing_words)));
    command.number("--interop", "interop", "Interoperability mode, 1 to 4, or none", vswitchctl::interop_words);
    command.on_off("--inorder-delivery", "inorderDelivery", "Whether frames keep their order");
    command.number("--drop-latency", "networkDropLatency", "Network drop latency, in milliseconds");
}

void add_vsan(CLI::App &app) {
    CLI::App &group =
        add_group(app, "vsan", "The switch's VSANs", "  vswitchctl vsan\n  vswitchctl vsan create 50 --name tests");
    Command list(group, "list", "All VSANs, the default", "  vswitchctl vsan list\n  vswitchctl vsan list --json");
    list.lists("vsan.list", "vsans", "id", vswitchctl::print_vsans);
    same_as(group, list);
    Command one(group, "show", "One VSAN", "  vswitchctl vsan show 10");
    one.number("id", "id", "VSAN number")->required();
    one.looks("vsan.show", vswitchctl::print_vsan);
    Command create(group, "create", "Creates a VSAN",
                   "  vswitchctl vsan create 50\n  vswitchctl vsan create 50 --name tests --state suspended");
    create.number("id", "id", "VSAN number, 1 to 4095")->required();
    add_vsan_options(create);
    create.changes("vsan.create", vswitchctl::print_vsan);
    Command set(group, "set", "Changes a VSAN; what is not named stays as it is",
                "  vswitchctl vsan set 50 --name lab --mtu 2048\n  vswitchctl vsan set 50 --state active");
    set.number("id", "id", "VSAN number")->required();
    add_vsan_options(set);
    set.run([arguments = set.arguments()] {
        if (arguments->size() < 2) {
            throw CLI::RequiredError("One of the options that change something");
        }
        show(vswitchctl::change("vsan.set", *arguments), vswitchctl::print_vsan);
    });
    Command remove(group, "delete", "Deletes a VSAN; its ports move to VSAN 1", "  vswitchctl vsan delete 50");
    remove.number("id", "id", "VSAN number")->required();
    remove.changes("vsan.delete", [](const Json &reply) {
        fmt::print("VSAN {} deleted; ports moved to VSAN 1: {}\n", reply.at("id").get<unsigned>(),
                   reply.at("movedPorts").get<unsigned>());
    });
}

// Commands that set one thing of a port, see port.set.
void add_port_traffic(CLI::App &group, const char *which) {
    Command traffic(group, "traffic", "Simulates traffic; what is not named stays as it is",
                    "  vswitchctl port traffic fc3 --in-octets 120000000 --in-frames 60000\n"
                    "  vswitchctl port traffic fc3 off");
    traffic.port("port", which)->required();
    const auto off = std::make_shared<std::string>();
    traffic.app().add_option("off", *off, "Ends it")->type_name("off")->check(CLI::IsMember({"off"}));
    for (const vswitchctl::Counter &counter : vswitchctl::counters) {
        traffic.app()
            .add_option_function<std::string>(
                fmt::format("--{}", counter.word),
                [arguments = traffic.arguments(), counter](const std::string &text) {
                    (*arguments)["traffic"][counter.key] = number(fmt::format("--{}", counter.word), text, {});
                },
                "A second, while the port is up")
            ->type_name("N");
    }
    traffic.run([arguments = traffic.arguments(), off] {
        if (off->empty() != arguments->contains("traffic")) {
            throw CLI::RequiredError("Either off, or one of the options that say how much,");
        }
        for (const vswitchctl::Counter &counter : vswitchctl::counters) {
            if (!off->empty()) {
                (*arguments)["traffic"][counter.key] = 0;
            }
        }
        show(vswitchctl::change("port.set", *arguments), vswitchctl::print_port_settings);
    });
}

void add_port_settings(CLI::App &group, const char *which) {
    Command speed(group, "speed", "Sets a port's speed", "  vswitchctl port speed fc3 16000");
    speed.port("port", which)->required();
    speed.number("speed", "speedMbps", "In Mbit/s: 2000, 4000, 8000, 16000 or 32000")->required();
    speed.changes("port.set", vswitchctl::print_port_settings);
    Command alias(group, "alias", "Sets a port's alias", "  vswitchctl port alias fc3 tape_library");
    alias.port("port", which)->required();
    alias.text("alias", "alias", "At most 64 bytes, without control characters; '' for none")->required();
    alias.changes("port.set", vswitchctl::print_port_settings);
    const auto add_state = [&](const char *name, bool enabled, const char *description) {
        Command state(group, name, description, fmt::format("  vswitchctl port {} fc3", name));
        state.port("port", which)->required();
        (*state.arguments())["enabled"] = enabled;
        state.changes("port.set", vswitchctl::print_port_settings);
    };
    add_state("enable", true, "Takes a port into service");
    add_state("disable", false, "Takes a port out of service, whatever its cable");
    Command traps(group, "traps", "Whether a port's going up and down is told as a notification",
                  "  vswitchctl port traps fc3 off");
    traps.port("port", which)->required();
    traps.on_off("on", "traps", "on or off")->required();
    traps.changes("port.set", vswitchctl::print_port_settings);
    add_port_traffic(group, which);
}

void add_port(CLI::App &app) {
    CLI::App &group = add_group(app, "port", "The switch's ports, by ifIndex or as fc1, fc2, ...",
                                "  vswitchctl port\n  vswitchctl port move fc3 10");
    const char *which = "The port's ifIndex, or fcN for the Nth port";
    Command list(group, "list", "All ports, the default", "  vswitchctl port list\n  vswitchctl port list --vsan 10");
    list.number("--vsan", "vsan", "Only the ports of this VSAN");
    list.lists("port.list", "ports", "ifIndex", vswitchctl::print_ports);
    same_as(group, list);
    Command one(group, "show", "One port", "  vswitchctl port show fc3");
    one.port("port", which)->required();
    one.run([arguments = one.arguments()] {
        const Json &wanted = arguments->at("ifIndex");
        const Json reply = vswitchctl::list("port.list", "ports", "ifIndex");
        for (const Json &port : reply.at("ports")) {
            if (port.at("ifIndex") == wanted || port.at("name") == wanted) {
                return show(port, vswitchctl::print_port_settings);
            }
        }
        throw vswitchctl::Refusal(fmt::format("There is no port {}.", wanted.dump()));
    });
    Command move(group, "move", "Moves a port to a VSAN",
                 "  vswitchctl port move fc3 10\n  vswitchctl port move 16785408 10");
    move.port("port", which)->required();
    move.number("vsan", "vsan", "VSAN number")->required();
    move.changes("port.move", vswitchctl::print_port);
    Command up(group, "up", "Plugs the cable in", "  vswitchctl port up fc3");
    up.port("port", which)->required();
    up.changes("port.up", vswitchctl::print_port);
    Command down(group, "down", "Pulls the cable", "  vswitchctl port down fc3");
    down.port("port", which)->required();
    down.changes("port.down", vswitchctl::print_port);
    Command deny(group, "deny", "Sets a port's deny list", "  vswitchctl port deny fc3 0x5");
    deny.port("port", which)->required();
    deny.number("value", "denyList", "The list's bits")->required();
    deny.changes("port.deny", vswitchctl::print_port);
    add_port_settings(group, which);
}

void add_system(CLI::App &app) {
    CLI::App &group = add_group(app, "system", "What the switch says of itself",
                                "  vswitchctl system\n  vswitchctl system location rack_7");
    Command one(group, "show", "Its texts and its world wide name, the default", "  vswitchctl system show");
    one.looks("system.show", vswitchctl::print_system);
    same_as(group, one);
    const auto add = [&group](const char *word, const char *description, const char *example) {
        Command set(group, word, description, fmt::format("  vswitchctl system {} {}", word, example));
        set.text("text", word, "At most 255 bytes, without control characters; '' for none")->required();
        set.changes("system.set", vswitchctl::print_system);
    };
    add("name", "Sets the switch's name", "edge-1");
    add("contact", "Sets whom to ask about it", "alice@example.net");
    add("location", "Sets where it stands", "rack_7");
}

void add_role(CLI::App &app) {
    CLI::App &group = add_group(app, "role", "Which users are restricted to which VSANs and ports",
                                "  vswitchctl role\n  vswitchctl role add tapes --vsans 30 --users alice");
    Command list(group, "list", "All roles, the default", "  vswitchctl role list");
    list.lists("role.list", "roles", "name", vswitchctl::print_roles);
    same_as(group, list);
    Command add(group, "add", "Adds a role; its users are restricted at once",
                "  vswitchctl role add tapes --vsans 1,30-39 --interfaces 16777216 --users alice,bob\n"
                "  vswitchctl role add tapes --vsans 1 --users alice --replace");
    add.text("name", "name", "The role's name", "NAME")->required();
    add.texts("--vsans", "vsans", "VSANs that its users may touch", "N,N-N,...");
    add.texts("--interfaces", "interfaces", "Ports that its users may touch, by ifIndex", "N,N-N,...");
    add.texts("--users", "users", "SNMP users, or for v1 and v2c communities", "NAME,...");
    add.flag("--replace", "replace", "Replace a role of that name");
    add.changes("role.add", [](const Json &reply) { vswitchctl::print_roles({{"roles", {reply}}}); });
    Command remove(group, "remove", "Removes a role", "  vswitchctl role remove tapes");
    remove.text("name", "name", "The role's name", "NAME")->required();
    remove.changes("role.remove",
                   [](const Json &reply) { fmt::print("Role {} removed\n", reply.at("name").get<std::string>()); });
}

void add_timers_set(CLI::App &group) {
    Command set(group, "set", "Changes one of them",
                "  vswitchctl timers set ratov 12000\n  vswitchctl timers set edtov 9000 --vsan 10 --force\n"
                "  vswitchctl timers set network-latency 3000\n  vswitchctl timers set inorder-delivery on");
    const auto value = std::make_shared<std::string>();
    set.text("setting", "setting", "edtov, ratov, dstov, fstov, switch-latency, network-latency or inorder-delivery",
             "SETTING")
        ->required()
        ->check(CLI::IsMember(vswitchctl::setting_words()));
    set.app()
        .add_option("value", *value, "Milliseconds; on or off for in-order delivery")
        ->required()
        ->type_name("VALUE");
    set.number("--vsan", "vsan", "Set the timer of this VSAN, not the switch's");
    set.flag("--force", "force", "Even where edtov would not be below ratov");
    set.run([arguments = set.arguments(), value] {
        Json &setting = (*arguments)["setting"];
        if (setting == vswitchctl::inorder_delivery.word) {
            setting = vswitchctl::inorder_delivery.key;
            (*arguments)["value"] = on_or_off("value", *value);
        } else {
            for (const vswitchctl::Setting &latency : vswitchctl::latencies) {
                if (setting == latency.word) {
                    setting = latency.key;
                }
            }
            (*arguments)["value"] = number("value", *value, {});
        }
        show(vswitchctl::change("timers.set", *arguments), [](const Json &reply) {
            fmt::print("{}{} is {}{}\n", reply.at("setting").get<std::string>(),
                       reply.contains("vsan") ? fmt::format(" of VSAN {}", reply["vsan"].get<unsigned>()) : "",
                       reply.at("value").dump(), reply.at("pending").get<bool>() ? ", once it is committed" : "");
        });
    });
}

void add_timers(CLI::App &app) {
    CLI::App &group = add_group(app, "timers", "Fabric timers, latencies and in-order delivery",
                                "  vswitchctl timers\n  vswitchctl timers set ratov 12000 --vsan 10");
    Command list(group, "show", "All of them, the default",
                 "  vswitchctl timers show\n  vswitchctl timers show --vsan 10");
    list.number("--vsan", "vsan", "Only this VSAN's");
    list.lists("timers.show", "vsans", "id", vswitchctl::print_timers);
    same_as(group, list);
    add_timers_set(group);
}

void add_tdx(CLI::App &app) {
    CLI::App &group = add_group(app, "tdx", "The distribution service of the fabric timers",
                                "  vswitchctl tdx\n  vswitchctl tdx enable\n  vswitchctl tdx commit");
    Command state(group, "show", "Its settings and its session, the default", "  vswitchctl tdx show");
    state.lists("tdx.show", "pending", "vsan", vswitchctl::print_tdx);
    same_as(group, state);
    const auto add = [&group](const char *name, const char *command, const char *description) {
        Command simple(group, name, description, fmt::format("  vswitchctl tdx {}", name));
        simple.changes(command, vswitchctl::print_tdx);
    };
    add("enable", "tdx.enable", "Lets the service govern the timers");
    add("disable", "tdx.disable", "Ends that");
    add("commit", "tdx.commit", "Puts the session's pending values into force");
    add("abort", "tdx.abort", "Drops the session's pending values");
    Command pending(group, "pending", "The session: its holder, and what is not yet committed",
                    "  vswitchctl tdx pending");
    pending.lists("tdx.show", "pending", "vsan", vswitchctl::print_pending);
    Command show_run(group, "show-run", "Whether reads show the running configuration all the same",
                     "  vswitchctl tdx show-run on");
    show_run.on_off("on", "on", "on or off")->required();
    show_run.changes("tdx.show-run", vswitchctl::print_tdx);
    Command refuse(group, "refuse", "Whether the service refuses, as it does without a fabric",
                   "  vswitchctl tdx refuse on");
    refuse.on_off("on", "on", "on or off")->required();
    refuse.changes("tdx.refuse", vswitchctl::print_tdx);
}

void print_histories(const Json &reply) {
    if (reply.at("histories").empty()) {
        fmt::print("No agent has left an event history.\n");
    }
    for (const Json &history : reply.at("histories")) {
        vswitchctl::print_history(history);
    }
}

void add_agent(CLI::App &app) {
    Command history(app, "event-history", "What the agent has recorded, oldest first",
                    "  vswitchctl event-history --last 20\n  vswitchctl event-history --class 100");
    const auto question = std::make_shared<vswitchctl::HistoryQuestion>();
    history.app().add_option("--name", question->name, "Only the history of this name")->type_name("NAME");
    history.app().add_option("--last", question->last, "Only so many of the latest records")->type_name("N");
    history.number("--class", "class", "Only one class: failures or trace", vswitchctl::class_words);
    history.run([arguments = history.arguments(), question] {
        if (arguments->contains("class")) {
            question->event_class = arguments->at("class").get<uint32_t>();
        }
        show(vswitchctl::read_histories(*question), print_histories);
    });

    CLI::App &group = add_group(app, "debug", "What the agent records and prints",
                                "  vswitchctl debug\n  vswitchctl debug set 101 history on");
    Command filters(group, "show", "The filters, the default", "  vswitchctl debug show");
    filters.looks("debug.show", vswitchctl::print_filters);
    same_as(group, filters);
    Command set(group, "set", "Sets a filter; the agent goes by it within a quarter of a second",
                "  vswitchctl debug set 101 history on\n  vswitchctl debug set failures debug off");
    set.number("class", "class", "100 or failures, 101 or trace, or another number", vswitchctl::class_words)
        ->required();
    set.text("what", "what", "history or debug", "WHAT")->required()->check(CLI::IsMember({"history", "debug"}));
    set.on_off("on", "on", "on or off")->required();
    set.changes("debug.set", vswitchctl::print_filters);
}

void print_fault(const Json &reply) {
    vswitchctl::print_faults({{"faults", {reply}}, {"fetched", reply.value("fetched", true)}});
}

// Whether the agent goes by the faults as they are now. It is told of a change at once, so a script
// may go on with what is to meet them; an agent that does not ask is not waited for longer.
bool agent_knows_faults() {
    constexpr int tries = 50;
    for (int turn = 0; turn < tries; ++turn) {
        const Json reply = vswitchctl::look("fault.list", {{"limit", 1}});
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

const vswitchctl::ClientFaultWord &client_fault(const std::string &word) {
    return *std::find_if(std::begin(vswitchctl::client_fault_words), std::end(vswitchctl::client_fault_words),
                         [&](const vswitchctl::ClientFaultWord &row) { return row.word == word; });
}

// The options of a client fault that are not handed on as they are.
struct ClientFaultChoice {
    std::string object, from, to;
};

// Which messages a client fault is for.
void add_choice(Command &command, ClientFaultChoice &choice) {
    command.app()
        .add_option("--oid", choice.object,
                    "Messages with a name that begins with this one: vsanName, vsanName.10, 1.3.6.1")
        ->type_name("OID");
    command.texts("--pdu", "pdus", "get, get-next, get-bulk, set; of notifications trap, inform", "TYPE,...");
    command.text("--user", "user", "SNMP user, or for v1 and v2c community", "NAME");
    command.app().add_option("--from", choice.from, "Requests from this address")->type_name("ADDRESS[/BITS]");
    command.app().add_option("--to", choice.to, "Notifications to this address")->type_name("ADDRESS[/BITS]");
    command.number("--times", "times", "Apply so many times, then no more");
    command.number("--after", "after", "Let so many messages pass first");
    command.number("--percent", "percent", "Apply to so many of a hundred, as chance will have it");
    command.number("--seed", "seed", "Another seed, another chance; by default 1");
}

// Adds what was chosen to the arguments of a client fault, or throws a CLI::ValidationError where it
// does not go with the fault's action.
void take_choice(Json &arguments, const ClientFaultChoice &choice) {
    const std::string word = arguments.at("action");
    const vswitchctl::ClientFaultWord &action = client_fault(word);
    if ((action.value != VALUE_NONE) != arguments.contains("value")) {
        throw CLI::ValidationError(word, action.value != VALUE_NONE ? "needs a value" : "takes no value");
    }
    const bool is_notification = action.about == ABOUT_NOTIFICATIONS;
    if (!(is_notification ? choice.from : choice.to).empty()) {
        throw CLI::ValidationError(word, is_notification ? "takes --to, not --from" : "takes --from, not --to");
    }
    const std::string &address = is_notification ? choice.to : choice.from;
    if (!address.empty()) {
        arguments["address"] = address;
    }
    if (!choice.object.empty()) {
        const auto oid = vswitchctl::oid_of(choice.object);
        if (!oid) {
            wrong_value("--oid", choice.object,
                        "an object of the switch such as vsanName, or numbers with dots between");
        }
        arguments["oid"] = *oid;
    }
}

// `of_managers` are the arguments of the command above: options that are no client fault's end there.
void add_client_fault(Command &above, const std::shared_ptr<Json> &of_managers) {
    Command command(above.app(), "client", "Sets a fault that the agent's clients meet, for the messages that agree",
                    "  vswitchctl fault add client lose-answer --oid vsanName --user alice --times 3\n"
                    "  vswitchctl fault add client delay-answer 1500 --deviation 500 --pdu get-bulk\n"
                    "  vswitchctl fault add client error genErr --index 2 --pdu set --percent 20 --seed 7\n"
                    "  vswitchctl fault add client too-big 1000 --from 192.0.2.0/24\n"
                    "  vswitchctl fault add client reboot-engine\n"
                    "  vswitchctl fault add client lose-notification --oid linkDown --to 192.0.2.7");
    std::vector<std::string> words;
    for (const auto &[word, about, value] : vswitchctl::client_fault_words) {
        words.emplace_back(word);
    }
    command
        .text("action", "action",
              "delay-answer and delay-notification MILLISECONDS, cut-answer and too-big BYTES, "
              "error STATUS; the others take no value",
              "ACTION")
        ->required()
        ->check(CLI::IsMember(words));
    command.number("value", "value", "Of these", vswitchctl::error_words)->type_name("VALUE");
    command.number("--deviation", "deviation", "Milliseconds by which a delay may differ, either way");
    command.number("--index", "index", "Which variable an error names, counted from 1; by default 0, none");
    const auto choice = std::make_shared<ClientFaultChoice>();
    add_choice(command, *choice);
    command.run([arguments = command.arguments(), of_managers, choice] {
        if (!of_managers->empty()) {
            throw CLI::ValidationError(fmt::format("--{}", of_managers->items().begin().key()),
                                       "is for faults of the managers");
        }
        take_choice(*arguments, *choice);
        Json reply = vswitchctl::change("fault.add-client", *arguments);
        reply["fetched"] = agent_knows_faults();
        show(reply, print_fault);
    });
}

void add_fault_add(CLI::App &group) {
    Command add(group, "add", "Sets a fault for the requests that agree with all of its options",
                "  vswitchctl fault add status store-failed --opcode vsan --kind set --times 1\n"
                "  vswitchctl fault add delay 3000 --service vsan\n"
                "  vswitchctl fault add no-data --port fc3\n  vswitchctl fault add short 600 --opcode vsan\n"
                "  vswitchctl fault add drop --opcode timer --vsan 10\n  vswitchctl fault add close --times 1\n"
                "  vswitchctl fault add exit --opcode vsan --kind set");
    add.text("action", "action",
             "status S, delay MILLISECONDS, no-data, short BYTES, drop, close or exit (of the whole switch)", "ACTION")
        ->check(CLI::IsMember({"status", "delay", "no-data", "short", "drop", "close", "exit"}));
    add.number("value", "value", "Of status, delay and short", vswitchctl::status_words())->type_name("VALUE");
    add.flag("--with-data", "withData", "With status: carry the request out, and answer its data, too");
    add.number("--service", "service", "vsan, port, roles, distribution or a number", vswitchctl::service_words);
    add.number("--opcode", "opcode", "vsan, interface, timer, latency, ... or a number", vswitchctl::opcode_words);
    add.number("--kind", "kind", "get, get-next, set, delete, distributed-get or a number", vswitchctl::kind_words);
    add.number("--vsan", "vsan", "Requests whose record names this VSAN");
    const auto port_name = std::make_shared<std::string>();
    add.app().add_option("--port", *port_name, "Requests whose record names this port")->type_name("PORT");
    add.number("--times", "times", "Apply so many times, then no more");
    add_client_fault(add, add.arguments());
    add.run([arguments = add.arguments(), port_name] {
        if (!arguments->contains("action")) {
            throw CLI::RequiredError("action");
        }
        const std::string action = arguments->at("action");
        const bool takes_value = action == "status" || action == "delay" || action == "short";
        if (takes_value != arguments->contains("value")) {
            throw CLI::ValidationError(action, takes_value ? "needs a value" : "takes no value");
        }
        if (!port_name->empty()) {
            port("--port", *port_name);
            (*arguments)["ifIndex"] = vswitchctl::find_port(*port_name);
        }
        show(vswitchctl::change("fault.add", *arguments), print_fault);
    });
}

void add_fault(CLI::App &app) {
    CLI::App &group =
        add_group(app, "fault", "Makes the switch and its agent fail on purpose, to test who manages them",
                  "  vswitchctl fault add status no-such-vsan --vsan 10 --times 1\n"
                  "  vswitchctl fault add delay 3000 --opcode vsan\n  vswitchctl fault clear");
    Command list(group, "list", "The faults that are set, the default", "  vswitchctl fault list");
    list.lists("fault.list", "faults", "number", vswitchctl::print_faults);
    same_as(group, list);
    add_fault_add(group);
    Command clear(group, "clear", "Removes one fault, or all", "  vswitchctl fault clear\n  vswitchctl fault clear 2");
    clear.number("number", "number", "The fault's number");
    clear.run([arguments = clear.arguments()] {
        const Json reply = vswitchctl::change("fault.clear", *arguments);
        agent_knows_faults();
        show(reply, [](const Json &done) { fmt::print("Faults cleared: {}\n", done.at("cleared").get<unsigned>()); });
    });
    Command storm(group, "storm", "Publishes events that nothing has caused, all at once",
                  "  vswitchctl fault storm 10000\n  vswitchctl fault storm 100 --class 102");
    storm.number("count", "count", "How many")->required();
    storm.number("--class", "class", "145, VSAN events, or 102, port events");
    storm.number("--vsan", "vsan", "About which VSAN, by default 1");
    storm.changes("events.inject", [](const Json &reply) {
        fmt::print("Events published: {}\n", reply.at("published").get<unsigned>());
    });
}

void add_watch(CLI::App &app) {
    Command command(app, "watch", "Prints the switch's events as they happen",
                    "  vswitchctl watch\n  vswitchctl watch --count 1 --json");
    command.number("--count", "count", "End after so many events");
    command.run([arguments = command.arguments()] {
        const auto count = arguments->find("count");
        vswitchctl::watch(as_json, count == arguments->end() ? std::nullopt : std::optional<uint32_t>(*count));
    });
}

void add_show(CLI::App &app) {
    Command command(app, "show", "The whole switch at a glance", "  vswitchctl show\n  vswitchctl show --json");
    command.run([] {
        Json reply = vswitchctl::look("switch.show");
        reply["vsanList"] = vswitchctl::list("vsan.list", "vsans", "id")["vsans"];
        reply["portList"] = vswitchctl::list("port.list", "ports", "ifIndex")["ports"];
        show(reply, vswitchctl::print_switch);
    });
}

const CLI::App &chosen(const CLI::App &app) {
    const auto below = app.get_subcommands();
    return below.empty() ? app : chosen(*below.front());
}

} // namespace

int main(int argc, char **argv) {
    CLI::App app("Shows and changes the running virtual switch.", "vswitchctl");
    std::string run_directory;
    app.add_option("--run", run_directory,
                   "Run directory; default $" RUN_DIRECTORY_VARIABLE " or " RUN_DIRECTORY_DEFAULT)
        ->type_name("DIR");
    app.add_flag("--json", as_json, "Print JSON");
    app.set_version_flag("--version", "vswitchctl " VSWITCH_VERSION);
    app.require_subcommand(1);
    app.footer("'vswitchctl COMMAND --help' has examples of each command.\n"
               "Ends with 0 when done, 1 when the switch refused or did not answer, 2 when the\n"
               "command line is wrong.");
    add_show(app);
    add_vsan(app);
    add_port(app);
    add_system(app);
    add_role(app);
    add_timers(app);
    add_tdx(app);
    add_agent(app);
    add_fault(app);
    add_watch(app);
    try {
        app.parse(argc, argv);
        if (!run_directory.empty()) {
            setenv(RUN_DIRECTORY_VARIABLE, run_directory.c_str(), 1);
        }
        actions.at (&chosen(app))();
        return std::fflush(stdout) == 0 ? 0 : exit_refused;
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : exit_usage;
    } catch (const vswitchctl::Refusal &refusal) {
        complain(refusal.what());
        return exit_refused;
    } catch (const Json::exception &error) {
        complain(fmt::format("The switch answered something that this tool does not know ({}).", error.what()));
        return exit_refused;
    }
}
