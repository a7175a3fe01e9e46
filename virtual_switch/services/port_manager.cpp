// SPDX-License-Identifier: Apache-2.0
// The port manager: which interface is a member of which VSAN, what each interface is like, and what
// the switch is called.
#include "changes/changes.h"
#include "contract/status_codes.h"
#include "model/configuration.h"
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

uint32_t answer_port(const ServedSwitch &the_switch, uint32_t if_index, Buffer &data) {
    const SwitchModel &model = the_switch.model;
    const Port *port = model.port(if_index);
    if (!port) {
        return STATUS_NO_SUCH_INTERFACE;
    }
    const uint32_t number = model.port_number(if_index);
    append_port_record(data,
                       {if_index, number, port_wwn(model.settings().wwn, number),
                        the_switch.clock.told(port->last_change), the_switch.traffic.start(),
                        the_switch.traffic.of(if_index, *port), the_switch.clock.now()},
                       *port);
    return STATUS_SUCCESS;
}

uint32_t get_port(const ServedSwitch &the_switch, const Request &request, Buffer &data) {
    const auto if_index = load_word(request.payload, 0);
    if (!if_index) {
        return STATUS_BAD_LENGTH;
    }
    return answer_port(the_switch, *if_index, data);
}

uint32_t get_next_port(const ServedSwitch &the_switch, const Request &request, Buffer &data) {
    const auto if_index = load_word(request.payload, 0);
    if (!if_index) {
        return STATUS_BAD_LENGTH;
    }
    const auto next = the_switch.model.port_after(*if_index);
    if (!next) {
        return STATUS_NO_MORE_INTERFACES;
    }
    return answer_port(the_switch, *next, data);
}

// Puts a setting into `port`; returns why it cannot be one.
uint32_t edit(Port &port, const PortSetting &setting) {
    if (setting.key == PORT_SETTING_ALIAS) {
        port.alias = *setting.text;
        return STATUS_SUCCESS;
    }
    if (setting.key != PORT_SETTING_ADMIN && setting.key != PORT_SETTING_TRAPS) {
        return STATUS_BAD_RECORD;
    }
    if (!setting.word) {
        return STATUS_BAD_LENGTH;
    }
    const bool is_status = setting.key == PORT_SETTING_ADMIN;
    const uint32_t on = is_status ? uint32_t{PORT_UP} : uint32_t{PORT_TRAPS_ENABLED};
    const uint32_t off = is_status ? uint32_t{PORT_DOWN} : uint32_t{PORT_TRAPS_DISABLED};
    if (setting.word != on && setting.word != off) {
        return STATUS_BAD_RECORD;
    }
    (is_status ? port.enabled : port.traps) = setting.word == on;
    return STATUS_SUCCESS;
}

uint32_t set_port_setting(ServedSwitch &the_switch, const Request &request, Buffer &) {
    const auto setting = decode_port_setting(request.payload);
    if (!setting) {
        return STATUS_BAD_LENGTH;
    }
    // Whether there is such a port is told only to those who may touch it.
    const Port *present = the_switch.model.port(setting->if_index);
    Port port = present ? *present : Port();
    if (const uint32_t status = edit(port, *setting); status != STATUS_SUCCESS) {
        return status;
    }
    return set_port(the_switch, {request.user, false}, setting->if_index, port);
}

uint32_t get_system(const ServedSwitch &the_switch, const Request &, Buffer &data) {
    const Settings &settings = the_switch.model.settings();
    append_system_record(data, settings.system, settings.wwn);
    return STATUS_SUCCESS;
}

uint32_t set_system_text(ServedSwitch &the_switch, const Request &request, Buffer &) {
    const auto setting = decode_system_setting(request.payload);
    if (!setting) {
        return STATUS_BAD_LENGTH;
    }
    if (setting->text >= SYSTEM_TEXT_COUNT) {
        return STATUS_BAD_RECORD;
    }
    SystemTexts texts = the_switch.model.settings().system;
    texts[setting->text] = setting->value;
    return set_system_texts(the_switch, {request.user, false}, texts);
}

constexpr Operation operations[] = {
    {MTS_OP_SWITCH_NAME, MTS_KIND_GET, false, 0, 0, get_switch_name},
    {MTS_OP_PORT_MEMBERSHIP, MTS_KIND_GET, true, MEMBERSHIP_RECORD_SIZE, MEMBERSHIP_RECORD_SIZE, get_membership},
    {MTS_OP_PORT_MEMBERSHIP, MTS_KIND_GET_NEXT, true, MEMBERSHIP_RECORD_SIZE, MEMBERSHIP_RECORD_SIZE,
     get_next_membership},
    {MTS_OP_PORT, MTS_KIND_GET, true, WORD_RECORD_SIZE, WORD_RECORD_SIZE, get_port},
    {MTS_OP_PORT, MTS_KIND_GET_NEXT, true, WORD_RECORD_SIZE, WORD_RECORD_SIZE, get_next_port},
    {MTS_OP_PORT, MTS_KIND_SET, true, PORT_SETTING_VALUE, PORT_SETTING_VALUE + PORT_ALIAS_MAX, nullptr,
     set_port_setting},
    {MTS_OP_SYSTEM, MTS_KIND_GET, false, 0, 0, get_system},
    {MTS_OP_SYSTEM, MTS_KIND_SET, true, SYSTEM_SETTING_VALUE, SYSTEM_SETTING_VALUE + SYSTEM_TEXT_MAX, nullptr,
     set_system_text},
};

} // namespace

std::span<const Operation> port_manager_operations() {
    return operations;
}

} // namespace vswitch
