// SPDX-License-Identifier: Apache-2.0
// Commands that make the switch do something wrong.
#include <algorithm>

#include "contract/frames.h"
#include "contract/supervisor.h"
#include "operator/client_faults.h"
#include "operator/command_table.h"

namespace vswitch {

namespace {

using Json = JsonReader::Json;

constexpr Word actions[] = {
    {"status", static_cast<uint32_t>(FaultAction::status)},
    {"delay", static_cast<uint32_t>(FaultAction::delay)},
    {"no-data", static_cast<uint32_t>(FaultAction::no_data)},
    {"short", static_cast<uint32_t>(FaultAction::short_reply)},
    {"drop", static_cast<uint32_t>(FaultAction::drop)},
    {"close", static_cast<uint32_t>(FaultAction::close)},
    {"exit", static_cast<uint32_t>(FaultAction::exit)},
};

// The members of a fault's JSON that say which requests it is for.
constexpr std::pair<const char *, std::optional<uint32_t> FaultMatch::*> match_keys[] = {
    {"service", &FaultMatch::service}, {"opcode", &FaultMatch::opcode},    {"kind", &FaultMatch::kind},
    {"vsan", &FaultMatch::vsan},       {"ifIndex", &FaultMatch::if_index},
};

const char *name_of(FaultAction action) {
    for (const auto &[name, value] : actions) {
        if (value == static_cast<uint32_t>(action)) {
            return name;
        }
    }
    return "";
}

Json fault_json(const Fault &fault) {
    Json json = {
        {"number", fault.number}, {"side", "manager"}, {"action", name_of(fault.action)}, {"applied", fault.applied}};
    for (const auto &[key, member] : match_keys) {
        if (fault.match.*member) {
            json[key] = *(fault.match.*member);
        }
    }
    if (fault.action == FaultAction::status) {
        json["status"] = fmt::format("0x{:08x}", fault.value);
        json["withData"] = fault.with_data;
    } else if (fault.action == FaultAction::delay || fault.action == FaultAction::short_reply ||
               (fault.action == FaultAction::exit && fault.value != 0)) {
        json["value"] = fault.value;
    }
    if (fault.remaining) {
        json["remaining"] = *fault.remaining;
    }
    return json;
}

void list_faults(Call &call) {
    const uint32_t after = call.arguments.number("after", any_number).value_or(0);
    const ServedSwitch &the_switch = call.the_switch;
    std::vector<Json> rows;
    for (const Fault &fault : the_switch.faults.list()) {
        rows.push_back(fault_json(fault));
    }
    for (const ClientFault &fault : the_switch.client_faults.list()) {
        rows.push_back(client_fault_json(fault));
    }
    const auto number_of = [](const Json &row) { return row["number"].get<uint32_t>(); };
    std::sort(rows.begin(), rows.end(),
              [&](const Json &left, const Json &right) { return number_of(left) < number_of(right); });
    Page page(call, "faults");
    call.reply["applied"] = the_switch.faults.applied() + the_switch.client_faults.applied();
    // An agent that is told nothing does not go by what it once fetched.
    const size_t agents = agents_told_of_faults(the_switch);
    const bool fetched = the_switch.client_faults.is_in_force() && agents > 0;
    if (!the_switch.client_faults.list().empty() || (agents > 0 && !fetched)) {
        call.reply["fetched"] = fetched;
        call.reply["agents"] = agents;
    }
    for (Json &row : rows) {
        if (number_of(row) > after && !page.add(std::move(row))) {
            break;
        }
    }
}

void add_fault(Call &call) {
    const Arguments &arguments = call.arguments;
    Fault fault;
    fault.action = static_cast<FaultAction>(arguments.required_word("action", actions));
    for (const auto &[key, member] : match_keys) {
        fault.match.*member = arguments.number(key, any_number);
    }
    switch (fault.action) {
    case FaultAction::status:
        fault.value = arguments.required_number("value", any_number);
        break;
    case FaultAction::delay:
        fault.value = arguments.required_number("value", {1, Faults::max_delay});
        break;
    case FaultAction::short_reply:
        fault.value = arguments.required_number("value", {0, MTS_WIRE_MAX_BODY});
        break;
    case FaultAction::exit:
        fault.value = arguments.number("value", {0, SUPERVISOR_AWAY_MAX}).value_or(0);
        break;
    default:
        if (arguments.json().contains("value")) {
            arguments.reader().fail(fmt::format("\"{}\" takes no \"value\"", name_of(fault.action)));
        }
    }
    fault.with_data = arguments.flag("withData").value_or(false);
    if (fault.with_data && fault.action != FaultAction::status) {
        arguments.reader().fail("\"withData\" is for \"status\" only");
    }
    fault.remaining = arguments.number("times", {1, UINT32_MAX});
    if (fault.match.service == MTS_SERVICE_SWITCH) {
        arguments.reader().fail("the switch's own service always answers");
    }
    const uint32_t number = call.the_switch.faults.add(fault);
    if (number == 0) {
        throw Refusal(STATUS_BAD_RECORD,
                      fmt::format("There are {} faults already; clear some first.", Faults::max_faults));
    }
    call.the_switch.events.note_change();
    call.reply = fault_json(call.the_switch.faults.list().back());
}

void clear_faults(Call &call) {
    const auto number = call.arguments.number("number", {1, UINT32_MAX});
    Faults &faults = call.the_switch.faults;
    ClientFaults &client_faults = call.the_switch.client_faults;
    const size_t of_clients = client_faults.list().size();
    if (!number) {
        call.reply["cleared"] = faults.clear() + client_faults.clear();
    } else if (faults.clear(*number) || client_faults.clear(*number)) {
        call.reply["cleared"] = 1;
    } else {
        throw Refusal(STATUS_BAD_RECORD, fmt::format("There is no fault {}.", *number));
    }
    if (client_faults.list().size() != of_clients) {
        publish_client_faults(call.the_switch);
    }
    call.the_switch.events.note_change();
}

const Command commands[] = {
    {"fault.list", MTS_KIND_GET, list_faults, {"after", "limit"}},
    {"fault.add",
     MTS_KIND_SET,
     add_fault,
     {"action", "value", "withData", "times", "service", "opcode", "kind", "vsan", "ifIndex"}},
    {"fault.clear", MTS_KIND_SET, clear_faults, {"number"}},
};

} // namespace

std::span<const Command> fault_commands() {
    return commands;
}

} // namespace vswitch
