// SPDX-License-Identifier: Apache-2.0
// VSANs, ports and roles in words.
#include <cstdio>
#include <fmt/format.h>

#include "contract/limits.h"
#include "tool/print.h"
#include "tool/table.h"
#include "tool/words.h"

namespace vswitchctl {

namespace {

bool as_json = false;

std::string text(const Json &object, const char *key) {
    const Json &value = object.at(key);
    return value.is_string() ? value.get<std::string>() : value.dump();
}

std::string on_or_off(const Json &value) {
    return value.get<bool>() ? "on" : "off";
}

std::string enabled_or_disabled(const Json &port) {
    return port.at("enabled").get<bool>() ? "enabled" : "disabled";
}

std::string text_or_dash(const Json &object, const char *key) {
    const std::string shown = printable(text(object, key));
    return shown.empty() ? "-" : shown;
}

std::string joined(const Json &list) {
    std::string line;
    for (const Json &item : list) {
        line.append(line.empty() ? "" : ",");
        line.append(item.get<std::string>());
    }
    return line.empty() ? "-" : line;
}

} // namespace

void print_json(const Json &reply) {
    fmt::print("{}\n", reply.dump(2, ' ', false, Json::error_handler_t::replace));
}

void print_as_json(bool on) {
    as_json = on;
}

bool prints_json() {
    return as_json;
}

void show(const Json &reply, const std::function<void(const Json &)> &print) {
    if (as_json) {
        print_json(reply);
    } else {
        print(reply);
    }
}

void print_vsans(const Json &reply) {
    Table table({{"VSAN", true}, {"Name"}, {"State"}, {"Oper"}, {"Ports", true}, {"Up", true}, {"Load balancing"}});
    for (const Json &vsan : reply.at("vsans")) {
        table.add({text(vsan, "id"), text(vsan, "name"), text(vsan, "state"), text(vsan, "oper"), text(vsan, "ports"),
                   text(vsan, "portsUp"), text(vsan, "loadBalancing")});
    }
    table.print();
}

void print_vsan(const Json &reply) {
    fmt::print("VSAN {}\n", text(reply, "id"));
    fmt::print("  name             {}\n", printable(text(reply, "name")));
    fmt::print("  state            {}, operationally {}\n", text(reply, "state"), text(reply, "oper"));
    fmt::print("  ports            {}, {} of them up\n", text(reply, "ports"), text(reply, "portsUp"));
    fmt::print("  mtu              {}\n", text(reply, "mtu"));
    fmt::print("  load balancing   {}\n", text(reply, "loadBalancing"));
    const std::string interop = text(reply, "interop");
    fmt::print("  interop mode     {}\n", interop == std::to_string(VSAN_INTEROP_NONE) ? "none" : interop);
    fmt::print("  in-order         {}\n", on_or_off(reply.at("inorderDelivery")));
    fmt::print("  drop latency     {} ms\n", text(reply, "networkDropLatency"));
}

void print_ports(const Json &reply) {
    Table table({{"Port"}, {"ifIndex", true}, {"VSAN", true}, {"Link"}, {"State"}, {"Deny list", true}, {"Alias"}});
    for (const Json &port : reply.at("ports")) {
        table.add({text(port, "name"), text(port, "ifIndex"), text(port, "vsan"), text(port, "link"),
                   enabled_or_disabled(port), text(port, "denyList"), text(port, "alias")});
    }
    table.print();
}

void print_port(const Json &reply) {
    fmt::print("Port {} ({}): VSAN {}, link {}, deny list {}{}\n", text(reply, "ifIndex"), text(reply, "name"),
               text(reply, "vsan"), text(reply, "link"), text(reply, "denyList"),
               reply.at("enabled").get<bool>() ? "" : ", disabled");
}

void print_port_settings(const Json &reply) {
    fmt::print("Port {} ({})\n", text(reply, "ifIndex"), text(reply, "name"));
    fmt::print("  alias      {}\n", text_or_dash(reply, "alias"));
    fmt::print("  state      {}, link {}, operationally {}\n", enabled_or_disabled(reply), text(reply, "link"),
               text(reply, "oper"));
    fmt::print("  VSAN       {}, deny list {}\n", text(reply, "vsan"), text(reply, "denyList"));
    fmt::print("  speed      {} Mbit/s\n", text(reply, "speedMbps"));
    fmt::print("  traps      {}\n", on_or_off(reply.at("traps")));
    fmt::print("  WWN        {}\n", text(reply, "wwn"));
    const char *title = "traffic";
    for (const Counter &counter : counters) {
        const auto traffic = reply.find("traffic");
        if (traffic != reply.end() && traffic->contains(counter.key)) {
            fmt::print("  {:<9}  {} {} a second\n", title, counter.word, text(*traffic, counter.key));
            title = "";
        }
    }
    if (*title) {
        fmt::print("  {:<9}  -\n", title);
    }
}

void print_system(const Json &reply) {
    fmt::print("Switch {}\n", text(reply, "wwn"));
    for (const char *which : {"name", "contact", "location"}) {
        fmt::print("  {:<9}  {}\n", which, text_or_dash(reply, which));
    }
}

void print_roles(const Json &reply) {
    if (reply.at("roles").empty()) {
        fmt::print("No roles: nobody is restricted.\n");
        return;
    }
    for (const Json &role : reply.at("roles")) {
        fmt::print("Role {}\n", printable(text(role, "name")));
        for (const char *key : {"users", "vsans", "interfaces"}) {
            fmt::print("  {:<12}{}\n", key, shortened(printable(joined(role.at(key))), line_width - 14));
        }
    }
}

} // namespace vswitchctl
