/* The port manager: which interface is a member of which VSAN, and the switch's name. */
#include "mts.h"
#include "mts/mts_wire.h"
#include "services.h"
#include "syserr/status_codes.h"

namespace vswitch {

namespace {

constexpr std::uint32_t op_switch_name = 1282;

/* Eight bytes that differ from switch to switch, stay the same for one and are never
 * all zero: the world wide name. */
std::uint32_t get_switch_name(const Switch &target, const Request &, Buffer &data) {
    const std::uint64_t wwn = target.model.settings().wwn;
    append_word(data, static_cast<std::uint32_t>(wwn >> 32));
    append_word(data, static_cast<std::uint32_t>(wwn));
    return STATUS_SUCCESS;
}

std::uint32_t answer_membership(std::optional<SwitchModel::Member> member, std::uint32_t otherwise, Buffer &data) {
    if (!member)
        return otherwise;
    append_membership_record(data, {member->first, member->second});
    return STATUS_SUCCESS;
}

std::uint32_t get_membership(const Switch &target, const Request &request, Buffer &data) {
    const auto key = decode_membership_record(request.payload);
    if (!key)
        return STATUS_BAD_LENGTH;
    return answer_membership(target.model.member({key->vsan, key->if_index}), STATUS_NO_SUCH_MEMBERSHIP, data);
}

std::uint32_t get_next_membership(const Switch &target, const Request &request, Buffer &data) {
    const auto key = decode_membership_record(request.payload);
    if (!key)
        return STATUS_BAD_LENGTH;
    return answer_membership(target.model.member_after({key->vsan, key->if_index}), STATUS_NO_MORE_MEMBERSHIPS, data);
}

constexpr Operation operations[] = {
    {op_switch_name, kind_get, false, 0, 0, get_switch_name},
    {MTS_OP_PORT_MEMBERSHIP, kind_get, true, membership_record_size, membership_record_size, get_membership},
    {MTS_OP_PORT_MEMBERSHIP, kind_get_next, true, membership_record_size, membership_record_size, get_next_membership},
};

} // namespace

std::span<const Operation> port_manager_operations() {
    return operations;
}

} // namespace vswitch
