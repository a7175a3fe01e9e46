// SPDX-License-Identifier: Apache-2.0
// Times as an operator writes them.
#ifndef VSWITCHCTL_DURATION_H
#define VSWITCHCTL_DURATION_H

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace vswitchctl {

// Nothing that the tool waits for takes longer.
inline constexpr std::chrono::milliseconds longest_duration = std::chrono::hours(7 * 24);

// A whole number with its unit, 500ms, 2s, 1m or 1h, from 0 to a week. Nothing when it is no such.
std::optional<std::chrono::milliseconds> read_duration(std::string_view text);

// The same the other way round, in the largest unit that leaves no rest.
std::string duration_text(std::chrono::milliseconds duration);

} // namespace vswitchctl

#endif
