// SPDX-License-Identifier: Apache-2.0
#include "tool/object_names.h"

#include <algorithm>
#include <fmt/format.h>

namespace vswitchctl {

namespace {

struct Object {
    std::string_view name;
    std::string_view place; // below the trees' roots
};

constexpr Object of_the_vsans[] = {
    {"vsanMIB", ""},
    {"vsanNumber", ".1.1.1"},
    {"vsanTableLastChange", ".1.1.2"},
    {"vsanTable", ".1.1.3"},
    {"vsanName", ".1.1.3.1.2"},
    {"vsanMediaType", ".1.1.3.1.3"},
    {"vsanAdminState", ".1.1.3.1.4"},
    {"vsanMtu", ".1.1.3.1.5"},
    {"vsanLoadBalancingType", ".1.1.3.1.6"},
    {"vsanOperState", ".1.1.3.1.8"},
    {"vsanRowStatus", ".1.1.3.1.9"},
    {"vsanInterOperType", ".1.1.3.1.10"},
    {"vsanInorderDelivery", ".1.1.3.1.11"},
    {"vsanNetworkDropLatency", ".1.1.3.1.12"},
    {"vsanIfNumber", ".1.2.4"},
    {"vsanIfTable", ".1.2.5"},
    {"vsanIfVsan", ".1.2.5.1.1"},
    {"vsanIfDenyList", ".1.2.5.1.2"},
    {"vsanMembershipSummaryTable", ".1.2.8"},
    {"vsanMembershipSummaryIfIndex", ".1.2.8.1.1"},
    {"vsanStatusChange", ".1.3.0.1"},
    {"vsanPortMembershipChange", ".1.3.0.2"},
    {"fcTimerRatov", ".1.4.1"},
    {"fcTimerEdtov", ".1.4.2"},
    {"fcTimerFstov", ".1.4.3"},
    {"fcTimerDstov", ".1.4.4"},
    {"fcNetworkLatency", ".1.4.5"},
    {"fcSwitchLatency", ".1.4.6"},
    {"fcInorderDelivery", ".1.4.7"},
    {"vsanFcTimerTable", ".1.4.8"},
    {"vsanFcTimerForceFlag", ".1.4.8.1.1"},
    {"vsanFcTimerRatov", ".1.4.8.1.2"},
    {"vsanFcTimerEdtov", ".1.4.8.1.3"},
    {"vsanFcTimerDstov", ".1.4.8.1.4"},
    {"vsanFcTimerFstov", ".1.4.8.1.5"},
};

// Below 1.3.6.1.
constexpr Object of_everybody[] = {
    {"system", ".2.1.1"},
    {"sysDescr", ".2.1.1.1"},
    {"sysUpTime", ".2.1.1.3"},
    {"sysContact", ".2.1.1.4"},
    {"sysName", ".2.1.1.5"},
    {"sysLocation", ".2.1.1.6"},
    {"ifNumber", ".2.1.2.1"},
    {"ifTable", ".2.1.2.2"},
    {"ifAdminStatus", ".2.1.2.2.1.7"},
    {"ifOperStatus", ".2.1.2.2.1.8"},
    {"ifXTable", ".2.1.31.1.1"},
    {"ifAlias", ".2.1.31.1.1.1.18"},
    {"linkDown", ".6.3.1.1.5.3"},
    {"linkUp", ".6.3.1.1.5.4"},
};

// Calls `look` with the name and the OID of each.
template <typename Look> void for_each_object(const Look &look) {
    for (const auto &[name, place] : of_the_vsans) {
        look(name, fmt::format("1.3.6.1.4.1.{}.9.282{}", VENDOR_PEN, place));
    }
    for (const auto &[name, place] : of_everybody) {
        look(name, fmt::format("1.3.6.1{}", place));
    }
}

bool are_numbers(std::string_view text) {
    bool is_behind_dot = true;
    for (const char c : text) {
        if (c == '.' ? is_behind_dot : c < '0' || c > '9') {
            return false;
        }
        is_behind_dot = c == '.';
    }
    return !is_behind_dot;
}

} // namespace

std::optional<std::string> oid_of(std::string_view text) {
    if (are_numbers(text)) {
        return std::string(text);
    }
    if (text.starts_with('.')) {
        text.remove_prefix(1);
        return are_numbers(text) ? std::optional(std::string(text)) : std::nullopt;
    }
    const size_t dot = std::min(text.find('.'), text.size());
    const std::string_view name = text.substr(0, dot), index = text.substr(dot);
    if (!index.empty() && !are_numbers(index.substr(1))) {
        return std::nullopt;
    }
    std::optional<std::string> oid;
    for_each_object([&](std::string_view candidate, const std::string &place) {
        if (candidate == name) {
            oid = place + std::string(index);
        }
    });
    return oid;
}

std::string name_of(const std::string &oid) {
    std::string name = oid;
    size_t longest = 0;
    for_each_object([&](std::string_view candidate, const std::string &place) {
        if (place.size() > longest && (oid == place || oid.starts_with(place + "."))) {
            longest = place.size();
            name = std::string(candidate) + oid.substr(place.size());
        }
    });
    return name;
}

} // namespace vswitchctl
