/* Commands about VSANs, ports and roles. */
#include "command_table.h"
#include "configuration.h"

namespace vswitch {

namespace {

using Json = JsonReader::Json;

constexpr std::pair<const char *, std::uint32_t> states[] = {{"active", vsan_active}, {"suspended", vsan_suspended}};
constexpr std::pair<const char *, std::uint32_t> load_balancings[] = {{"srcIdDestId", 1}, {"srcIdDestIdOxId", 2}};
constexpr std::size_t max_text = 256;

/* The ports of a VSAN, and how many of them are up. */
std::pair<std::uint32_t, std::uint32_t> count_ports(const SwitchModel &model, std::uint32_t vsan) {
    std::uint32_t ports = 0;
    std::uint32_t up = 0;
    for (auto member = model.member_after({vsan, 0}); member && member->first == vsan;
         member = model.member_after(*member)) {
        ++ports;
        up += model.port(member->second)->second.link_up;
    }
    return {ports, up};
}

Json vsan_json(const SwitchModel &model, const SwitchModel::VsanRow &row) {
    const auto &[id, vsan] = row;
    const auto [ports, up] = count_ports(model, id);
    return {{"id", id},
            {"name", vsan.name},
            {"state", vsan.admin_state == vsan_suspended ? "suspended" : "active"},
            {"oper", model.is_up(row) ? "up" : "down"},
            {"mtu", vsan.mtu},
            {"loadBalancing", load_balancings[vsan.load_balancing == 1 ? 0 : 1].first},
            {"interop", vsan.interop},
            {"inorderDelivery", vsan.inorder_delivery == truth_true},
            {"networkDropLatency", vsan.drop_latency},
            {"ports", ports},
            {"portsUp", up}};
}

const SwitchModel::VsanRow &required_vsan(const Call &call) {
    const std::uint32_t id = call.arguments.required_number("id", 1, max_vsan);
    const auto *row = call.target.model.vsan(id);
    if (!row)
        throw CommandRefused(STATUS_NO_SUCH_VSAN, fmt::format("VSAN {} does not exist.", id));
    return *row;
}

void list_vsans(Call &call) {
    const SwitchModel &model = call.target.model;
    const std::uint32_t after = call.arguments.number("after", 0, UINT32_MAX).value_or(0);
    Page page(call, "vsans");
    for (const auto *row = model.vsan_after(after); row && page.add(vsan_json(model, *row));)
        row = model.vsan_after(row->first);
}

void show_vsan(Call &call) {
    call.reply = vsan_json(call.target.model, required_vsan(call));
}

/* Puts into `vsan` what the command says about it. */
void read_vsan(const Arguments &arguments, Vsan &vsan) {
    vsan.name = arguments.text("name", max_text).value_or(vsan.name);
    vsan.admin_state = arguments.word("state", states).value_or(vsan.admin_state);
    vsan.mtu = arguments.number("mtu", 0, UINT32_MAX).value_or(vsan.mtu);
    vsan.load_balancing = arguments.word("loadBalancing", load_balancings).value_or(vsan.load_balancing);
    vsan.interop = arguments.number("interop", 0, UINT32_MAX).value_or(vsan.interop);
    if (const auto in_order = arguments.flag("inorderDelivery"))
        vsan.inorder_delivery = *in_order ? truth_true : truth_false;
    /* 0 would mean that nothing is said about it. */
    vsan.drop_latency = arguments.number("networkDropLatency", 1, UINT32_MAX).value_or(vsan.drop_latency);
}

void change(Call &call, std::uint32_t id, Vsan wanted, bool create) {
    read_vsan(call.arguments, wanted);
    require(change_vsan(call.target, call.requester, id, wanted, create), fmt::format("VSAN {}", id));
    call.reply = vsan_json(call.target.model, *call.target.model.vsan(id));
}

void create_vsan(Call &call) {
    const std::uint32_t id = call.arguments.required_number("id", 1, max_vsan);
    if (call.target.model.vsan(id))
        throw CommandRefused(STATUS_BAD_RECORD, fmt::format("VSAN {} exists already.", id));
    change(call, id, new_vsan(id), true);
}

void set_vsan(Call &call) {
    const auto &[id, vsan] = required_vsan(call);
    change(call, id, vsan, false);
}

void remove_vsan(Call &call) {
    const std::uint32_t id = required_vsan(call).first;
    const std::uint32_t ports = count_ports(call.target.model, id).first;
    require(delete_vsan(call.target, call.requester, id), fmt::format("VSAN {}", id));
    call.reply = {{"id", id}, {"movedPorts", ports}};
}

Json port_json(const SwitchModel::PortRow &row, std::uint32_t position) {
    return {{"ifIndex", row.first},
            {"name", fmt::format("fc{}", position)},
            {"vsan", row.second.vsan},
            {"link", row.second.link_up ? "up" : "down"},
            {"denyList", row.second.deny_list}};
}

void list_ports(Call &call) {
    const SwitchModel &model = call.target.model;
    const std::uint32_t after = call.arguments.number("after", 0, UINT32_MAX).value_or(0);
    const auto vsan = call.arguments.number("vsan", 1, max_vsan);
    Page page(call, "ports");
    std::uint32_t position = 0;
    for (const auto *row = model.port_after(0); row; row = model.port_after(row->first)) {
        ++position;
        if (row->first > after && (!vsan || row->second.vsan == *vsan) && !page.add(port_json(*row, position)))
            break;
    }
}

/* Makes a change of the call's port and answers how the port is then. */
template <typename Change> void change_required_port(Call &call, const Change &change_to) {
    const std::uint32_t if_index = call.arguments.required_port(call.target).first;
    require(change_to(if_index), fmt::format("Port {}", if_index));
    const SwitchModel &model = call.target.model;
    std::uint32_t position = 1;
    for (const auto *row = model.port_after(0); row && row->first < if_index; row = model.port_after(row->first))
        ++position;
    call.reply = port_json(*model.port(if_index), position);
}

void move(Call &call) {
    const std::uint32_t vsan = call.arguments.required_number("vsan", 1, max_vsan);
    change_required_port(
        call, [&](std::uint32_t if_index) { return move_port(call.target, call.requester, if_index, vsan); });
}

void plug_in(Call &call) {
    change_required_port(call,
                         [&](std::uint32_t if_index) { return set_link(call.target, call.requester, if_index, true); });
}

void unplug(Call &call) {
    change_required_port(
        call, [&](std::uint32_t if_index) { return set_link(call.target, call.requester, if_index, false); });
}

void deny(Call &call) {
    const std::uint32_t deny_list = call.arguments.required_number("denyList", 0, UINT32_MAX);
    change_required_port(
        call, [&](std::uint32_t if_index) { return set_deny_list(call.target, call.requester, if_index, deny_list); });
}

Json ranges_json(const std::vector<Permission::Range> &ranges) {
    Json json = Json::array();
    for (const auto &[first, last] : ranges)
        json.push_back(first == last ? fmt::format("{}", first) : fmt::format("{}-{}", first, last));
    return json;
}

Json role_json(const Role &role) {
    return {{"name", role.name},
            {"vsans", ranges_json(role.vsans)},
            {"interfaces", ranges_json(role.interfaces)},
            {"users", role.users}};
}

void list_roles(Call &call) {
    const std::string after = call.arguments.text("after", max_text).value_or("");
    const auto &roles = call.target.roles.list();
    auto role = roles.begin();
    if (!after.empty()) {
        role = std::find_if(roles.begin(), roles.end(), [&](const Role &known) { return known.name == after; });
        role = role == roles.end() ? role : role + 1;
    }
    Page page(call, "roles");
    while (role != roles.end() && page.add(role_json(*role)))
        ++role;
}

void require_role_change(std::uint32_t status, const std::string &sentence, const std::string &name) {
    if (status != STATUS_SUCCESS && !sentence.empty())
        throw CommandRefused(status, sentence);
    require(status, fmt::format("Role \"{}\"", JsonReader::printable(name)));
}

void set_role(Call &call) {
    const std::string name = call.arguments.required_text("name", max_text);
    Json role = call.arguments.json();
    role.erase("command");
    role.erase("replace");
    /* Read as the role file is, so that both have one grammar. */
    const Roles read = parse_roles(Json{{"roles", {role}}}.dump(), "the role");
    std::string sentence;
    require_role_change(add_role(call.target, call.requester, read.list().front(),
                                 call.arguments.flag("replace").value_or(false), &sentence),
                        sentence, name);
    call.reply = role_json(read.list().front());
}

void drop_role(Call &call) {
    const std::string name = call.arguments.required_text("name", max_text);
    std::string sentence;
    require_role_change(remove_role(call.target, call.requester, name, &sentence), sentence, name);
    call.reply["name"] = name;
}

const Command commands[] = {
    {"vsan.list", kind_get, list_vsans, {"after", "limit"}},
    {"vsan.show", kind_get, show_vsan, {"id"}},
    {"vsan.create",
     kind_set,
     create_vsan,
     {"id", "name", "state", "mtu", "loadBalancing", "interop", "inorderDelivery", "networkDropLatency"}},
    {"vsan.set",
     kind_set,
     set_vsan,
     {"id", "name", "state", "mtu", "loadBalancing", "interop", "inorderDelivery", "networkDropLatency"}},
    {"vsan.delete", kind_set, remove_vsan, {"id"}},
    {"port.list", kind_get, list_ports, {"after", "limit", "vsan"}},
    {"port.move", kind_set, move, {"ifIndex", "vsan"}},
    {"port.up", kind_set, plug_in, {"ifIndex"}},
    {"port.down", kind_set, unplug, {"ifIndex"}},
    {"port.deny", kind_set, deny, {"ifIndex", "denyList"}},
    {"role.list", kind_get, list_roles, {"after", "limit"}},
    {"role.add", kind_set, set_role, {"name", "vsans", "interfaces", "users", "replace"}},
    {"role.remove", kind_set, drop_role, {"name"}},
};

} // namespace

std::span<const Command> configuration_commands() {
    return commands;
}

} // namespace vswitch
