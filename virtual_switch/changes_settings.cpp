/* Changes the settings of the whole switch, but for the fabric timers. */
#include "commit.h"
#include "syserr/status_codes.h"

namespace vswitch {

namespace {

template <typename Value>
std::uint32_t change_setting(Switch &target, const Requester &requester, Value Settings::*setting, Value value) {
    if (const std::uint32_t status = check_switch_right(target, requester); status != STATUS_SUCCESS)
        return status;
    if (target.model.settings().*setting == value)
        return STATUS_SUCCESS;
    Change change;
    change.settings = target.model.settings();
    (*change.settings).*setting = value;
    return commit(target, change);
}

} // namespace

std::uint32_t set_latency(Switch &target, const Requester &requester, Latency which, std::uint32_t milliseconds) {
    if (milliseconds > max_latency)
        return STATUS_BAD_LATENCY;
    return change_setting(target, requester,
                          which == Latency::switch_latency ? &Settings::switch_latency : &Settings::network_latency,
                          milliseconds);
}

std::uint32_t set_inorder_delivery(Switch &target, const Requester &requester, std::uint32_t value) {
    if (value != truth_true && value != truth_false)
        return STATUS_BAD_INORDER_DELIVERY;
    return change_setting(target, requester, &Settings::inorder_delivery, value);
}

std::uint32_t set_status_events(Switch &target, const Requester &requester, bool on) {
    return change_setting(target, requester, &Settings::status_events, on);
}

std::uint32_t tdx_enable(Switch &target, const Requester &requester, bool enabled) {
    if (!enabled && target.model.session() && check_switch_right(target, requester) == STATUS_SUCCESS)
        return STATUS_TDX_SESSION_OPEN;
    return change_setting(target, requester, &Settings::tdx_enabled, enabled);
}

std::uint32_t tdx_show_run(Switch &target, const Requester &requester, bool on) {
    return change_setting(target, requester, &Settings::tdx_show_run, on);
}

std::uint32_t tdx_refuse(Switch &target, const Requester &requester, bool on) {
    return change_setting(target, requester, &Settings::tdx_refusing, on);
}

} // namespace vswitch
