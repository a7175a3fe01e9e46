// SPDX-License-Identifier: Apache-2.0
#include "tool/present_state.h"

#include <fmt/format.h>

#include "tool/table.h"
#include "tool/words.h"

namespace vswitchctl {

namespace {

// So many ranges of numbers stand in a line at most; a switch whose VSANs are every second number has
// thousands.
constexpr size_t max_ranges = 12;

// Ascending numbers with `prefix` in front of each: "fc1-fc3, fc7".
std::string ranges(const std::vector<uint32_t> &numbers, const char *prefix) {
    std::string line;
    size_t count = 0;
    for (size_t at = 0; at < numbers.size(); ++count) {
        size_t last = at;
        while (last + 1 < numbers.size() && numbers[last + 1] == numbers[last] + 1) {
            ++last;
        }
        if (count == max_ranges) {
            return fmt::format("{} and {} more", line, numbers.size() - at);
        }
        line += fmt::format("{}{}{}", line.empty() ? "" : ", ", prefix, numbers[at]);
        if (last > at) {
            line += fmt::format("-{}{}", prefix, numbers[last]);
        }
        at = last + 1;
    }
    return line;
}

// Numbers by what they have in common, in the order in which that is first met.
class Groups {
  public:
    void add(const std::string &what, uint32_t number) {
        const auto [found, is_new] = places_.emplace(what, groups_.size());
        if (is_new) {
            groups_.push_back({what, {}});
        }
        groups_[found->second].second.push_back(number);
    }

    // Adds a line for each: "VSANs 1, 10-12 active and up".
    void print(std::vector<std::string> &lines, const char *noun, const char *prefix) const {
        for (const auto &[what, numbers] : groups_) {
            lines.push_back(
                fmt::format("{}{} {} {}", noun, numbers.size() == 1 ? "" : "s", ranges(numbers, prefix), what));
        }
    }

  private:
    std::map<std::string, size_t> places_;
    std::vector<std::pair<std::string, std::vector<uint32_t>>> groups_;
};

std::string text(const Json &row, const char *key) {
    return row.at(key).get<std::string>();
}

// The number of a port in its name.
uint32_t position(const Json &port) {
    return static_cast<uint32_t>(std::strtoul(text(port, "name").c_str() + 2, nullptr, 10));
}

Json present(const char *event, uint32_t event_class, const Json &members) {
    Json object = {{"event", event}, {"class", event_class}, {"present", true}};
    object.update(members);
    return object;
}

Json present_setting(const std::string &setting, const char *key, const Json &value) {
    return present("setting", EVENT_SETTING_CHANGED, {{"setting", setting}, {key, value}});
}

void add_vsans(std::vector<Json> &objects, const PresentState &state) {
    for (const Json &vsan : state.vsans) {
        objects.push_back(present("vsan", EVENT_VSAN_CHANGED,
                                  {{"vsan", vsan.at("id")}, {"state", vsan.at("state")}, {"oper", vsan.at("oper")}}));
        objects.push_back(present_setting("vsan-name", "text", vsan.at("name")));
        objects.back()["vsan"] = vsan.at("id");
    }
}

void add_ports(std::vector<Json> &objects, const PresentState &state) {
    for (const Json &port : state.ports) {
        const Json which = {{"ifIndex", port.at("ifIndex")}, {"name", port.at("name")}};
        objects.push_back(present("port", EVENT_PORT_MOVED, which));
        objects.back()["vsan"] = port.at("vsan");
        objects.push_back(present("interface", EVENT_PORT_CHANGED, which));
        objects.back().update({{"admin", port.at("enabled").get<bool>() ? "up" : "down"},
                               {"oper", port.at("oper")},
                               {"traps", port.at("traps")},
                               {"alias", port.at("alias")},
                               {"speedMbps", port.at("speedMbps")}});
    }
}

void add_settings(std::vector<Json> &objects, const PresentState &state) {
    for (const char *timer : timer_words) {
        objects.push_back(present_setting(timer, "value", state.timers.at("switch").at(timer)));
    }
    for (const Setting &latency : latencies) {
        objects.push_back(present_setting(latency.word, "value", state.timers.at(latency.key)));
    }
    for (const auto &[word, number] : system_text_words) {
        objects.push_back(present_setting(std::string(word), "text", state.system.at(word)));
    }
    for (const Json &vsan : state.timers.at("vsans")) {
        for (const auto &[timer, value] : vsan.at("own").items()) {
            objects.push_back(present_setting(timer, "value", value));
            objects.back()["vsan"] = vsan.at("id");
        }
    }
}

} // namespace

PresentState read_present_state() {
    return {list("vsan.list", "vsans", "id")["vsans"], list("port.list", "ports", "ifIndex")["ports"],
            list("timers.show", "vsans", "id"), look("tdx.show", {{"limit", 1}}), look("system.show")};
}

PortNames port_names(const Json &ports) {
    PortNames names;
    for (const Json &port : ports) {
        names.emplace(port.at("ifIndex").get<uint32_t>(), text(port, "name"));
    }
    return names;
}

std::vector<Json> state_objects(const PresentState &state) {
    std::vector<Json> objects;
    objects.push_back({{"event", "state"},
                       {"present", true},
                       {"part", "begin"},
                       {"vsans", state.vsans.size()},
                       {"ports", state.ports.size()}});
    add_vsans(objects, state);
    add_ports(objects, state);
    add_settings(objects, state);
    objects.push_back({{"event", "state"}, {"present", true}, {"part", "end"}});
    return objects;
}

std::vector<std::string> state_lines(const PresentState &state) {
    std::vector<std::string> lines;
    Groups vsans, ports, members;
    for (const Json &vsan : state.vsans) {
        vsans.add(fmt::format("{} and {}", text(vsan, "state"), text(vsan, "oper")), vsan.at("id"));
    }
    for (const Json &port : state.ports) {
        ports.add(port.at("enabled").get<bool>() ? text(port, "oper") : "disabled", position(port));
        if (port.at("vsan") != VSAN_NUMBER_DEFAULT) {
            members.add(fmt::format("in VSAN {}", port.at("vsan").get<uint32_t>()), position(port));
        }
    }
    vsans.print(lines, "VSAN", "");
    ports.print(lines, "port", "fc");
    members.print(lines, "port", "fc");
    if (state.session.contains("user")) {
        lines.push_back(fmt::format("session of {} open", printable(text(state.session, "user"))));
    }
    return lines;
}

} // namespace vswitchctl
