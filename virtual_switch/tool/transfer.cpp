// SPDX-License-Identifier: Apache-2.0
#include "tool/transfer.h"

#include <algorithm>
#include <fmt/format.h>

#include "contract/big_endian.h"
#include "contract/frames.h"
#include "contract/services.h"
#include "contract/status_codes.h"
#include "tool/event_words.h"
#include "tool/present_state.h"
#include "tool/print.h"
#include "tool/table.h"

namespace vswitchctl {

namespace {

// Others who transfer something may push ours out; they do not do so for ever.
constexpr int attempts = 5;

// Does something again when the switch has dropped it.
template <typename Action> auto persistently(const Action &action) {
    for (int attempt = 1;; ++attempt) {
        try {
            return action();
        } catch (const Dropped &) {
            if (attempt == attempts) {
                throw;
            }
        }
    }
}

std::string part_header(uint32_t number, size_t at) {
    uint8_t words[MTS_PARCEL_FIXED];
    write_be32(words + MTS_PARCEL_NUMBER, number);
    write_be32(words + MTS_PARCEL_OFFSET, static_cast<uint32_t>(at));
    return std::string(words, words + sizeof words);
}

std::string exchange_part(uint32_t kind, const std::string &payload) {
    Answer answer = exchange(MTS_OP_SWITCH_PARCEL, kind, payload);
    if (answer.status == STATUS_NO_SUCH_PARCEL) {
        throw Dropped("The switch is too busy with what others send and fetch; try again.");
    }
    if (answer.status == STATUS_BAD_LENGTH) {
        throw Refusal("This is longer than the switch takes.");
    }
    if (answer.status != 0) {
        throw Refusal(fmt::format("The switch answered a part with status 0x{:08x}.", answer.status));
    }
    return std::move(answer.data);
}

// Brings a text to the switch; returns the upload's number.
uint32_t upload(const std::string &text) {
    constexpr size_t part = MTS_WIRE_MAX_PAYLOAD - MTS_PARCEL_FIXED;
    const auto number = change("upload.begin").at("upload").get<uint32_t>();
    for (size_t at = 0; at < text.size(); at += part) {
        exchange_part(MTS_KIND_SET, part_header(number, at) + text.substr(at, part));
    }
    return number;
}

// Fetches what a reply has as a download.
std::string download(const Json &reply) {
    const auto number = reply.at("download").get<uint32_t>();
    const auto size = reply.at("size").get<size_t>();
    std::string content;
    while (content.size() < size) {
        const std::string part = exchange_part(MTS_KIND_GET, part_header(number, content.size()));
        if (part.empty()) {
            throw Refusal("The switch sent less than it had said.");
        }
        content += part;
    }
    return content;
}

// A reply, whether it has come whole or is to be fetched.
Json whole(Json reply) {
    return reply.contains("download") ? Json::parse(download(reply)) : std::move(reply);
}

// Does a change whose reply may have to be fetched. It is not made twice.
Json change_once(const std::string &command, const Json &arguments) {
    const Json reply = change(command, arguments);
    try {
        return whole(reply);
    } catch (const Dropped &) {
        if (arguments.at("dryRun").get<bool>()) {
            throw;
        }
        throw Refusal("It is done, but the switch has dropped what it had to say about it.");
    }
}

Json uploaded(const std::string &text, Json arguments) {
    arguments["upload"] = upload(text);
    return arguments;
}

} // namespace

Json change_all(const std::vector<Json> &commands, bool dry_run) {
    constexpr size_t room = MTS_WIRE_MAX_PAYLOAD - 256; // for the rest of the command
    Json arguments = {{"dryRun", dry_run}};
    const std::string text = Json{{"commands", commands}}.dump(-1, ' ', false, Json::error_handler_t::replace);
    if (text.size() <= room) {
        arguments["commands"] = commands;
        return change_once("transaction", arguments);
    }
    return persistently([&] { return change_once("transaction", uploaded(text, arguments)); });
}

std::string export_configuration() {
    return persistently([] { return download(look("export")); });
}

Json import_configuration(const std::string &text, const std::string &source, bool dry_run) {
    const Json arguments = {{"source", source}, {"dryRun", dry_run}};
    return persistently([&] { return change_once("import", uploaded(text, arguments)); });
}

std::string copy_database() {
    return persistently([] {
        Json reply = look("backup.begin");
        const Json number = reply.at("backup");
        do {
            reply = look("backup.continue", {{"backup", number}});
        } while (!reply.at("done").get<bool>());
        return download(reply);
    });
}

namespace {

std::string bytes_of(const std::string &hexadecimal) {
    std::string bytes;
    for (size_t at = 0; at + 1 < hexadecimal.size(); at += 2) {
        bytes += static_cast<char>(std::stoi(hexadecimal.substr(at, 2), nullptr, 16));
    }
    return bytes;
}

std::string value_words(const Json &value) {
    if (value.is_boolean()) {
        return value.get<bool>() ? "on" : "off";
    }
    if (value.is_string()) {
        return printable(value);
    }
    if (value.is_object()) {
        std::string words;
        for (const auto &[key, item] : value.items()) {
            words += fmt::format("{}{} {}", words.empty() ? "" : ", ", key, item.dump());
        }
        return words.empty() ? "nothing" : words;
    }
    return value.is_null() ? "nothing" : value.dump();
}

std::string difference_words(const Json &change) {
    const std::string object = printable(change.at("object")), setting = change.at("setting");
    const Json &former = change.at("former"), &value = change.at("value");
    if (setting == "role") {
        return fmt::format("{} {}", object, former.is_null() ? "added" : value.is_null() ? "removed" : "changed");
    }
    return fmt::format("{} of {} is {}, was {}", setting, object, value_words(value), value_words(former));
}

} // namespace

void print_changes(const Json &reply) {
    const PortNames names = port_names(list("port.list", "ports", "ifIndex")["ports"]);
    Json changes = Json::array();
    for (const Json &change : reply.at("changes")) {
        if (!change.contains("payload")) {
            changes.push_back(change);
            continue;
        }
        const std::string payload = bytes_of(change.at("payload"));
        Json event =
            decode_event(change.at("class").get<uint32_t>(), payload.data(), static_cast<uint32_t>(payload.size()));
        add_port_name(event, names);
        changes.push_back(std::move(event));
    }
    if (prints_json()) {
        Json printed = reply;
        printed["changes"] = std::move(changes);
        print_json(printed);
        return;
    }
    if (changes.empty()) {
        fmt::print("Nothing would change\n");
    }
    for (const Json &change : changes) {
        fmt::print("{}\n", change.contains("event") ? event_words(change) : difference_words(change));
    }
}

} // namespace vswitchctl
