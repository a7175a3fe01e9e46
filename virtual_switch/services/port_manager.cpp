// SPDX-License-Identifier: Apache-2.0
// The port manager: which interface is a member of which VSAN, and the switch's name.
#include "contract/status_codes.h"
#include "services/records.h"
#include "services/services.h"

namespace vswitch {

namespace {

// Eight bytes that differ from switch to switch, stay the same for one and are never
// all zero: the world wide name.
uint32_t get_switch_name(const ServedSwitch &the_switch, const Request &, Buffer &data) {
    const uint64_t wwn = the_switch.model.settings().wwn;
    append_word(data, static_cast<uint32_t>(wwn >> 32));
    append_word(data, static_cast<uint32_t>(wwn));
    return STATUS_SUCCESS;
}

uint32_t answer_membership(const std::optional<Member> &member, uint32_t otherwise, Buffer &data) {
    if (!member) {
        return otherwise;
    }
    append_membership_record(data, *member);
    return STATUS_SUCCESS;
}

uint32_t get_membership(const ServedSwitch &the_switch, const Request &request, Buffer &data) {
    const auto key = decode_membership_record(request.payload);
    if (!key) {
        return STATUS_BAD_LENGTH;
    }
    return answer_membership(the_switch.model.member(*key), STATUS_NO_SUCH_MEMBERSHIP, data);
}

uint32_t get_next_membership(const ServedSwitch &the_switch, const Request &request, Buffer &data) {
    const auto key = decode_membership_record(request.payload);
    if (!key) {
        return STATUS_BAD_LENGTH;
    }
    return answer_membership(the_switch.model.member_after(*key), STATUS_NO_MORE_MEMBERSHIPS, data);
}

constexpr Operation operations[] = {
    {MTS_OP_SWITCH_NAME, MTS_KIND_GET, false, 0, 0, get_switch_name},
    {MTS_OP_PORT_MEMBERSHIP, MTS_KIND_GET, true, MEMBERSHIP_RECORD_SIZE, MEMBERSHIP_RECORD_SIZE, get_membership},
    {MTS_OP_PORT_MEMBERSHIP, MTS_KIND_GET_NEXT, true, MEMBERSHIP_RECORD_SIZE, MEMBERSHIP_RECORD_SIZE,
     get_next_membership},
};

} // namespace

std::span<const Operation> port_manager_operations() {
    return operations;
}

} // namespace vswitch
