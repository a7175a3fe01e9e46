// SPDX-License-Identifier: Apache-2.0
#include "tool/duration.h"

#include <charconv>
#include <cstdint>
#include <fmt/format.h>

namespace vswitchctl {

namespace {

struct Unit {
    std::string_view name;
    int64_t milliseconds;
};
constexpr Unit units[] = {{"h", 3600000}, {"m", 60000}, {"s", 1000}, {"ms", 1}};

} // namespace

std::optional<std::chrono::milliseconds> read_duration(std::string_view text) {
    uint32_t number = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
    if (result.ec != std::errc()) {
        return std::nullopt;
    }
    const std::string_view name = text.substr(static_cast<size_t>(result.ptr - text.data()));
    for (const Unit &unit : units) {
        if (unit.name == name && number <= longest_duration.count() / unit.milliseconds) {
            return std::chrono::milliseconds(number * unit.milliseconds);
        }
    }
    return std::nullopt;
}

std::string duration_text(std::chrono::milliseconds duration) {
    if (duration.count() == 0) {
        return "0s";
    }
    for (const Unit &unit : units) {
        if (duration.count() % unit.milliseconds == 0) {
            return fmt::format("{}{}", duration.count() / unit.milliseconds, unit.name);
        }
    }
    return {};
}

} // namespace vswitchctl
