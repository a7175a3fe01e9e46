// SPDX-License-Identifier: Apache-2.0
#include "changes/commit.h"

#include <map>
#include <utility>
#include <vector>

#include "contract/status_codes.h"
#include "model/rules.h"
#include "model/store.h"

namespace vswitch {

namespace {

struct VsanState {
    uint32_t admin_state;
    uint32_t oper_state;

    bool operator==(const VsanState &) const = default;
};

std::optional<VsanState> state_of(const SwitchModel &model, uint32_t id) {
    const Vsan *vsan = model.vsan(id);
    if (!vsan) {
        return std::nullopt;
    }
    return VsanState{vsan->admin_state, model.is_up(id) ? OPER_STATE_UP : OPER_STATE_DOWN};
}

// The VSANs whose state a change may affect, with the state that they have.
std::map<uint32_t, std::optional<VsanState>> affected_vsans(const SwitchModel &model, const Change &change) {
    std::map<uint32_t, std::optional<VsanState>> states;
    const auto add = [&](uint32_t id) { states.emplace(id, state_of(model, id)); };
    for (const auto &[id, vsan] : change.vsans) {
        add(id);
    }
    for (const auto &[if_index, port] : change.ports) {
        add(model.port(if_index)->vsan);
        add(port.vsan);
    }
    for (const uint32_t id : change.deleted_vsans) {
        add(id);
    }
    return states;
}

VsanEvent difference(uint32_t id, const std::optional<VsanState> &before, const std::optional<VsanState> &after) {
    const VsanState former = before.value_or(VsanState{0, 0});
    const VsanState present = after.value_or(VsanState{ADMIN_STATE_GONE, OPER_STATE_DOWN});
    VsanEvent event;
    event.vsan = id;
    event.created = !before;
    event.deleted = !after;
    event.admin_state = present.admin_state;
    event.former_admin_state = former.admin_state;
    event.oper_state = present.oper_state;
    event.former_oper_state = former.oper_state;
    return event;
}

using Events = std::vector<Event>;

void add_timer_event(Events &events, uint32_t vsan, uint32_t key, uint32_t value, uint32_t former) {
    if (value != former) {
        events.push_back(setting_event({CHANGED_TIMER, vsan, key, value, former, {}}));
    }
}

void add_settings_events(Events &events, const Settings &former, const Settings &present) {
    for (const TimerKind &kind : timer_kinds) {
        add_timer_event(events, 0, static_cast<uint32_t>(kind.timer), present.timers[kind.timer],
                        former.timers[kind.timer]);
    }
    for (const LatencyKind &kind : latency_kinds) {
        add_timer_event(events, 0, kind.key, present.*kind.setting, former.*kind.setting);
    }
    for (uint32_t text = 0; text < former.system.size(); ++text) {
        if (present.system[text] != former.system[text]) {
            events.push_back(setting_event({CHANGED_SYSTEM_TEXT, text, 0, 0, 0, present.system[text]}));
        }
    }
}

void add_vsan_events(Events &events, uint32_t id, const Vsan &former, const Vsan &present) {
    if (present.name != former.name) {
        events.push_back(setting_event({CHANGED_VSAN_NAME, id, 0, 0, 0, present.name}));
    }
    for (const TimerKind &kind : timer_kinds) {
        add_timer_event(events, id, static_cast<uint32_t>(kind.timer), present.timers[kind.timer].value_or(0),
                        former.timers[kind.timer].value_or(0));
    }
}

// What a change leads to beyond VSANs and moves, in the order in which it is published.
Events further_events(const SwitchModel &model, const Change &change, Timestamp now) {
    Events events;
    for (const auto &[if_index, port] : change.ports) {
        const Port &former = *model.port(if_index);
        const Timestamp moment = former.is_up() == port.is_up() ? now : port.last_change;
        if (auto event = port_changed_event(if_index, former, port, moment)) {
            events.push_back(std::move(*event));
        }
    }
    if (change.settings) {
        add_settings_events(events, model.settings(), *change.settings);
    }
    for (const auto &[id, vsan] : change.vsans) {
        // That a new one is there says everything.
        if (const Vsan *former = model.vsan(id)) {
            add_vsan_events(events, id, *former, vsan);
        }
    }
    return events;
}

} // namespace

uint32_t keep(const Switch &the_switch, const Change &change, const SwitchData &present) {
    return !the_switch.store || the_switch.store->write(change, present) ? STATUS_SUCCESS : STATUS_STORE_FAILED;
}

void bring_into_force(Switch &the_switch, const Change &change) {
    const Timestamp now = the_switch.clock.now();
    const auto before = affected_vsans(the_switch.model, change);
    Events further = further_events(the_switch.model, change, now);
    for (const auto &[if_index, port] : change.ports) {
        const Port &former = *the_switch.model.port(if_index);
        if (former.is_up() != port.is_up() || former.traffic != port.traffic) {
            the_switch.traffic.settle(if_index, former, now);
        }
        if (former.vsan != port.vsan) {
            the_switch.events.publish(port_event(if_index, former.vsan, port.vsan));
        }
    }
    the_switch.model.apply(change);
    if (the_switch.model.settings().status_events) {
        for (const auto &[id, former] : before) {
            const auto present = state_of(the_switch.model, id);
            if (present != former) {
                the_switch.events.publish(vsan_event(difference(id, former, present)));
            }
        }
    }
    for (Event &event : further) {
        the_switch.events.publish(std::move(event));
    }
    the_switch.events.note_change();
}

uint32_t commit(Switch &the_switch, const Change &change) {
    const uint32_t status = keep(the_switch, change, the_switch.model.data());
    if (status == STATUS_SUCCESS) {
        bring_into_force(the_switch, change);
    }
    return status;
}

void touch_vsan_table(const Switch &the_switch, Change &change) {
    if (!change.settings) {
        change.settings = the_switch.model.settings();
    }
    change.settings->last_change = the_switch.clock.now();
}

uint32_t missing_vsan(uint32_t id) {
    if (const uint32_t status = check_vsan_number(id); status != STATUS_SUCCESS) {
        return status;
    }
    return STATUS_NO_SUCH_VSAN;
}

const Permission *restrictions(const Switch &the_switch, const Requester &requester) {
    return requester.is_operator ? nullptr : the_switch.roles.find(requester.user);
}

uint32_t check_vsan_right(const Switch &the_switch, const Requester &requester, uint32_t vsan) {
    const Permission *permission = restrictions(the_switch, requester);
    return !permission || permission->allows_vsan(vsan) ? STATUS_SUCCESS : STATUS_VSAN_RESTRICTED;
}

uint32_t check_interface_right(const Switch &the_switch, const Requester &requester, uint32_t if_index) {
    const Permission *permission = restrictions(the_switch, requester);
    return !permission || permission->allows_interface(if_index) ? STATUS_SUCCESS : STATUS_INTERFACE_RESTRICTED;
}

uint32_t check_switch_right(const Switch &the_switch, const Requester &requester) {
    return restrictions(the_switch, requester) ? STATUS_SWITCH_RESTRICTED : STATUS_SUCCESS;
}

} // namespace vswitch
