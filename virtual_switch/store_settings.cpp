#include "store_settings.h"

#include <type_traits>

namespace vswitch {

namespace {

template <auto Member> constexpr SettingRow setting_row(const char *name) {
    return {name, [](const Settings &settings) { return static_cast<std::int64_t>(settings.*Member); },
            [](Settings &settings, std::int64_t value) {
                using Value = std::remove_reference_t<decltype(settings.*Member)>;
                settings.*Member = static_cast<Value>(value);
                if (static_cast<std::int64_t>(settings.*Member) != value)
                    throw Damage("a setting holds a value outside its range");
            }};
}

template <Timer Which> constexpr SettingRow timer_row(const char *name) {
    return {name, [](const Settings &settings) { return std::int64_t{settings.timers[Which]}; },
            [](Settings &settings, std::int64_t value) {
                if (value < 0 || value > UINT32_MAX)
                    throw Damage("a timer holds a value outside its range");
                settings.timers[Which] = static_cast<std::uint32_t>(value);
            }};
}

constexpr SettingRow rows[] = {
    setting_row<&Settings::wwn>("wwn"),
    setting_row<&Settings::change_seconds>("change_seconds"),
    setting_row<&Settings::change_microseconds>("change_microseconds"),
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
