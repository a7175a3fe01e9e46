// SPDX-License-Identifier: Apache-2.0
// What a switch may be, whoever says so: a manager's SET, the operator's commands or a configuration
// file. The numbers are those of contract/limits.h. A check returns STATUS_SUCCESS, or what is wrong.
#ifndef VSWITCH_RULES_H
#define VSWITCH_RULES_H

#include <compare>
#include <cstdint>
#include <string_view>

#include "model/switch_data.h"

namespace vswitch {

// Both ends are included.
struct Range {
    uint32_t least;
    uint32_t greatest;

    constexpr bool contains(uint32_t value) const { return value >= least && value <= greatest; }
    auto operator<=>(const Range &) const = default;
};

inline constexpr Range any_number{0, UINT32_MAX};
inline constexpr Range vsan_numbers{VSAN_NUMBER_MIN, VSAN_NUMBER_MAX};
inline constexpr Range mtus{VSAN_MTU_MIN, VSAN_MTU_MAX};
inline constexpr Range drop_latencies{VSAN_DROP_LATENCY_MIN, VSAN_DROP_LATENCY_MAX};
inline constexpr Range latencies{LATENCY_MIN, LATENCY_MAX};
inline constexpr Range truth_values{TRUTH_TRUE, TRUTH_FALSE};
inline constexpr Range if_indexes{1, UINT32_MAX};

constexpr bool is_interop(uint32_t mode) {
    return Range{VSAN_INTEROP_MIN, VSAN_INTEROP_MAX}.contains(mode) || mode == VSAN_INTEROP_NONE;
}

// What fits into one column of a table: printable, without blanks. It may be empty.
bool is_vsan_name(std::string_view name);

// UTF-8 without control characters. They may be empty.
bool is_port_alias(std::string_view text);
bool is_system_text(std::string_view text);

// In Mbit/s.
bool is_port_speed(uint32_t speed);

// What a list shows in one line.
bool is_role_name(std::string_view name);

uint32_t check_vsan_number(uint32_t id);

// Every field but the timers. One that says "not set" is refused, but for the two in which 0 stands
// for the value that the VSAN has: in-order delivery and drop latency.
uint32_t check_vsan(const Vsan &vsan);

// The settings of a port: its alias and speed; anything goes for the others.
uint32_t check_port(const Port &port);

uint32_t check_system_texts(const SystemTexts &texts);

uint32_t check_timer(Timer timer, uint32_t milliseconds);
uint32_t check_latency(uint32_t milliseconds);
uint32_t check_inorder_delivery(uint32_t value);

// Whether E_D_TOV is less than R_A_TOV, where `value_of` says what a timer is.
template <typename ValueOf> bool are_timers_in_order(const ValueOf &value_of) {
    return value_of(Timer::e_d_tov) < value_of(Timer::r_a_tov);
}

} // namespace vswitch

#endif
