// SPDX-License-Identifier: Apache-2.0
// Commands about VSANs, ports, roles and the system's texts.
#include <functional>

#include "model/configuration.h"
#include "model/json_settings.h"
#include "operator/command_table.h"

namespace vswitch {

namespace {

using Json = JsonReader::Json;

constexpr size_t max_text = 256;

Json vsan_json(const SwitchModel &model, uint32_t id) {
    const Vsan &vsan = *model.vsan(id);
    const SwitchModel::PortCount ports = model.port_count_of(id);
    return {{"id", id},
            {"name", vsan.name},
            {"state", word_of(admin_state_words, vsan.admin_state)},
            {"oper", word_of(oper_state_words, model.is_up(id) ? OPER_STATE_UP : OPER_STATE_DOWN)},
            {"mtu", vsan.mtu},
            {"loadBalancing", word_of(load_balancing_words, vsan.load_balancing)},
            {"interop", vsan.interop},
            {"inorderDelivery", vsan.inorder_delivery == TRUTH_TRUE},
            {"networkDropLatency", vsan.drop_latency},
            {"ports", ports.all},
            {"portsUp", ports.up}};
}

uint32_t required_vsan(const Call &call) {
    const uint32_t id = call.arguments.required_number("id", vsan_numbers);
    require_vsan(call.the_switch, id);
    return id;
}

void list_vsans(Call &call) {
    const SwitchModel &model = call.the_switch.model;
    auto id = model.vsan_after(call.arguments.number("after", any_number).value_or(0));
    Page page(call, "vsans");
    while (id && page.add(vsan_json(model, *id))) {
        id = model.vsan_after(*id);
    }
}

void show_vsan(Call &call) {
    call.reply = vsan_json(call.the_switch.model, required_vsan(call));
}

// Puts into `vsan` what the command says about it.
void read_vsan(const Arguments &arguments, Vsan &vsan) {
    vsan.name = arguments.text("name", max_text).value_or(vsan.name);
    vsan.admin_state = arguments.word("state", admin_state_words).value_or(vsan.admin_state);
    vsan.mtu = arguments.number("mtu", any_number).value_or(vsan.mtu);
    vsan.load_balancing = arguments.word("loadBalancing", load_balancing_words).value_or(vsan.load_balancing);
    vsan.interop = arguments.number("interop", any_number).value_or(vsan.interop);
    if (const auto in_order = arguments.flag("inorderDelivery")) {
        vsan.inorder_delivery = *in_order ? TRUTH_TRUE : TRUTH_FALSE;
    }
    vsan.drop_latency = arguments.number("networkDropLatency", any_number).value_or(vsan.drop_latency);
}

void change(Call &call, uint32_t id, Vsan wanted, bool create) {
    read_vsan(call.arguments, wanted);
    // In a record 0 would mean that nothing is said about it.
    require(wanted.drop_latency == 0 ? STATUS_BAD_DROP_LATENCY : STATUS_SUCCESS, fmt::format("VSAN {}", id));
    require(change_vsan(call.the_switch, call.requester, id, wanted, create), fmt::format("VSAN {}", id));
    call.reply = vsan_json(call.the_switch.model, id);
}

// With "mayExist", a VSAN that is there gets what the command says about it.
void create_vsan(Call &call) {
    const uint32_t id = call.arguments.required_number("id", vsan_numbers);
    if (const Vsan *present = call.the_switch.model.vsan(id)) {
        if (call.arguments.flag("mayExist").value_or(false)) {
            change(call, id, *present, false);
            call.reply["existed"] = true;
            return;
        }
        throw Refusal(STATUS_BAD_RECORD, fmt::format("VSAN {} exists already.", id));
    }
    change(call, id, new_vsan(id), true);
}

void set_vsan(Call &call) {
    const uint32_t id = required_vsan(call);
    change(call, id, *call.the_switch.model.vsan(id), false);
}

// With "ifExists", there may be no such VSAN.
void remove_vsan(Call &call) {
    if (call.arguments.flag("ifExists").value_or(false)) {
        const uint32_t wanted = call.arguments.required_number("id", vsan_numbers);
        if (!call.the_switch.model.vsan(wanted)) {
            call.reply = {{"id", wanted}, {"movedPorts", 0}, {"absent", true}};
            return;
        }
    }
    const uint32_t id = required_vsan(call);
    const uint32_t ports = call.the_switch.model.port_count_of(id).all;
    require(delete_vsan(call.the_switch, call.requester, id), fmt::format("VSAN {}", id));
    call.reply = {{"id", id}, {"movedPorts", ports}};
}

// "link" is the cable; "oper" follows from that and from whether the port is enabled.
Json port_json(const SwitchModel &model, uint32_t if_index) {
    const Port &port = *model.port(if_index);
    const uint32_t number = model.port_number(if_index);
    const auto state = [](bool is_up) { return word_of(oper_state_words, is_up ? OPER_STATE_UP : OPER_STATE_DOWN); };
    Json json = port_settings_json(port);
    json.update({{"ifIndex", if_index},
                 {"name", fmt::format("fc{}", number)},
                 {"vsan", port.vsan},
                 {"link", state(port.link_up)},
                 {"oper", state(port.is_up())},
                 {"denyList", port.deny_list},
                 {"wwn", wwn_text(port_wwn(model.settings().wwn, number))}});
    return json;
}

void list_ports(Call &call) {
    const SwitchModel &model = call.the_switch.model;
    const auto vsan = call.arguments.number("vsan", vsan_numbers);
    auto if_index = model.port_after(call.arguments.number("after", any_number).value_or(0));
    Page page(call, "ports");
    while (if_index) {
        if ((!vsan || model.port(*if_index)->vsan == *vsan) && !page.add(port_json(model, *if_index))) {
            break;
        }
        if_index = model.port_after(*if_index);
    }
}

void show_port(Call &call) {
    call.reply = port_json(call.the_switch.model, call.arguments.required_port(call.the_switch));
}

// Makes a change of the call's port and answers how the port is then.
template <typename Change> void change_required_port(Call &call, const Change &change_to) {
    const uint32_t if_index = call.arguments.required_port(call.the_switch);
    require(change_to(if_index), fmt::format("Port {}", if_index));
    call.reply = port_json(call.the_switch.model, if_index);
}

void move(Call &call) {
    const uint32_t vsan = call.arguments.required_number("vsan", vsan_numbers);
    change_required_port(call,
                         [&](uint32_t if_index) { return move_port(call.the_switch, call.requester, if_index, vsan); });
}

void plug_in(Call &call) {
    change_required_port(call,
                         [&](uint32_t if_index) { return set_link(call.the_switch, call.requester, if_index, true); });
}

void unplug(Call &call) {
    change_required_port(call,
                         [&](uint32_t if_index) { return set_link(call.the_switch, call.requester, if_index, false); });
}

void deny(Call &call) {
    const uint32_t deny_list = call.arguments.required_number("denyList", any_number);
    change_required_port(
        call, [&](uint32_t if_index) { return set_deny_list(call.the_switch, call.requester, if_index, deny_list); });
}

void configure(Call &call) {
    change_required_port(call, [&](uint32_t if_index) {
        Port port = *call.the_switch.model.port(if_index);
        read_port_settings(call.arguments.reader(), call.arguments.json(), "", port);
        return set_port(call.the_switch, call.requester, if_index, port);
    });
}

void show_system(Call &call) {
    const Settings &settings = call.the_switch.model.settings();
    call.reply = system_texts_json(settings.system);
    call.reply["wwn"] = wwn_text(settings.wwn);
}

void set_system(Call &call) {
    SystemTexts texts = call.the_switch.model.settings().system;
    read_system_texts(call.arguments.reader(), call.arguments.json(), "", texts);
    require(set_system_texts(call.the_switch, call.requester, texts), "The system's texts");
    show_system(call);
}

void list_roles(Call &call) {
    const std::string after = call.arguments.text("after", max_text).value_or("");
    const auto &roles = call.the_switch.roles.list();
    auto role = roles.begin();
    if (!after.empty()) {
        role = std::find_if(roles.begin(), roles.end(), [&](const Role &known) { return known.name == after; });
        role = role == roles.end() ? role : role + 1;
    }
    Page page(call, "roles");
    while (role != roles.end() && page.add(role_json(*role))) {
        ++role;
    }
}

void require_role_change(uint32_t status, const std::string &sentence, const std::string &name) {
    if (status != STATUS_SUCCESS && !sentence.empty()) {
        throw Refusal(status, sentence);
    }
    require(status, fmt::format("Role \"{}\"", JsonReader::printable(name)));
}

// With "mayExist", a role that is there gets what the command names; with "replace", another comes in its
// place.
void set_role(Call &call) {
    const Arguments &arguments = call.arguments;
    const std::string name = arguments.required_text("name", max_text);
    const bool replace = arguments.flag("replace").value_or(false);
    const bool may_exist = arguments.flag("mayExist").value_or(false);
    if (replace && may_exist) {
        arguments.reader().fail("\"replace\" and \"mayExist\" exclude each other");
    }
    Json given = arguments.json();
    for (const char *key : {"command", "replace", "mayExist"}) {
        given.erase(key);
    }
    // Read as the role file is, so that both have one grammar.
    const Role named = parse_roles(Json{{"roles", {given}}}.dump(), "the role").list().front();
    std::function<Role(const Role &)> merge;
    if (replace || may_exist) {
        merge = [&](const Role &present) {
            const auto keeps = [&](const char *key) { return may_exist && !given.contains(key); };
            return Role{named.name, keeps("vsans") ? present.vsans : named.vsans,
                        keeps("interfaces") ? present.interfaces : named.interfaces,
                        keeps("users") ? present.users : named.users};
        };
    }
    Role role = named;
    std::string sentence;
    const uint32_t status = add_role(call.the_switch, call.requester, role, merge, &sentence);
    require_role_change(status, sentence, name);
    call.reply = role_json(role);
}

void drop_role(Call &call) {
    const std::string name = call.arguments.required_text("name", max_text);
    std::string sentence;
    const uint32_t status = remove_role(call.the_switch, call.requester, name, &sentence);
    call.reply["name"] = name;
    if (status == STATUS_NO_SUCH_ROLE && call.arguments.flag("ifExists").value_or(false)) {
        call.reply["absent"] = true;
        return;
    }
    require_role_change(status, sentence, name);
}

const Command commands[] = {
    {"vsan.list", MTS_KIND_GET, list_vsans, {"after", "limit"}},
    {"vsan.show", MTS_KIND_GET, show_vsan, {"id"}},
    {"vsan.create",
     MTS_KIND_SET,
     create_vsan,
     {"id", "name", "state", "mtu", "loadBalancing", "interop", "inorderDelivery", "networkDropLatency", "mayExist"},
     true},
    {"vsan.set",
     MTS_KIND_SET,
     set_vsan,
     {"id", "name", "state", "mtu", "loadBalancing", "interop", "inorderDelivery", "networkDropLatency"},
     true},
    {"vsan.delete", MTS_KIND_SET, remove_vsan, {"id", "ifExists"}, true},
    {"port.list", MTS_KIND_GET, list_ports, {"after", "limit", "vsan"}},
    {"port.show", MTS_KIND_GET, show_port, {"ifIndex"}},
    {"port.move", MTS_KIND_SET, move, {"ifIndex", "vsan"}, true},
    {"port.up", MTS_KIND_SET, plug_in, {"ifIndex"}, true},
    {"port.down", MTS_KIND_SET, unplug, {"ifIndex"}, true},
    {"port.deny", MTS_KIND_SET, deny, {"ifIndex", "denyList"}, true},
    {"port.set", MTS_KIND_SET, configure, {"ifIndex", "alias", "enabled", "speedMbps", "traps", "traffic"}, true},
    {"system.show", MTS_KIND_GET, show_system, {}},
    {"system.set", MTS_KIND_SET, set_system, {"contact", "name", "location"}, true},
    {"role.list", MTS_KIND_GET, list_roles, {"after", "limit"}},
    {"role.add", MTS_KIND_SET, set_role, {"name", "vsans", "interfaces", "users", "replace", "mayExist"}, true},
    {"role.remove", MTS_KIND_SET, drop_role, {"name", "ifExists"}, true},
};

} // namespace

std::span<const Command> configuration_commands() {
    return commands;
}

} // namespace vswitch
