/* Changes the ports: their VSAN, their deny list, their link. */
#include "commit.h"
#include "syserr/status_codes.h"

namespace vswitch {

namespace {

std::uint32_t replace_port(Switch &target, const SwitchModel::PortRow &row, const Port &port) {
    if (port == row.second)
        return STATUS_SUCCESS;
    Change change;
    change.ports.emplace(row.first, port);
    return commit(target, change);
}

/* Changes what needs no right beyond that to the port itself. */
template <typename Edit>
std::uint32_t edit_port(Switch &target, const Requester &requester, std::uint32_t if_index, Edit edit) {
    if (const std::uint32_t status = check_interface_right(target, requester, if_index); status != STATUS_SUCCESS)
        return status;
    const SwitchModel::PortRow *row = target.model.port(if_index);
    if (!row)
        return STATUS_NO_SUCH_INTERFACE;
    Port port = row->second;
    edit(port);
    return replace_port(target, *row, port);
}

} // namespace

std::uint32_t change_port(Switch &target, const Requester &requester, std::uint32_t if_index, std::uint32_t vsan,
                          std::uint32_t deny_list) {
    if (const std::uint32_t status = check_interface_right(target, requester, if_index); status != STATUS_SUCCESS)
        return status;
    if (vsan == 0 || vsan > max_vsan)
        return STATUS_VSAN_OUT_OF_RANGE;
    if (const std::uint32_t status = check_vsan_right(target, requester, vsan); status != STATUS_SUCCESS)
        return status;
    const SwitchModel::PortRow *row = target.model.port(if_index);
    if (!row)
        return STATUS_NO_SUCH_INTERFACE;
    if (!target.model.vsan(vsan))
        return STATUS_NO_SUCH_VSAN;
    Port port = row->second;
    port.vsan = vsan;
    port.deny_list = deny_list;
    return replace_port(target, *row, port);
}

std::uint32_t move_port(Switch &target, const Requester &requester, std::uint32_t if_index, std::uint32_t vsan) {
    const SwitchModel::PortRow *row = target.model.port(if_index);
    return change_port(target, requester, if_index, vsan, row ? row->second.deny_list : 0);
}

std::uint32_t set_deny_list(Switch &target, const Requester &requester, std::uint32_t if_index,
                            std::uint32_t deny_list) {
    return edit_port(target, requester, if_index, [=](Port &port) { port.deny_list = deny_list; });
}

std::uint32_t set_link(Switch &target, const Requester &requester, std::uint32_t if_index, bool up) {
    return edit_port(target, requester, if_index, [=](Port &port) { port.link_up = up; });
}

} // namespace vswitch
