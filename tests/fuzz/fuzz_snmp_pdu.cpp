// SPDX-License-Identifier: Apache-2.0
// SNMP messages against a whole agent with the module in it and a switch behind it: each
// well-formed request gets exactly one answer that keeps the protocol's rules, a walk
// advances, a user sees and changes nothing but what the role allows, and no SET leaves
// anything staged, however it ends.
//
//   byte 0  bit 0 the distribution service governs the timers, bit 1 its show-run mode
//   and for every message
//        0  bits 0 and 1: GET, GETNEXT, GETBULK, SET; bit 2 SNMPv1 (not GETBULK);
//           bits 3 and 4 whose community; bits 5 to 7 number of varbinds less one
//        1  bits 0 to 5 which request to the switch fails, bits 6 and 7 how
//        2  GETBULK: bits 0 to 2 non-repeaters, bits 3 to 7 most repetitions
//        3  how many bytes of the message to damage: what this exceeds 248 by
//   for every varbind
//        0  bits 0 to 4 which object
//        1  bits 0 to 2 form of the name, bits 3 to 7 type of a SET's value
//        2  two bytes: the first index
//   in a SET, its value: for an integer of the object's own type two bytes, for anything
//   else a length and as many bytes
//   and for every damaged byte two bytes where it is and one what is flipped in it.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

#include "agent_in_process.h"
#include "fuzz_input.h"
#include "model/configuration.h"
#include "snmp_message.h"
#include "switch_in_process.h"
#include "vsan_mib_exports.h"
#include "vsan_mib_registration.h"

namespace {

using bytes = std::vector<uint8_t>;

constexpr const char *users[] = {"operator", "alice", "nobody", ""};

// Those of one input; more of them would only make it slow.
constexpr int64_t most_messages = 40;

constexpr uint8_t type_integer = 0x02;
constexpr uint8_t type_octets = 0x04;

constexpr int64_t error_too_big = 1;
constexpr int64_t error_wrong_type = 7;
constexpr int64_t error_wrong_length = 8;
constexpr int64_t error_not_writable = 17;

bytes octets(fuzz_input &in) {
    bytes result(in.byte() % 64);
    for (uint8_t &octet : result) {
        octet = in.byte();
    }
    return result;
}

snmp_name root_name() {
    return {std::begin(vsan_mib_variables_oid), std::end(vsan_mib_variables_oid)};
}

// The full names of the registered rows, in their order.
std::vector<snmp_name> make_object_names() {
    std::vector<snmp_name> names;
    for (const variable7 &row : vsan_mib_variables) {
        names.push_back(root_name());
        names.back().insert(names.back().end(), row.name, row.name + row.namelen);
    }
    return names;
}
const std::vector<snmp_name> object_names = make_object_names();

bool starts_with(const snmp_name &name, const snmp_name &prefix) {
    return name.size() >= prefix.size() && std::equal(prefix.begin(), prefix.end(), name.begin());
}

// The registered row of an instance, or null.
const variable7 *object_of(const snmp_name &name) {
    for (size_t i = 0; i < object_names.size(); ++i) {
        if (starts_with(name, object_names[i])) {
            return &vsan_mib_variables[i];
        }
    }
    return nullptr;
}

// The object that a varbind is about: one of the registered rows, or null and a name
// beside them.
const variable7 *choose_object(unsigned which, snmp_name &name) {
    if (which < vsan_mib_variables_count) {
        name = object_names[which];
        return &vsan_mib_variables[which];
    }
    name = root_name();
    switch (which) {
    case 28:
        break;
    case 29:
        name = {1, 3, 6, 1};
        break;
    case 30: // behind the last object
        name.insert(name.end(), {2, 1});
        break;
    default: // a column that does not exist
        name.insert(name.end(), {1, 1, 3, 1, 7});
        break;
    }
    return nullptr;
}

void add_index(unsigned form, uint32_t index, fuzz_input &in, snmp_name &name) {
    switch (form) {
    case 0:
        name.push_back(index);
        break;
    case 1:
        break;
    case 2:
        name.insert(name.end(), {index, in.word16()});
        break;
    case 3:
        name.push_back(index * 65537);
        break;
    case 4:
        name.push_back(0);
        break;
    case 5:
        name.resize(MAX_OID_LEN, index);
        break;
    case 6: // an interface by its number in the chassis
        name.push_back(16777216 + index);
        break;
    default:
        name.insert(name.end(), {index, 16777216 + in.word16()});
        break;
    }
}

// Returns whether the agent has to take the value for one; it drops messages with others.
bool add_value(unsigned how, const variable7 *object, fuzz_input &in, snmp_varbind &varbind) {
    constexpr uint8_t types[] = {type_integer, type_octets, 0x05, 0x06, 0x40, 0x41, 0x42, 0x43, 0x44, 0x46};
    if (how < 16 && object != nullptr) {
        varbind.type = static_cast<uint8_t>(object->type);
        if (varbind.type != type_octets) {
            const uint32_t number = in.word16();
            varbind.value = {static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)};
            if (varbind.type != type_integer) {
                varbind.value.insert(varbind.value.begin(), 0);
            }
            return true;
        }
    } else {
        varbind.type = how - 16 < std::size(types) ? types[how - 16] : in.byte();
    }
    varbind.value = octets(in);
    return varbind.type == type_octets;
}

