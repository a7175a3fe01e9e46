// SPDX-License-Identifier: Apache-2.0
// The whole switch, timers, the distribution service, the agent's trace and faults in words.
#include <algorithm>
#include <cstdio>
#include <ctime>
#include <fmt/format.h>
#include <map>

#include "tool/object_names.h"
#include "tool/print.h"
#include "tool/table.h"
#include "tool/words.h"

namespace vswitchctl {

namespace {

std::string text(const Json &object, const char *key) {
    const Json &value = object.at(key);
    return value.is_string() ? value.get<std::string>() : value.dump();
}

std::string time_text(std::time_t seconds) {
    std::tm parts{};
    char line[40];
    gmtime_r(&seconds, &parts);
    return {line, std::strftime(line, sizeof line, "%Y-%m-%d %H:%M:%S UTC", &parts)};
}

// Positions in ascending order as "fc1-fc3,fc7".
std::string port_ranges(const std::vector<unsigned> &positions) {
    std::string line;
    for (size_t at = 0; at < positions.size();) {
        size_t last = at;
        while (last + 1 < positions.size() && positions[last + 1] == positions[last] + 1) {
            ++last;
        }
        line += fmt::format("{}fc{}", line.empty() ? "" : ",", positions[at]);
        if (last > at) {
            line += fmt::format("-{}", positions[last]);
        }
        at = last + 1;
    }
    return line.empty() ? "-" : line;
}

// The word of a number, or the number.
std::string word_or_number(Words words, uint32_t number) {
    const auto found = std::ranges::find(words, number, &Word::second);
    return found == words.end() ? fmt::format("{}", number) : std::string(found->first);
}

std::string timer_line(const Json &values) {
    std::string line;
    for (const char *timer : timer_words) {
        if (values.contains(timer)) {
            line += fmt::format("{}{} {}", line.empty() ? "" : ", ", timer, text(values, timer));
        }
    }
    return line;
}

std::string distribution(const Json &tdx) {
    std::string line = tdx.at("enabled").get<bool>() ? "on" : "off";
    if (tdx.at("showRun").get<bool>()) {
        line += ", reads show the running configuration";
    }
    if (tdx.value("refusing", false)) {
        line += ", refusing";
    }
    return line;
}

} // namespace

void print_switch(const Json &reply) {
    const auto number = [&](const char *group, const char *key) { return text(reply.at(group), key); };
    fmt::print("Switch {}, process {}\n", text(reply, "wwn"), text(reply, "pid"));
    fmt::print("  VSANs         {}, {} suspended, {} up\n", number("vsans", "total"), number("vsans", "suspended"),
               number("vsans", "up"));
    fmt::print("  Ports         {}, {} up\n", number("ports", "total"), number("ports", "up"));
    fmt::print("  Last change   {}\n", time_text(reply.at("lastChange").get<std::time_t>()));
    fmt::print("  Distribution  {}\n", distribution(reply.at("tdx")));
    if (reply.at("tdx").contains("heldBy")) {
        fmt::print("                session of {}\n", shortened(printable(number("tdx", "heldBy")), 50));
    }
    fmt::print("  Requests      {}\n", text(reply, "requests"));
    fmt::print("  Connections   {}, {} dropped, {} refused\n", number("connections", "open"),
               number("connections", "dropped"), number("connections", "refused"));
    fmt::print("  Events        {} published, {} without a receiver, {} dropped{}\n", number("events", "published"),
               number("events", "missed"), number("events", "dropped"),
               reply.at("statusEvents").get<bool>() ? "" : "; those of VSANs are off");
    for (const Json &subscriber : reply.at("subscribers")) {
        fmt::print("                receiver {}: {} delivered, {} waiting, {} dropped\n", text(subscriber, "number"),
                   text(subscriber, "delivered"), text(subscriber, "queued"), text(subscriber, "dropped"));
    }
    fmt::print("  Faults        {} set, applied {} times\n\n", number("faults", "active"), number("faults", "applied"));

    std::map<unsigned, std::vector<unsigned>> positions;
    unsigned position = 0;
    for (const Json &port : reply.at("portList")) {
        positions[port.at("vsan").get<unsigned>()].push_back(++position);
    }
    Table table({{"VSAN", true}, {"Name"}, {"State"}, {"Oper"}, {"Up/Ports", true}, {"Ports"}});
    for (const Json &vsan : reply.at("vsanList")) {
        table.add({text(vsan, "id"), text(vsan, "name"), text(vsan, "state"), text(vsan, "oper"),
                   text(vsan, "portsUp") + "/" + text(vsan, "ports"), port_ranges(positions[vsan.at("id")])});
    }
    table.print();
}

void print_timers(const Json &reply) {
    fmt::print("Switch: {} ms\n", timer_line(reply.at("switch")));
    fmt::print("  switch latency {} ms, network latency {} ms, in-order delivery {}\n\n", text(reply, "switchLatency"),
               text(reply, "networkLatency"), reply.at("inorderDelivery").get<bool>() ? "on" : "off");
    Table table({{"VSAN", true},
                 {"edtov", true},
                 {"ratov", true},
                 {"dstov", true},
                 {"fstov", true},
                 {"At the distribution service"}});
    for (const Json &vsan : reply.at("vsans")) {
        std::vector<std::string> row = {text(vsan, "id")};
        for (const char *timer : timer_words) {
            row.push_back(text(vsan.at("running"), timer) + (vsan.at("own").contains(timer) ? "*" : " "));
        }
        const std::string distributed = vsan.contains("distributed") ? timer_line(vsan["distributed"]) : "";
        row.push_back(distributed.empty() ? "-" : distributed);
        table.add(row);
    }
    table.print();
    fmt::print("* the VSAN's own value; the others are the switch's\n");
}

void print_pending(const Json &reply) {
    if (!reply.contains("user")) {
        fmt::print("No session is open.\n");
        return;
    }
    fmt::print("Session of {}\n", shortened(printable(text(reply, "user")), 60));
    for (const Json &change : reply.at("pending")) {
        const std::string vsan = text(change, "vsan");
        fmt::print("  {}: {} ms\n", vsan == "0" ? "switch" : "VSAN " + vsan, timer_line(change.at("timers")));
    }
}

void print_tdx(const Json &reply) {
    fmt::print("Distribution of the fabric timers: {}\n", distribution(reply));
    print_pending(reply);
}

void print_history(const Json &reply) {
    if (reply.at("records").empty()) {
        fmt::print("The history of {} is empty.\n", printable(text(reply, "name")));
    }
    for (const Json &record : reply.at("records")) {
        fmt::print("{} {}[{}] {}: {}\n", text(record, "time"), printable(text(reply, "name")), text(record, "pid"),
                   text(record, "class"), printable(text(record, "text")));
    }
}

void print_filters(const Json &reply) {
    Table table({{"Class", true}, {"History"}, {"Debug"}});
    for (const Json &filter : reply.at("classes")) {
        table.add({text(filter, "class"), filter.at("history").get<bool>() ? "on" : "off",
                   filter.at("debug").get<bool>() ? "on" : "off"});
    }
    table.print();
    const auto unusable = reply.at("unusableLines").get<unsigned>();
    if (unusable > 0) {
        fmt::print("{} of the file's lines cannot be understood.\n", unusable);
    }
}

namespace {

// What a fault does, in the words of the command that sets it.
std::string fault_action(const Json &fault) {
    const bool is_clients = fault.value("side", "") == "client";
    std::string action = (is_clients ? "client " : "") + text(fault, "action");
    if (fault.contains("status")) {
        action += " " + text(fault, "status") + (fault.at("withData").get<bool>() ? " with data" : "");
    }
    if (fault.contains("index")) {
        const auto status = fault.at("value").get<uint32_t>();
        action += " " + (status < std::size(error_words) ? word_of(error_words, status) : std::to_string(status));
        action += " at " + text(fault, "index");
    } else if (fault.contains("value")) {
        action += " " + text(fault, "value");
    }
    return action + (fault.contains("deviation") ? " +-" + text(fault, "deviation") : "");
}

// Which requests or notifications a fault is for.
std::string fault_match(const Json &fault) {
    std::string match;
    const auto add = [&](const std::string &words) { match += (match.empty() ? "" : ", ") + words; };
    for (const char *key : {"service", "opcode", "kind", "vsan", "ifIndex"}) {
        if (fault.contains(key)) {
            add(fmt::format("{} {}", key, text(fault, key)));
        }
    }
    if (fault.contains("pdus")) {
        for (const Json &pdu : fault["pdus"]) {
            add(pdu.get<std::string>());
        }
    }
    if (fault.contains("oid")) {
        add(name_of(text(fault, "oid")));
    }
    for (const char *key : {"user", "address", "after"}) {
        if (fault.contains(key)) {
            add(fmt::format("{} {}", key, printable(text(fault, key))));
        }
    }
    if (fault.contains("percent")) {
        add(text(fault, "percent") + " %");
    }
    if (fault.contains("seed")) {
        add("seed " + text(fault, "seed"));
    }
    return match.empty() ? "anything" : match;
}

} // namespace

void print_faults(const Json &reply) {
    if (reply.at("faults").empty()) {
        fmt::print("No faults.\n");
        return;
    }
    Table table({{"Fault", true}, {"Action"}, {"Left", true}, {"Applied", true}, {"For requests with"}});
    for (const Json &fault : reply.at("faults")) {
        table.add({text(fault, "number"), fault_action(fault),
                   fault.contains("remaining") ? text(fault, "remaining") : "-", text(fault, "applied"),
                   fault_match(fault)});
    }
    table.print();
    if (!reply.value("fetched", true)) {
        fmt::print("No agent has fetched this list: no client meets a fault of it.\n");
    }
}

void print_request_counters(const Json &reply) {
    for (const Json &agent : reply.at("agents")) {
        if (agent.contains("problem")) {
            fmt::print("The counters of {} {} cannot be read: {}.\n", printable(text(agent, "name")),
                       text(agent, "pid"), text(agent, "problem"));
        }
    }
    if (reply.at("agents").empty()) {
        fmt::print("No agent counts what it asks.\n");
    }
    Table table({{"Service"},
                 {"Opcode"},
                 {"Kind"},
                 {"Asked", true},
                 {"Answered", true},
                 {"Refused", true},
                 {"Unanswered", true}});
    uint64_t asked = 0, answered = 0, refused = 0, unanswered = 0;
    for (const Json &row : reply.at("requests")) {
        const bool is_others = row.at("service") == 0;
        table.add({is_others ? "others" : word_or_number(service_words, row.at("service")),
                   is_others ? "" : word_or_number(opcode_words, row.at("opcode")),
                   is_others ? "" : word_or_number(kind_words, row.at("kind")), text(row, "asked"),
                   text(row, "answered"), text(row, "refused"), text(row, "unanswered")});
        asked += row.at("asked").get<uint64_t>();
        answered += row.at("answered").get<uint64_t>();
        refused += row.at("refused").get<uint64_t>();
        unanswered += row.at("unanswered").get<uint64_t>();
    }
    table.add({"all", "", "", fmt::format("{}", asked), fmt::format("{}", answered), fmt::format("{}", refused),
               fmt::format("{}", unanswered)});
    table.print();
}

} // namespace vswitchctl
