/* Creates, changes and deletes VSANs. */
#include <algorithm>

#include "commit.h"
#include "configuration.h"
#include "syserr/status_codes.h"

namespace vswitch {

namespace {

/* A name is what fits into one column of a table; it may be empty. */
bool is_usable_name(const std::string &name) {
    return name.size() <= max_vsan_name && std::ranges::all_of(name, [](char c) { return c > ' ' && c < 0x7f; });
}

constexpr bool is_within(std::uint32_t value, std::uint32_t lowest, std::uint32_t highest) {
    return value >= lowest && value <= highest;
}

/* What each field of a record must be. A field that says "not set" is refused, but for
 * the two in which 0 stands for the value that the VSAN has. */
std::uint32_t check_fields(const Vsan &vsan) {
    if (vsan.media != media_fibre_channel)
        return STATUS_BAD_MEDIA;
    if (!is_within(vsan.admin_state, vsan_active, vsan_suspended))
        return STATUS_BAD_STATE;
    if (!is_within(vsan.mtu, 1, max_mtu))
        return STATUS_BAD_MTU;
    if (!is_within(vsan.load_balancing, 1, max_load_balancing))
        return STATUS_BAD_LOAD_BALANCING;
    if (!is_within(vsan.interop, 1, max_interop) && vsan.interop != default_interop)
        return STATUS_BAD_INTEROP;
    if (!is_within(vsan.inorder_delivery, 0, truth_false))
        return STATUS_BAD_INORDER_DELIVERY;
    if (vsan.drop_latency > max_latency)
        return STATUS_BAD_DROP_LATENCY;
    if (!is_usable_name(vsan.name))
        return STATUS_BAD_NAME;
    return STATUS_SUCCESS;
}

} // namespace

Vsan new_vsan(std::uint32_t id) {
    Vsan vsan;
    vsan.name = default_vsan_name(id);
    return vsan;
}

std::uint32_t change_vsan(Switch &target, const Requester &requester, std::uint32_t id, const Vsan &wanted,
                          bool create_allowed) {
    if (!is_within(id, 1, max_vsan))
        return STATUS_VSAN_OUT_OF_RANGE;
    const SwitchModel::VsanRow *row = target.model.vsan(id);
    if (!row && !create_allowed)
        return STATUS_NO_SUCH_VSAN;
    if (check_vsan_right(target, requester, id) != STATUS_SUCCESS)
        return row ? STATUS_VSAN_RESTRICTED : STATUS_VSAN_NOT_ALLOWED;
    if (const std::uint32_t status = check_fields(wanted); status != STATUS_SUCCESS)
        return status;
    if (!wanted.name.empty()) {
        const SwitchModel::VsanRow *namesake = target.model.vsan_named(wanted.name);
        if (namesake && namesake->first != id)
            return STATUS_NAME_CONFLICT;
    }

    const Vsan present = row ? row->second : Vsan();
    Vsan changed = wanted;
    changed.timers = present.timers;
    changed.distributed_timers = present.distributed_timers;
    if (changed.inorder_delivery == 0)
        changed.inorder_delivery = present.inorder_delivery;
    if (changed.drop_latency == 0)
        changed.drop_latency = present.drop_latency;
    static const Buffer zeros(vsan_rest_size);
    if (changed.rest == zeros)
        changed.rest.clear();
    if (row && changed == present)
        return STATUS_SUCCESS;

    Change change;
    change.vsans.emplace(id, std::move(changed));
    touch_vsan_table(target, change);
    return commit(target, change);
}

std::uint32_t delete_vsan(Switch &target, const Requester &requester, std::uint32_t id) {
    if (!is_within(id, 1, max_vsan))
        return STATUS_VSAN_OUT_OF_RANGE;
    if (check_vsan_right(target, requester, id) != STATUS_SUCCESS)
        return STATUS_VSAN_NOT_ALLOWED;
    if (id == default_vsan)
        return STATUS_DEFAULT_VSAN;
    if (!target.model.vsan(id))
        return STATUS_NO_SUCH_VSAN;

    Change change;
    change.deleted_vsans.insert(id);
    for (const std::uint32_t if_index : target.model.ports_of(id)) {
        Port port = target.model.port(if_index)->second;
        port.vsan = default_vsan;
        change.ports.emplace(if_index, port);
    }
    touch_vsan_table(target, change);
    return commit(target, change);
}

} // namespace vswitch
