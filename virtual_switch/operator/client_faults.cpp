// SPDX-License-Identifier: Apache-2.0
#include "operator/client_faults.h"

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>

#include "operator/command_table.h"

namespace vswitch {

namespace {

using Json = JsonReader::Json;

struct Action {
    client_fault_action number;
    const char *word;
    client_fault_about about;
    client_fault_value value;
};
#define VSWITCH_ACTION(number, name, word, about, value) {CLIENT_FAULT_##name, word, about, value},
constexpr Action actions[] = {CLIENT_FAULT_ACTIONS(VSWITCH_ACTION)};
#undef VSWITCH_ACTION

#define VSWITCH_WORD(number, name, word, about, value) {word, number},
constexpr Word action_words[] = {CLIENT_FAULT_ACTIONS(VSWITCH_WORD)};
#undef VSWITCH_WORD
#define VSWITCH_WORD(number, name, word) {word, number},
constexpr Word pdu_words[] = {CLIENT_FAULT_PDUS(VSWITCH_WORD)};
#undef VSWITCH_WORD

constexpr uint32_t ipv4_bits = 32;
constexpr uint32_t ipv6_bits = 128;

const Action &row_of(uint32_t number) {
    return *std::find_if(std::begin(actions), std::end(actions),
                         [&](const Action &row) { return row.number == number; });
}

// The least and greatest value of an action that takes one.
Range range_of(client_fault_value value) {
    switch (value) {
    case VALUE_MILLISECONDS:
        return {1, CLIENT_FAULT_DELAY_MAX};
    case VALUE_BYTES:
        return {0, CLIENT_FAULT_BYTES_MAX};
    default:
        return {0, CLIENT_FAULT_ERROR_MAX};
    }
}

std::optional<uint32_t> number_in(std::string_view text) {
    uint32_t number = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool whole = result.ec == std::errc() && result.ptr == text.data() + text.size();
    return whole ? std::optional(number) : std::nullopt;
}

std::vector<uint32_t> read_oid(const Arguments &arguments) {
    std::vector<uint32_t> arcs;
    const auto text = arguments.text("oid", 1500);
    if (!text) {
        return arcs;
    }
    std::string_view rest = *text;
    for (bool more = true; more;) {
        const size_t dot = rest.find('.');
        const auto arc = number_in(rest.substr(0, dot));
        if (!arc || arcs.size() == CLIENT_FAULT_ARCS_MAX) {
            arguments.reader().fail(
                fmt::format("\"oid\" must be 1 to {} numbers with dots between", CLIENT_FAULT_ARCS_MAX));
        }
        arcs.push_back(*arc);
        more = dot != std::string_view::npos;
        rest.remove_prefix(more ? dot + 1 : rest.size());
    }
    return arcs;
}

std::optional<AddressRange> read_address(const Arguments &arguments) {
    const auto text = arguments.text("address", 64);
    if (!text) {
        return std::nullopt;
    }
    const size_t slash = text->find('/');
    const std::string host = text->substr(0, slash);
    uint8_t bytes[16];
    const bool is_ipv4 = inet_pton(AF_INET, host.c_str(), bytes) == 1;
    const uint32_t most = is_ipv4 ? ipv4_bits : ipv6_bits;
    const auto bits = slash == std::string::npos ? most : number_in(std::string_view(*text).substr(slash + 1));
    if ((!is_ipv4 && inet_pton(AF_INET6, host.c_str(), bytes) != 1) || !bits || *bits > most) {
        arguments.reader().fail("\"address\" must be an IPv4 or IPv6 address, with / and the number of its first bits "
                                "that count if not all do");
    }
    return AddressRange{{bytes, bytes + most / 8}, *bits};
}

uint32_t read_pdus(const Arguments &arguments, const Action &action) {
    const uint32_t possible =
        action.about == ABOUT_NOTIFICATIONS ? CLIENT_FAULT_NOTIFICATION_PDUS : CLIENT_FAULT_REQUEST_PDUS;
    const auto given = arguments.json().find("pdus");
    if (given == arguments.json().end()) {
        return possible;
    }
    uint32_t pdus = 0;
    arguments.reader().expect_array(*given, "\"pdus\"");
    for (const Json &item : *given) {
        const std::string &text = arguments.reader().text(item, "each of \"pdus\"");
        const auto pdu = value_of(pdu_words, text);
        if (!pdu || (*pdu & possible) == 0) {
            arguments.reader().fail(
                fmt::format("\"{}\" is for {}, not for \"{}\"", action.word,
                            action.about == ABOUT_NOTIFICATIONS ? "trap and inform" : "get, get-next, get-bulk and set",
                            JsonReader::printable(text)));
        }
        pdus |= *pdu;
    }
    if (pdus == 0) {
        arguments.reader().fail("\"pdus\" must have at least one word");
    }
    return pdus;
}

// An argument that only some actions take.
std::optional<uint32_t> read_special(const Arguments &arguments, const Action &action, const char *key,
                                     client_fault_value of, Range range) {
    if (action.value != of && arguments.json().contains(key)) {
        arguments.reader().fail(fmt::format("\"{}\" takes no \"{}\"", action.word, key));
    }
    return arguments.number(key, range);
}

void read_value(const Arguments &arguments, const Action &action, ClientFault &fault) {
    if (action.value != VALUE_NONE) {
        fault.value = arguments.required_number("value", range_of(action.value));
    } else if (arguments.json().contains("value")) {
        arguments.reader().fail(fmt::format("\"{}\" takes no \"value\"", action.word));
    }
    const auto deviation = read_special(arguments, action, "deviation", VALUE_MILLISECONDS,
                                        {0, std::min(fault.value, CLIENT_FAULT_DELAY_MAX)});
    const auto index = read_special(arguments, action, "index", VALUE_ERROR, {0, CLIENT_FAULT_ERROR_MAX});
    fault.detail = deviation.value_or(index.value_or(0));
}

void add_client_fault(Call &call) {
    const Arguments &arguments = call.arguments;
    const Action &action = row_of(arguments.required_word("action", action_words));
    ClientFault fault;
    fault.action = action.number;
    read_value(arguments, action, fault);
    fault.match.pdus = read_pdus(arguments, action);
    fault.match.oid = read_oid(arguments);
    fault.match.user = arguments.text("user", CLIENT_FAULT_USER_MAX);
    fault.match.address = read_address(arguments);
    // An engine that rebooted at every request would never be in time for any.
    fault.times =
        arguments.number("times", {1, UINT32_MAX}).value_or(fault.action == CLIENT_FAULT_REBOOT_ENGINE ? 1 : 0);
    fault.after = arguments.number("after", {0, UINT32_MAX}).value_or(0);
    fault.percent = arguments.number("percent", {1, 100}).value_or(100);
    fault.seed = arguments.number("seed", {0, UINT32_MAX}).value_or(1);
    if (call.the_switch.client_faults.list().size() >= CLIENT_FAULTS_MAX) {
        throw Refusal(STATUS_BAD_RECORD,
                      fmt::format("There are {} faults of clients already; clear some first.", CLIENT_FAULTS_MAX));
    }
    fault.number = call.the_switch.faults.take_number();
    call.the_switch.client_faults.add(fault);
    publish_client_faults(call.the_switch);
    call.the_switch.events.note_change();
    call.reply = client_fault_json(fault);
}

const Command commands[] = {
    {"fault.add-client",
     MTS_KIND_SET,
     add_client_fault,
     {"action", "value", "deviation", "index", "pdus", "oid", "user", "address", "times", "after", "percent", "seed"}},
};

std::string address_text(const AddressRange &address) {
    char text[INET6_ADDRSTRLEN] = "";
    inet_ntop(address.bytes.size() * 8 == ipv4_bits ? AF_INET : AF_INET6, address.bytes.data(), text, sizeof text);
    const bool whole = address.bits == address.bytes.size() * 8;
    return whole ? text : fmt::format("{}/{}", text, address.bits);
}

} // namespace

Json client_fault_json(const ClientFault &fault) {
    const Action &action = row_of(fault.action);
    Json json = {{"number", fault.number}, {"side", "client"}, {"action", action.word}, {"applied", fault.applied}};
    if (action.value != VALUE_NONE) {
        json["value"] = fault.value;
    }
    if (action.value == VALUE_ERROR) {
        json["index"] = fault.detail;
    } else if (fault.detail != 0) {
        json["deviation"] = fault.detail;
    }
    if (fault.match.pdus != CLIENT_FAULT_REQUEST_PDUS && fault.match.pdus != CLIENT_FAULT_NOTIFICATION_PDUS) {
        json["pdus"] = Json::array();
        for (const Word &word : pdu_words) {
            if (fault.match.pdus & word.value) {
                json["pdus"].push_back(word.text);
            }
        }
    }
    if (!fault.match.oid.empty()) {
        json["oid"] = fmt::format("{}", fmt::join(fault.match.oid, "."));
    }
    if (fault.match.user) {
        json["user"] = *fault.match.user;
    }
    if (fault.match.address) {
        json["address"] = address_text(*fault.match.address);
    }
    if (fault.after != 0) {
        json["after"] = fault.after;
    }
    if (fault.percent != 100) {
        json["percent"] = fault.percent;
    }
    if (fault.percent != 100 || json.contains("deviation")) {
        json["seed"] = fault.seed;
    }
    if (fault.times != 0) {
        json["remaining"] = fault.times - std::min(fault.applied, fault.times);
    }
    return json;
}

void publish_client_faults(ServedSwitch &the_switch) {
    the_switch.events.publish({EVENT_CLIENT_FAULTS, {}});
}

size_t agents_told_of_faults(const ServedSwitch &the_switch) {
    const auto subscribers = the_switch.events.subscribers();
    return static_cast<size_t>(std::count_if(subscribers.begin(), subscribers.end(), [](const Subscriber *subscriber) {
        return subscriber->classes().contains(EVENT_CLIENT_FAULTS);
    }));
}

std::span<const Command> client_fault_commands() {
    return commands;
}

} // namespace vswitch
