// SPDX-License-Identifier: Apache-2.0
#include "tool/event_words.h"

#include <chrono>
#include <ctime>
#include <fmt/format.h>

#include "contract/big_endian.h"
#include "tool/table.h"
#include "tool/words.h"
#include "vsan.h"

namespace vswitchctl {

namespace {

Json unknown_event(uint32_t event_class) {
    return {{"event", "unknown"}, {"class", event_class}};
}

Json vsan_event(const void *payload, uint32_t size) {
    uint32_t condition = 0, vsan = 0, created = 0;
    if (vsan_range_config_change_get_info(payload, size, &condition, &vsan, &created) != 0) {
        return unknown_event(EVENT_VSAN_CHANGED);
    }
    const auto attribute = [&](uint32_t key) {
        uint32_t value = 0, former = 0;
        if (vsan_range_config_change_get_attr_values(payload, size, key, &value, &former) != 0) {
            value = former = 0;
        }
        return std::pair(read_be32(reinterpret_cast<const uint8_t *>(&value)),
                         read_be32(reinterpret_cast<const uint8_t *>(&former)));
    };
    const auto [state, former_state] = attribute(ATTRIBUTE_ADMIN_STATE);
    const auto [oper, former_oper] = attribute(ATTRIBUTE_OPER_STATE);
    return {{"event", "vsan"},
            {"class", EVENT_VSAN_CHANGED},
            {"vsan", vsan},
            {"created", created != 0},
            {"deleted", condition != 0},
            {"state", word_of(state_words, state)},
            {"formerState", word_of(state_words, former_state)},
            {"oper", word_of(oper_words, oper)},
            {"formerOper", word_of(oper_words, former_oper)}};
}

Json port_event(const void *payload, uint32_t size) {
    if (!payload || size < PORT_EVENT_SIZE) {
        return unknown_event(EVENT_PORT_MOVED);
    }
    const auto *bytes = static_cast<const uint8_t *>(payload);
    return {{"event", "port"},
            {"class", EVENT_PORT_MOVED},
            {"ifIndex", read_be32(bytes + PORT_EVENT_IF_INDEX)},
            {"formerVsan", read_be32(bytes + PORT_EVENT_FORMER_VSAN)},
            {"vsan", read_be32(bytes + PORT_EVENT_VSAN)}};
}

std::string time_text(std::time_t seconds, uint32_t microseconds) {
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    char line[40];
    const size_t length = std::strftime(line, sizeof line, "%Y-%m-%dT%H:%M:%S", &parts);
    return fmt::format("{}.{:03}Z", std::string(line, length), microseconds / 1000);
}

Json interface_event(const void *payload, uint32_t size) {
    if (!payload || size < PORT_CHANGED_SIZE) {
        return unknown_event(EVENT_PORT_CHANGED);
    }
    const auto field = [bytes = static_cast<const uint8_t *>(payload)](size_t at) { return read_be32(bytes + at); };
    Json changes = Json::array();
    for (const auto &[word, change] : port_change_words) {
        if (field(PORT_CHANGED_WHICH) & change) {
            changes.push_back(word);
        }
    }
    return {{"event", "interface"},
            {"class", EVENT_PORT_CHANGED},
            {"ifIndex", field(PORT_CHANGED_IF_INDEX)},
            {"changes", changes},
            {"formerAdmin", word_of(oper_words, field(PORT_CHANGED_FORMER_ADMIN))},
            {"admin", word_of(oper_words, field(PORT_CHANGED_ADMIN))},
            {"formerOper", word_of(oper_words, field(PORT_CHANGED_FORMER_OPER))},
            {"oper", word_of(oper_words, field(PORT_CHANGED_OPER))},
            {"traps", field(PORT_CHANGED_TRAPS) == PORT_TRAPS_ENABLED},
            {"moment", time_text(field(PORT_CHANGED_MOMENT), field(PORT_CHANGED_MOMENT + 4))}};
}

Json setting_event(const void *payload, uint32_t size) {
    if (!payload || size < SETTING_EVENT_FIXED) {
        return unknown_event(EVENT_SETTING_CHANGED);
    }
    const auto *bytes = static_cast<const uint8_t *>(payload);
    const uint32_t kind = read_be32(bytes + SETTING_EVENT_KIND);
    const uint32_t which = read_be32(bytes + SETTING_EVENT_WHICH);
    const std::string text(bytes + SETTING_EVENT_TEXT, bytes + size);
    Json event = {{"event", "setting"}, {"class", EVENT_SETTING_CHANGED}};
    if (kind == CHANGED_VSAN_NAME) {
        event.update({{"setting", "vsan-name"}, {"vsan", which}, {"text", text}});
    } else if (kind == CHANGED_TIMER) {
        event.update({{"setting", word_of(attribute_words, read_be32(bytes + SETTING_EVENT_KEY))},
                      {"value", read_be32(bytes + SETTING_EVENT_VALUE)},
                      {"former", read_be32(bytes + SETTING_EVENT_FORMER)}});
        if (which != 0) {
            event["vsan"] = which;
        }
    } else if (kind == CHANGED_SYSTEM_TEXT) {
        event.update({{"setting", word_of(system_text_words, which)}, {"text", text}});
    } else {
        return unknown_event(EVENT_SETTING_CHANGED);
    }
    return event;
}

std::string vsan_words(const Json &event) {
    const std::string state = event["state"], former_state = event["formerState"];
    const std::string oper = event["oper"], former_oper = event["formerOper"];
    const std::string vsan = fmt::format("VSAN {}", event["vsan"].get<uint32_t>());
    if (event["created"].get<bool>()) {
        return fmt::format("{} created, {} and {}", vsan, state, oper);
    }
    if (event["deleted"].get<bool>()) {
        return vsan + " deleted";
    }
    std::string changes;
    if (state != former_state) {
        changes = state == "suspended" ? "suspended" : "resumed";
    }
    if (oper != former_oper) {
        changes += fmt::format("{}went {}", changes.empty() ? "" : ", ", oper);
    }
    return fmt::format("{} {}", vsan, changes.empty() ? fmt::format("changed, {} and {}", state, oper) : changes);
}

std::string port_words(const Json &event) {
    return event.contains("name") ? printable(event["name"]) : fmt::format("{}", event["ifIndex"].get<uint32_t>());
}

std::string interface_words(const Json &event) {
    std::string line;
    for (const Json &change : event["changes"]) {
        line += line.empty() ? "" : ", ";
        if (change == "admin") {
            line += event["admin"] == "up" ? "enabled" : "disabled";
        } else if (change == "oper") {
            line += fmt::format("went {}", event["oper"].get<std::string>());
        } else {
            line += fmt::format("{} changed", change.get<std::string>());
        }
    }
    return fmt::format("port {} {}", port_words(event), line.empty() ? "changed" : line);
}

std::string setting_words(const Json &event) {
    std::string what = event["setting"];
    if (event.contains("text")) {
        const std::string text = printable(event["text"]);
        if (event.contains("vsan")) {
            what = fmt::format("VSAN {} is called", event["vsan"].get<uint32_t>());
            return fmt::format("{} {}", what, text.empty() ? "nothing any more" : text);
        }
        return fmt::format("the switch's {} is {}", what, text.empty() ? "empty" : text);
    }
    if (event.contains("vsan")) {
        what += fmt::format(" of VSAN {}", event["vsan"].get<uint32_t>());
    }
    const auto former = event["former"].get<uint32_t>();
    return fmt::format("{} is {}, was {}", what, event["value"].get<uint32_t>(),
                       former == 0 && event.contains("vsan") ? "the switch's" : fmt::format("{}", former));
}

} // namespace

Json decode_event(uint32_t event_class, const void *payload, uint32_t size) {
    switch (event_class) {
    case EVENT_VSAN_CHANGED:
        return vsan_event(payload, size);
    case EVENT_PORT_MOVED:
        return port_event(payload, size);
    case EVENT_PORT_CHANGED:
        return interface_event(payload, size);
    case EVENT_SETTING_CHANGED:
        return setting_event(payload, size);
    default:
        return unknown_event(event_class);
    }
}

void add_port_name(Json &event, const PortNames &names) {
    if (event.contains("ifIndex")) {
        if (const auto name = names.find(event["ifIndex"].get<uint32_t>()); name != names.end()) {
            event["name"] = name->second;
        }
    }
}

std::string event_words(const Json &event) {
    if (event["event"] == "vsan") {
        return vsan_words(event);
    }
    if (event["event"] == "port") {
        return fmt::format("port {} moved from VSAN {} to VSAN {}", port_words(event),
                           event["formerVsan"].get<uint32_t>(), event["vsan"].get<uint32_t>());
    }
    if (event["event"] == "interface") {
        return interface_words(event);
    }
    if (event["event"] == "setting") {
        return setting_words(event);
    }
    return fmt::format("event of class {} that cannot be decoded", event["class"].get<uint32_t>());
}

std::string time_now() {
    using namespace std::chrono;
    const auto now = system_clock::now();
    const auto passed = duration_cast<microseconds>(now.time_since_epoch()).count() % 1000000;
    return time_text(system_clock::to_time_t(now), static_cast<uint32_t>(passed));
}

} // namespace vswitchctl
