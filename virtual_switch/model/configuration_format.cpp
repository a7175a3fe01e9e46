// SPDX-License-Identifier: Apache-2.0
// A switch's configuration as a text, and a text's on a switch that is there.
#include <fmt/format.h>
#include <iterator>
#include <nlohmann/json.hpp>

#include "model/configuration.h"
#include "model/json_settings.h"
#include "model/rules.h"
#include "model/words.h"

namespace vswitch {

namespace {

// Keys stand in the order in which they are put in.
using Json = nlohmann::ordered_json;

template <typename Value> void add(Json &json, const char *key, const Value &value, const Value &without_it) {
    if (value != without_it) {
        json[key] = value;
    }
}

Json vsan_json(uint32_t id, const Vsan &vsan) {
    const Vsan usual;
    Json json = {{"id", id}};
    add(json, "name", vsan.name, default_vsan_name(id));
    if (vsan.admin_state != usual.admin_state) {
        json["state"] = word_of(admin_state_words, vsan.admin_state);
    }
    add(json, "mtu", vsan.mtu, usual.mtu);
    if (vsan.load_balancing != usual.load_balancing) {
        json["loadBalancing"] = word_of(load_balancing_words, vsan.load_balancing);
    }
    add(json, "interop", vsan.interop, usual.interop);
    add(json, "inorderDelivery", vsan.inorder_delivery == TRUTH_TRUE, false);
    add(json, "networkDropLatency", vsan.drop_latency, usual.drop_latency);
    add(json, "timers", timers_json<Json>(vsan.timers), Json::object());
    return json;
}

Json port_json(uint32_t if_index, const Port &port) {
    const Port usual;
    Json json = {{"ifIndex", if_index}};
    add(json, "vsan", port.vsan, usual.vsan);
    if (port.link_up != usual.link_up) {
        json["link"] = word_of(oper_state_words, port.link_up ? OPER_STATE_UP : OPER_STATE_DOWN);
    }
    add(json, "denyList", port.deny_list, usual.deny_list);
    const auto settings = port_settings_json(port);
    const auto usual_settings = port_settings_json(usual);
    for (const char *key : {"alias", "enabled", "speedMbps", "traps", "traffic"}) {
        if (settings.contains(key) && (!usual_settings.contains(key) || settings[key] != usual_settings[key])) {
            json[key] = settings[key];
        }
    }
    return json;
}

Json distribution_json(const SwitchData &data) {
    const Settings &settings = data.settings;
    Json feature = Json::object();
    add(feature, "enabled", settings.tdx_enabled, false);
    add(feature, "showRun", settings.tdx_show_run, false);
    add(feature, "refuse", settings.tdx_refusing, false);
    Json timers = Json::object();
    for (const auto &[id, vsan] : data.vsans) {
        add(timers, fmt::format("{}", id).c_str(), timers_json<Json>(vsan.distributed_timers), Json::object());
    }
    add(feature, "timers", timers, Json::object());
    return feature;
}

Json switch_timers_json(const Settings &settings) {
    Json json = Json::object();
    for (const TimerKind &kind : timer_kinds) {
        add(json, kind.word, settings.timers[kind.timer], kind.initial);
    }
    return json;
}

// What is said of the whole switch, in the order of the text.
Json settings_json(const SwitchData &data) {
    const Settings &settings = data.settings;
    const Settings usual;
    Json json = {{"format", configuration_format}};
    if (settings.wwn != 0) {
        json["wwn"] = wwn_text(settings.wwn);
    }
    Json system = Json::object();
    const auto texts = system_texts_json(settings.system);
    const auto usual_texts = system_texts_json(usual.system);
    for (const char *key : {"contact", "name", "location"}) {
        add(system, key, texts[key], usual_texts[key]);
    }
    add(json, "system", system, Json::object());
    add(json, "timers", switch_timers_json(settings), Json::object());
    add(json, "forceTimers", !disordered_timers(data).empty(), false);
    for (const LatencyKind &kind : latency_kinds) {
        add(json, kind.word, settings.*kind.setting, kind.initial);
    }
    add(json, "inorderDelivery", settings.inorder_delivery == TRUTH_TRUE, false);
    add(json, "statusEvents", settings.status_events, true);
    if (const Json feature = distribution_json(data); !feature.empty()) {
        json["tdx"]["fctimer"] = feature;
    }
    return json;
}

std::string text_of(const Json &json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

// A list with a line for each of its rows.
template <typename Rows, typename ToJson>
void append_list(std::string &text, const char *key, const Rows &rows, const ToJson &to_json) {
    text += fmt::format(",\n  \"{}\": [", key);
    const char *separator = "\n    ";
    for (const auto &row : rows) {
        text += separator + text_of(to_json(row));
        separator = ",\n    ";
    }
    text += rows.empty() ? "]" : "\n  ]";
}

} // namespace

std::string wwn_text(uint64_t wwn) {
    std::string text;
    for (int shift = 56; shift >= 0; shift -= 8) {
        text += fmt::format("{}{:02x}", shift == 56 ? "" : ":", wwn >> shift & 0xff);
    }
    return text;
}

std::string format_configuration(const SwitchData &data, const std::vector<Role> &roles) {
    std::string text = "{";
    const char *separator = "\n  ";
    const Json settings = settings_json(data);
    for (const auto &[key, value] : settings.items()) {
        text += fmt::format("{}\"{}\": {}", separator, key, text_of(value));
        separator = ",\n  ";
    }
    append_list(text, "vsans", data.vsans, [](const auto &row) { return vsan_json(row.first, row.second); });
    append_list(text, "ports", data.ports, [](const auto &row) { return port_json(row.first, row.second); });
    if (!roles.empty()) {
        append_list(text, "roles", roles, [](const Role &role) { return Json(role_json(role)); });
    }
    return text + "\n}\n";
}

namespace {

// The ports of a configuration on those of the switch.
std::map<uint32_t, Port> imported_ports(const Configuration &configuration, const SwitchData &present, Timestamp now,
                                        const std::string &source) {
    std::map<uint32_t, Port> ports = configuration.data.ports;
    if (!configuration.has_ports) {
        ports.clear();
        for (const auto &[if_index, port] : present.ports) {
            ports[if_index].link_up = false;
        }
    }
    for (const auto &[if_index, port] : present.ports) {
        if (!ports.contains(if_index)) {
            throw Refusal(fmt::format("Cannot use {}: it has no port {}, and a switch keeps the ports that it was made "
                                      "with.",
                                      source, if_index));
        }
    }
    for (auto &[if_index, port] : ports) {
        const auto former = present.ports.find(if_index);
        if (former == present.ports.end()) {
            throw Refusal(fmt::format("Cannot use {}: the switch has no port {}, and keeps the ports that it was made "
                                      "with.",
                                      source, if_index));
        }
        port.last_change = port.is_up() == former->second.is_up() ? former->second.last_change : now;
    }
    return ports;
}

} // namespace

SwitchData imported(const Configuration &configuration, const SwitchData &present, Timestamp now,
                    const std::string &source) {
    SwitchData data = configuration.data;
    if (data.settings.wwn != 0 && data.settings.wwn != present.settings.wwn) {
        throw Refusal(fmt::format("Cannot use {}: it is of the switch {}, and this one is {}; without \"wwn\" it would "
                                  "be for any.",
                                  source, wwn_text(data.settings.wwn), wwn_text(present.settings.wwn)));
    }
    data.settings.wwn = present.settings.wwn;
    data.ports = imported_ports(configuration, present, now, source);
    bool is_same_table = data.vsans.size() == present.vsans.size();
    for (auto &[id, vsan] : data.vsans) {
        const auto former = present.vsans.find(id);
        if (former == present.vsans.end()) {
            is_same_table = false;
            continue;
        }
        vsan.rest = former->second.rest;
        Vsan row = vsan;
        row.timers = former->second.timers;
        row.distributed_timers = former->second.distributed_timers;
        is_same_table = is_same_table && row == former->second;
    }
    data.settings.last_change = is_same_table ? present.settings.last_change : now;
    return data;
}

} // namespace vswitch
