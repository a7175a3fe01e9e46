// SPDX-License-Identifier: Apache-2.0
// Creates, changes and deletes VSANs.
#include "changes/commit.h"
#include "contract/status_codes.h"
#include "model/configuration.h"
#include "model/rules.h"

namespace vswitch {

Vsan new_vsan(uint32_t id) {
    Vsan vsan;
    vsan.name = default_vsan_name(id);
    return vsan;
}

namespace {

// What a VSAN becomes: a wanted record says nothing of timers, and of two values it may say
// nothing.
Vsan completed(const Vsan &wanted, const Vsan &present) {
    Vsan changed = wanted;
    changed.timers = present.timers;
    changed.distributed_timers = present.distributed_timers;
    if (changed.inorder_delivery == 0) {
        changed.inorder_delivery = present.inorder_delivery;
    }
    if (changed.drop_latency == 0) {
        changed.drop_latency = present.drop_latency;
    }
    static const std::vector<uint8_t> zeros(VSAN_REST_SIZE);
    if (changed.rest == zeros) {
        changed.rest.clear();
    }
    return changed;
}

} // namespace

uint32_t change_vsan(Switch &the_switch, const Requester &requester, uint32_t id, const Vsan &wanted,
                     bool create_allowed) {
    if (const uint32_t status = check_vsan_number(id); status != STATUS_SUCCESS) {
        return status;
    }
    const Vsan *former = the_switch.model.vsan(id);
    if (!former && !create_allowed) {
        return STATUS_NO_SUCH_VSAN;
    }
    if (check_vsan_right(the_switch, requester, id) != STATUS_SUCCESS) {
        return former ? STATUS_VSAN_RESTRICTED : STATUS_VSAN_NOT_ALLOWED;
    }
    if (const uint32_t status = check_vsan(wanted); status != STATUS_SUCCESS) {
        return status;
    }
    if (!wanted.name.empty()) {
        const auto namesake = the_switch.model.vsan_named(wanted.name);
        if (namesake && *namesake != id) {
            return STATUS_NAME_CONFLICT;
        }
    }

    Vsan changed = completed(wanted, former ? *former : Vsan());
    if (former && changed == *former) {
        return STATUS_SUCCESS;
    }

    Change change;
    change.vsans.emplace(id, std::move(changed));
    touch_vsan_table(the_switch, change);
    return commit(the_switch, change);
}

uint32_t delete_vsan(Switch &the_switch, const Requester &requester, uint32_t id) {
    if (const uint32_t status = check_vsan_number(id); status != STATUS_SUCCESS) {
        return status;
    }
    if (check_vsan_right(the_switch, requester, id) != STATUS_SUCCESS) {
        return STATUS_VSAN_NOT_ALLOWED;
    }
    if (id == VSAN_NUMBER_DEFAULT) {
        return STATUS_DEFAULT_VSAN;
    }
    if (!the_switch.model.vsan(id)) {
        return STATUS_NO_SUCH_VSAN;
    }

    Change change;
    change.deleted_vsans.insert(id);
    for (const uint32_t if_index : the_switch.model.ports_of(id)) {
        Port port = *the_switch.model.port(if_index);
        port.vsan = VSAN_NUMBER_DEFAULT;
        change.ports.emplace(if_index, port);
    }
    touch_vsan_table(the_switch, change);
    return commit(the_switch, change);
}

} // namespace vswitch