snmp_varbind next_varbind(fuzz_input &in, bool with_value, bool &is_valid) {
    const unsigned which = in.byte() & 31u;
    const uint8_t how = in.byte();
    snmp_varbind varbind;
    const variable7 *object = choose_object(which, varbind.name);
    const uint32_t index = in.word16();
    add_index(how & 7, index, in, varbind.name);
    if (with_value && !add_value(how >> 3, object, in, varbind)) {
        is_valid = false;
    }
    return varbind;
}

std::string text_of(const snmp_name &name) {
    std::string text;
    for (const uint32_t arc : name) {
        text += "." + std::to_string(arc);
    }
    return text;
}

// One answer of a walk: the row that follows, or the end of everything.
void check_step(const snmp_name &asked, const snmp_varbind &answer) {
    const bool is_end = answer.type == type_end_of_mib_view;
    const std::string step = "after " + text_of(asked) + " comes " + text_of(answer.name) + (is_end ? ", the end" : "");
    require(is_end ? answer.name == asked : answer.name > asked, step.c_str());
}

void check_walk(const snmp_message &request, const snmp_message &answer) {
    const bool is_bulk = request.command == pdu_get_bulk;
    const size_t asked = request.varbinds.size();
    const size_t single = is_bulk ? std::min(asked, static_cast<size_t>(request.error)) : asked;
    const size_t repeated = asked - single;
    require(answer.varbinds.size() >= single, "varbinds are missing");
    const auto most = static_cast<size_t>(is_bulk ? request.index : 0);
    require(answer.varbinds.size() <= single + repeated * most, "too many varbinds");
    for (size_t i = 0; i < answer.varbinds.size(); ++i) {
        const snmp_varbind &step = answer.varbinds[i];
        // Where a repetition begins with the end, the agent takes the name from the wrong end
        // of the request: it forgets that the varbinds that are not repeated come first.
        if (i >= single && i < asked && step.type == type_end_of_mib_view) {
            check_step(request.varbinds[i - single].name, step);
        } else {
            check_step(i < asked ? request.varbinds[i].name : answer.varbinds[i - repeated].name, step);
        }
    }
}

// Whether this is what the timer table answers to a GET where the distribution service has
// no value for that VSAN: the next row that has one.
bool is_later_timer(const snmp_name &asked, const snmp_name &got) {
    const variable7 *row = object_of(asked);
    return row != nullptr && row == object_of(got) && row->findVar == get_vsanFcTimerEntry &&
           the_switch.target->model.settings().tdx_enabled && got > asked;
}

