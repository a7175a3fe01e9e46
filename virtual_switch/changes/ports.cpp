// SPDX-License-Identifier: Apache-2.0
// Changes the ports: their VSAN, their deny list, their link, their settings.
#include "changes/commit.h"
#include "contract/status_codes.h"
#include "model/rules.h"

namespace vswitch {

namespace {

// REQUIRES: the port exists.
uint32_t replace_port(Switch &the_switch, uint32_t if_index, Port port) {
    const Port &present = *the_switch.model.port(if_index);
    if (port == present) {
        return STATUS_SUCCESS;
    }
    if (port.is_up() != present.is_up()) {
        port.last_change = the_switch.clock.now();
    }
    Change change;
    change.ports.emplace(if_index, std::move(port));
    return commit(the_switch, change);
}

// Changes what needs no right beyond that to the port itself.
template <typename Edit>
uint32_t edit_port(Switch &the_switch, const Requester &requester, uint32_t if_index, Edit edit) {
    if (const uint32_t status = check_interface_right(the_switch, requester, if_index); status != STATUS_SUCCESS) {
        return status;
    }
    const Port *present = the_switch.model.port(if_index);
    if (!present) {
        return STATUS_NO_SUCH_INTERFACE;
    }
    Port port = *present;
    edit(port);
    return replace_port(the_switch, if_index, std::move(port));
}

} // namespace

uint32_t change_port(Switch &the_switch, const Requester &requester, uint32_t if_index, uint32_t vsan,
                     uint32_t deny_list) {
    if (const uint32_t status = check_interface_right(the_switch, requester, if_index); status != STATUS_SUCCESS) {
        return status;
    }
    if (const uint32_t status = check_vsan_number(vsan); status != STATUS_SUCCESS) {
        return status;
    }
    if (const uint32_t status = check_vsan_right(the_switch, requester, vsan); status != STATUS_SUCCESS) {
        return status;
    }
    const Port *present = the_switch.model.port(if_index);
    if (!present) {
        return STATUS_NO_SUCH_INTERFACE;
    }
    if (!the_switch.model.vsan(vsan)) {
        return STATUS_NO_SUCH_VSAN;
    }
    Port port = *present;
    port.vsan = vsan;
    port.deny_list = deny_list;
    return replace_port(the_switch, if_index, std::move(port));
}

uint32_t move_port(Switch &the_switch, const Requester &requester, uint32_t if_index, uint32_t vsan) {
    const Port *present = the_switch.model.port(if_index);
    return change_port(the_switch, requester, if_index, vsan, present ? present->deny_list : 0);
}

uint32_t set_deny_list(Switch &the_switch, const Requester &requester, uint32_t if_index, uint32_t deny_list) {
    return edit_port(the_switch, requester, if_index, [=](Port &port) { port.deny_list = deny_list; });
}

uint32_t set_link(Switch &the_switch, const Requester &requester, uint32_t if_index, bool up) {
    return edit_port(the_switch, requester, if_index, [=](Port &port) { port.link_up = up; });
}

uint32_t set_port(Switch &the_switch, const Requester &requester, uint32_t if_index, const Port &wanted) {
    if (const uint32_t status = check_port(wanted); status != STATUS_SUCCESS) {
        return status;
    }
    return edit_port(the_switch, requester, if_index, [&](Port &port) {
        port.alias = wanted.alias;
        port.enabled = wanted.enabled;
        port.speed = wanted.speed;
        port.traps = wanted.traps;
        port.traffic = wanted.traffic;
    });
}

} // namespace vswitch
