// SPDX-License-Identifier: Apache-2.0
#include "model/store_settings.h"

#include <type_traits>

namespace vswitch {

namespace {

// A member of an object, or of a member of it.
template <auto First, auto... Rest> auto &member_of(auto &object) {
    if constexpr (sizeof...(Rest) == 0) {
        return object.*First;
    } else {
        return member_of<Rest...>(object.*First);
    }
}

template <auto... Path> constexpr SettingRow setting_row(const char *name) {
    return {name, [](const Settings &settings) { return static_cast<int64_t>(member_of<Path...>(settings)); },
            [](Settings &settings, int64_t value) {
                auto &setting = member_of<Path...>(settings);
                setting = static_cast<std::remove_reference_t<decltype(setting)>>(value);
                if (static_cast<int64_t>(setting) != value) {
                    throw Damage("a setting holds a value outside its range");
                }
            }};
}

template <Timer Which> constexpr SettingRow timer_row(const char *name) {
    return {name, [](const Settings &settings) { return int64_t{settings.timers[Which]}; },
            [](Settings &settings, int64_t value) {
                if (value < 0 || value > UINT32_MAX) {
                    throw Damage("a timer holds a value outside its range");
                }
                settings.timers[Which] = static_cast<uint32_t>(value);
            }};
}

constexpr SettingRow rows[] = {
    setting_row<&Settings::wwn>("wwn"),
    setting_row<&Settings::last_change, &Timestamp::seconds>("change_seconds"),
    setting_row<&Settings::last_change, &Timestamp::microseconds>("change_microseconds"),
    timer_row<Timer::e_d_tov>("e_d_tov"),
    timer_row<Timer::r_a_tov>("r_a_tov"),
    timer_row<Timer::d_s_tov>("d_s_tov"),
    timer_row<Timer::f_s_tov>("f_s_tov"),
    setting_row<&Settings::switch_latency>("switch_latency"),
    setting_row<&Settings::network_latency>("network_latency"),
    setting_row<&Settings::inorder_delivery>("inorder_delivery"),
    setting_row<&Settings::tdx_enabled>("tdx_fctimer_enabled"),
    setting_row<&Settings::tdx_show_run>("tdx_fctimer_show_run"),
    setting_row<&Settings::tdx_refusing>("tdx_fctimer_refusing"),
    setting_row<&Settings::status_events>("status_events"),
};

} // namespace

std::span<const SettingRow> setting_rows() {
    return rows;
}

} // namespace vswitch