// The protocol's rules for an answer to a request that was not damaged.
void check_answer(const snmp_message &request, const snmp_message &answer) {
    require(answer.command == pdu_response && answer.request_id == request.request_id, "an answer to something else");
    require(answer.version == request.version && answer.community == request.community, "an answer to somebody else");
    require(answer.index >= 0 && static_cast<size_t>(answer.index) <= request.varbinds.size(), "an error nowhere");
    if (answer.error != 0) {
        require(request.command == pdu_set || request.version == 0 || answer.error == error_too_big,
                "a read of SNMPv2c that fails as a whole");
        return;
    }
    if (request.command == pdu_set) {
        require(answer.varbinds.size() == request.varbinds.size(), "a SET answered with other varbinds");
        for (size_t i = 0; i < answer.varbinds.size(); ++i) {
            require(answer.varbinds[i].name == request.varbinds[i].name, "a SET of another instance");
        }
    } else if (request.command == pdu_get) {
        require(answer.varbinds.size() == request.varbinds.size(), "a GET answered with other varbinds");
        for (size_t i = 0; i < answer.varbinds.size(); ++i) {
            const snmp_name &asked = request.varbinds[i].name;
            const snmp_name &got = answer.varbinds[i].name;
            require(got == asked || is_later_timer(asked, got), "a GET of another instance");
        }
    } else {
        check_walk(request, answer);
    }
}

// That the answer to a read tells a restricted user of no VSAN and no interface of others.
void check_visible(const snmp_message &answer, const vswitch::Permission &permission) {
    for (const snmp_varbind &varbind : answer.varbinds) {
        const variable7 *row = object_of(varbind.name);
        if (varbind.type >= 0x80 || row == nullptr || row->findVar == get_vsan_mib) {
            continue; // no such instance, or a scalar
        }
        const size_t index_at = vsan_mib_root_length + row->namelen;
        require(varbind.name.size() > index_at, "a row without an index");
        const uint32_t index = varbind.name[index_at];
        if (row->magic == VSANIFVSAN) {
            require(permission.allows_interface(index), "another user's interface is seen");
        } else if (row->magic != VSANIFDENYLIST) { // which everybody may see
            require(permission.allows_vsan(index), "another user's VSAN is seen");
        }
    }
}

// That what a restricted user may not touch is as it was. When a VSAN goes, its ports
// move to another, whoever they belong to.
void check_untouched(const vswitch::SwitchData &before, const vswitch::SwitchData &after,
                     const vswitch::Permission &permission) {
    for (const auto &[id, vsan] : before.vsans) {
        require(permission.allows_vsan(id) || (after.vsans.contains(id) && after.vsans.at(id) == vsan),
                "another user's VSAN is changed");
    }
    for (const auto &[id, vsan] : after.vsans) {
        require(permission.allows_vsan(id) || before.vsans.contains(id), "a VSAN is created for others");
    }
    for (const auto &[if_index, port] : before.ports) {
        require(permission.allows_interface(if_index) || after.ports.at(if_index) == port ||
                    !after.vsans.contains(port.vsan),
                "another user's interface is changed");
    }
    require(after.settings.timers == before.settings.timers &&
                after.settings.switch_latency == before.settings.switch_latency &&
                after.settings.network_latency == before.settings.network_latency &&
                after.settings.inorder_delivery == before.settings.inorder_delivery,
            "a restricted user changes the whole switch");
}

void check_switch(const vswitch::SwitchData &data) {
    require(data.vsans.contains(VSAN_NUMBER_DEFAULT), "the default VSAN is gone");
    for (const auto &[id, vsan] : data.vsans) {
        require(id >= 1 && id <= VSAN_NUMBER_MAX, "a VSAN that cannot be");
    }
    for (const auto &[if_index, port] : data.ports) {
        require(data.vsans.contains(port.vsan), "an interface in no VSAN");
    }
}

bool fails_before_any_change(int64_t error) {
    return error == error_wrong_type || error == error_wrong_length || error == error_not_writable;
}

