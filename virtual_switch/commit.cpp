#include "commit.h"

#include <chrono>
#include <map>

#include "store.h"
#include "syserr/status_codes.h"

namespace vswitch {

namespace {

struct VsanState {
    std::uint32_t admin_state;
    std::uint32_t oper_state;

    bool operator==(const VsanState &) const = default;
};

std::optional<VsanState> state_of(const SwitchModel &model, std::uint32_t id) {
    const SwitchModel::VsanRow *row = model.vsan(id);
    if (!row)
        return std::nullopt;
    return VsanState{row->second.admin_state, model.is_up(*row) ? oper_up : oper_down};
}

/* The VSANs whose state a change may affect, with the state that they have. */
std::map<std::uint32_t, std::optional<VsanState>> affected_vsans(const SwitchModel &model, const Change &change) {
    std::map<std::uint32_t, std::optional<VsanState>> states;
    const auto add = [&](std::uint32_t id) { states.emplace(id, state_of(model, id)); };
    for (const auto &[id, vsan] : change.vsans)
        add(id);
    for (const auto &[if_index, port] : change.ports) {
        add(model.port(if_index)->second.vsan);
        add(port.vsan);
    }
    for (const std::uint32_t id : change.deleted_vsans)
        add(id);
    return states;
}

VsanEvent difference(std::uint32_t id, const std::optional<VsanState> &before, const std::optional<VsanState> &after) {
    const VsanState former = before.value_or(VsanState{0, 0});
    const VsanState present = after.value_or(VsanState{vsan_not_configured, oper_down});
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

} // namespace

std::uint32_t commit(Switch &target, const Change &change) {
    if (target.store && !target.store->write(change, target.model.data()))
        return STATUS_STORE_FAILED;

    const auto before = affected_vsans(target.model, change);
    for (const auto &[if_index, port] : change.ports) {
        const std::uint32_t former = target.model.port(if_index)->second.vsan;
        if (former != port.vsan)
            target.events.publish(port_event(if_index, former, port.vsan));
    }
    target.model.apply(change);
    if (target.model.settings().status_events)
        for (const auto &[id, former] : before) {
            const auto present = state_of(target.model, id);
            if (present != former)
                target.events.publish(vsan_event(difference(id, former, present)));
        }
    return STATUS_SUCCESS;
}

void touch_vsan_table(const Switch &target, Change &change) {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(now);
    if (!change.settings)
        change.settings = target.model.settings();
    change.settings->change_seconds = static_cast<std::uint64_t>(seconds.count());
    change.settings->change_microseconds =
        static_cast<std::uint32_t>(std::chrono::duration_cast<std::chrono::microseconds>(now - seconds).count());
}

std::uint32_t missing_vsan(std::uint32_t id) {
    return id == 0 || id > max_vsan ? STATUS_VSAN_OUT_OF_RANGE : STATUS_NO_SUCH_VSAN;
}

const Permission *restrictions(const Switch &target, const Requester &requester) {
    return requester.is_operator ? nullptr : target.roles.find(requester.user);
}

std::uint32_t check_vsan_right(const Switch &target, const Requester &requester, std::uint32_t vsan) {
    const Permission *permission = restrictions(target, requester);
    return !permission || permission->allows_vsan(vsan) ? STATUS_SUCCESS : STATUS_VSAN_RESTRICTED;
}

std::uint32_t check_interface_right(const Switch &target, const Requester &requester, std::uint32_t if_index) {
    const Permission *permission = restrictions(target, requester);
    return !permission || permission->allows_interface(if_index) ? STATUS_SUCCESS : STATUS_INTERFACE_RESTRICTED;
}

std::uint32_t check_switch_right(const Switch &target, const Requester &requester) {
    return restrictions(target, requester) ? STATUS_SWITCH_RESTRICTED : STATUS_SUCCESS;
}

} // namespace vswitch
