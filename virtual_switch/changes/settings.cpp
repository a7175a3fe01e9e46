// SPDX-License-Identifier: Apache-2.0
// Changes the settings of the whole switch, but for the fabric timers.
#include "changes/commit.h"
#include "contract/status_codes.h"
#include "model/rules.h"

namespace vswitch {

namespace {

template <typename Value>
uint32_t change_setting(Switch &the_switch, const Requester &requester, Value Settings::*setting, const Value &value) {
    if (const uint32_t status = check_switch_right(the_switch, requester); status != STATUS_SUCCESS) {
        return status;
    }
    if (the_switch.model.settings().*setting == value) {
        return STATUS_SUCCESS;
    }
    Change change;
    change.settings = the_switch.model.settings();
    (*change.settings).*setting = value;
    return commit(the_switch, change);
}

} // namespace

uint32_t set_latency(Switch &the_switch, const Requester &requester, const LatencyKind &which, uint32_t milliseconds) {
    if (const uint32_t status = check_latency(milliseconds); status != STATUS_SUCCESS) {
        return status;
    }
    return change_setting(the_switch, requester, which.setting, milliseconds);
}

uint32_t set_inorder_delivery(Switch &the_switch, const Requester &requester, uint32_t value) {
    if (const uint32_t status = check_inorder_delivery(value); status != STATUS_SUCCESS) {
        return status;
    }
    return change_setting(the_switch, requester, &Settings::inorder_delivery, value);
}

uint32_t set_system_texts(Switch &the_switch, const Requester &requester, const SystemTexts &texts) {
    if (const uint32_t status = check_system_texts(texts); status != STATUS_SUCCESS) {
        return status;
    }
    return change_setting(the_switch, requester, &Settings::system, texts);
}

uint32_t set_status_events(Switch &the_switch, const Requester &requester, bool on) {
    return change_setting(the_switch, requester, &Settings::status_events, on);
}

uint32_t tdx_enable(Switch &the_switch, const Requester &requester, bool enabled) {
    if (!enabled && the_switch.model.distribution() == Distribution::in_session &&
        check_switch_right(the_switch, requester) == STATUS_SUCCESS) {
        return STATUS_TDX_SESSION_OPEN;
    }
    return change_setting(the_switch, requester, &Settings::tdx_enabled, enabled);
}

uint32_t tdx_show_run(Switch &the_switch, const Requester &requester, bool on) {
    return change_setting(the_switch, requester, &Settings::tdx_show_run, on);
}

uint32_t tdx_refuse(Switch &the_switch, const Requester &requester, bool on) {
    return change_setting(the_switch, requester, &Settings::tdx_refusing, on);
}

} // namespace vswitch