// One message and its answer.
void converse(fuzz_input &in, int64_t number) {
    constexpr uint8_t commands[] = {pdu_get, pdu_get_next, pdu_get_bulk, pdu_set};
    const uint8_t kind = in.byte();
    const uint8_t failing = in.byte();
    const uint8_t repetitions = in.byte();
    const uint8_t damage = in.byte();
    snmp_message request;
    request.command = commands[kind & 3];
    const bool is_set = request.command == pdu_set;
    if ((kind & 4) != 0 && request.command != pdu_get_bulk) {
        request.version = 0;
    }
    request.community = users[kind >> 3 & 3];
    request.request_id = number;
    if (request.command == pdu_get_bulk) {
        request.error = repetitions & 7;
        request.index = repetitions >> 3;
    }
    bool is_valid = true;
    for (unsigned left = (kind >> 5) + 1u; left > 0; --left) {
        request.varbinds.push_back(next_varbind(in, is_set, is_valid));
    }
    bytes message = encode(request);
    const unsigned damaged = damage > 248 ? damage - 248u : 0;
    for (unsigned left = damaged; left > 0; --left) {
        message[in.word16() % message.size()] ^= in.byte();
    }

    vswitch::ServedSwitch &target = *the_switch.target;
    const vswitch::Permission *permission = target.roles.find(request.community);
    std::optional<vswitch::SwitchData> before;
    if (is_set && permission != nullptr) {
        before = target.model.data();
    }
    the_switch.failing = failing & 63u;
    the_switch.how = static_cast<failure>(failing >> 6);
    the_switch.requests = 0;
    the_switch.changes = 0;
    const std::vector<bytes> answers = exchange(message);

    require(the_switch.listed == 0, "a SET left something staged");
    require(!agent_is_blocking(), "the agent says that it blocks");
    check_switch(target.model.data());
    require(answers.size() <= 1, "two answers");
    for (const bytes &answer : answers) {
        require(decode(answer).has_value(), "an answer that is no message");
    }
    if (damaged != 0) {
        return;
    }

    require(answers.size() == 1 || !is_valid, "no answer");
    if (answers.empty()) {
        return;
    }
    const snmp_message answer = *decode(answers[0]);
    check_answer(request, answer);
    require(is_set || the_switch.changes == 0, "a read that changes something");
    if (is_set && request.version == 1 && fails_before_any_change(answer.error)) {
        require(the_switch.changes == 0, "a SET that was refused has changed something");
    }
    if (before) {
        check_untouched(*before, target.model.data(), *permission);
    } else if (permission != nullptr && answer.error == 0) {
        check_visible(answer, *permission);
    }
}

vswitch::SwitchData make_data() {
    return vswitch::parse_configuration(R"({
        "vsans": [{"id": 2}, {"id": 10, "timers": {"ratov": 20000}}, {"id": 20, "name": "mine"},
                  {"id": 300, "state": "suspended"}, {"id": 4094}, {"id": 4095}],
        "ports": [{"ifIndex": 1}, {"ifIndex": 5, "vsan": 20}, {"ifIndex": 16777216, "vsan": 10},
                  {"ifIndex": 16777217, "vsan": 20}, {"ifIndex": 4294967295, "vsan": 4095}],
        "tdx": {"fctimer": {"timers": {"10": {"ratov": 30000}, "300": {"dstov": 6000}}}}})",
                                        "fuzz");
}

vswitch::Roles make_roles() {
    return vswitch::parse_roles(R"({"roles": [
        {"name": "some", "vsans": ["10-20", "4095"], "interfaces": ["5", "16777216"], "users": ["alice"]},
        {"name": "none", "users": ["nobody"]}]})",
                                "fuzz");
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    start_agent();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const vswitch::SwitchData initial = make_data();
    static const vswitch::Roles roles = make_roles();
    fuzz_input in(data, size);
    const uint8_t mode = in.byte();
    vswitch::SwitchData start = initial;
    start.settings.tdx_enabled = (mode & 1) != 0;
    start.settings.tdx_show_run = (mode & 2) != 0;
    the_switch.target.emplace(start, roles);
    for (int64_t number = 1; number <= most_messages && !in.empty(); ++number) {
        converse(in, number);
    }
    return 0;
}
