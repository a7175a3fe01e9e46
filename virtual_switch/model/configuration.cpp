// SPDX-License-Identifier: Apache-2.0
#include "model/configuration.h"

#include <array>
#include <charconv>
#include <filesystem>
#include <random>
#include <span>

#include "demo_json.h"
#include "model/files.h"
#include "model/json_reader.h"
#include "model/json_settings.h"
#include "model/rules.h"
#include "model/words.h"

namespace vswitch {

namespace {

using Json = JsonReader::Json;

constexpr uint32_t default_port_count = 48;
constexpr uint32_t max_port_count = 4096;

void read_name(const JsonReader &reader, const Json &object, const std::string &place, std::string &name) {
    const auto found = object.find("name");
    if (found == object.end()) {
        return;
    }
    name = reader.text(*found, place + ": \"name\"");
    if (!is_vsan_name(name)) {
        reader.fail(
            fmt::format("{}: \"name\" must be at most {} printable characters without blanks", place, VSAN_NAME_MAX));
    }
}

// Reads a key that is true or false; files of earlier releases have the numbers of the records.
void read_truth(const JsonReader &reader, const Json &object, const char *key, const std::string &place,
                uint32_t &value) {
    const auto found = object.find(key);
    if (found == object.end()) {
        return;
    }
    if (found->is_boolean()) {
        value = found->get<bool>() ? TRUTH_TRUE : TRUTH_FALSE;
    } else if (*found == TRUTH_TRUE || *found == TRUTH_FALSE) {
        value = found->get<uint32_t>();
    } else {
        reader.fail(fmt::format("{}: \"{}\" must be true or false", place, key));
    }
}

void read_interop(const JsonReader &reader, const Json &object, const std::string &place, uint32_t &interop) {
    const auto found = object.find("interop");
    if (found == object.end()) {
        return;
    }
    if (*found == "none") {
        interop = VSAN_INTEROP_NONE;
        return;
    }
    if (!found->is_number_unsigned() || *found > VSAN_INTEROP_NONE || !is_interop(found->get<uint32_t>())) {
        reader.fail(fmt::format("{}: \"interop\" must be {} to {}, or {} or \"none\" for none", place, VSAN_INTEROP_MIN,
                                VSAN_INTEROP_MAX, VSAN_INTEROP_NONE));
    }
    interop = found->get<uint32_t>();
}

// Reads a key whose value is one of two words.
void read_word(const JsonReader &reader, const Json &object, const char *key, const std::string &place,
               std::span<const Word, 2> words, uint32_t &value) {
    const auto found = object.find(key);
    if (found == object.end()) {
        return;
    }
    const auto given = found->is_string() ? value_of(words, found->get_ref<const std::string &>()) : std::nullopt;
    if (!given) {
        reader.fail(fmt::format("{}: \"{}\" must be \"{}\" or \"{}\"", place, key, words[0].text, words[1].text));
    }
    value = *given;
}

void read_timers(const JsonReader &reader, const Json &json, const std::string &place, PartialTimers &timers) {
    reader.expect_object(json, place, {"edtov", "ratov", "dstov", "fstov"});
    for (const TimerKind &kind : timer_kinds) {
        const auto found = json.find(kind.word);
        if (found != json.end()) {
            timers[kind.timer] =
                reader.number(*found, fmt::format("{}: \"{}\"", place, kind.word), {kind.least, kind.greatest});
        }
    }
}

void read_vsan(const JsonReader &reader, const Json &json, SwitchData &data, std::set<uint32_t> &listed) {
    reader.expect_object(
        json, "a VSAN",
        {"id", "name", "state", "mtu", "loadBalancing", "interop", "inorderDelivery", "networkDropLatency", "timers"});
    if (!json.contains("id")) {
        reader.fail("a VSAN has no \"id\"");
    }
    const uint32_t id = reader.number(json["id"], "a VSAN's \"id\"", vsan_numbers);
    const std::string place = fmt::format("VSAN {}", id);
    if (listed.contains(id)) {
        reader.fail(place + " is listed twice");
    }
    listed.insert(id);

    Vsan vsan;
    vsan.name = default_vsan_name(id);
    read_name(reader, json, place, vsan.name);
    read_word(reader, json, "state", place, admin_state_words, vsan.admin_state);
    reader.optional_number(json, "mtu", place, mtus, vsan.mtu);
    read_word(reader, json, "loadBalancing", place, load_balancing_words, vsan.load_balancing);
    read_interop(reader, json, place, vsan.interop);
    read_truth(reader, json, "inorderDelivery", place, vsan.inorder_delivery);
    reader.optional_number(json, "networkDropLatency", place, drop_latencies, vsan.drop_latency);
    if (json.contains("timers")) {
        read_timers(reader, json["timers"], place + ": \"timers\"", vsan.timers);
    }
    data.vsans.insert_or_assign(id, std::move(vsan));
}

void add_default_vsan(SwitchData &data, uint32_t id) {
    if (!data.vsans.contains(id)) {
        data.vsans[id].name = default_vsan_name(id);
    }
}

// Makes each VSAN once, however many ranges have it.
void read_vsan_ranges(const JsonReader &reader, const Json &json, SwitchData &data) {
    reader.expect_array(json, "\"vsanRange\"");
    std::array<int32_t, VSAN_NUMBER_MAX + 2> begun{}; // ranges that begin at a number, less those that ended before it
    for (const Json &range : json) {
        reader.expect_object(range, "a VSAN range", {"first", "last"});
        if (!range.contains("first") || !range.contains("last")) {
            reader.fail("a VSAN range must have \"first\" and \"last\"");
        }
        const uint32_t first = reader.number(range["first"], "a VSAN range's \"first\"", vsan_numbers);
        const uint32_t last = reader.number(range["last"], "a VSAN range's \"last\"", {first, VSAN_NUMBER_MAX});
        ++begun[first];
        --begun[last + 1];
    }
    int32_t ranges = 0;
    for (uint32_t id = 1; id <= VSAN_NUMBER_MAX; ++id) {
        ranges += begun[id];
        if (ranges > 0) {
            add_default_vsan(data, id);
        }
    }
}

void read_vsans(const JsonReader &reader, const Json &json, SwitchData &data) {
    if (json.contains("vsanRange")) {
        read_vsan_ranges(reader, json["vsanRange"], data);
    }
    add_default_vsan(data, VSAN_NUMBER_DEFAULT);
    if (json.contains("vsans")) {
        reader.expect_array(json["vsans"], "\"vsans\"");
        std::set<uint32_t> listed;
        for (const Json &vsan : json["vsans"]) {
            read_vsan(reader, vsan, data, listed);
        }
    }
    std::map<std::string_view, uint32_t> names;
    for (const auto &[id, vsan] : data.vsans) {
        if (!vsan.name.empty() && names.contains(vsan.name)) {
            reader.fail(
                fmt::format("VSAN {} and VSAN {} have the same name \"{}\"", names.at(vsan.name), id, vsan.name));
        }
        names[vsan.name] = id;
    }
}

void add_ports_without_link(SwitchData &data, uint32_t count) {
    Port port;
    port.link_up = false;
    for (uint32_t number = 0; number < count; ++number) {
        data.ports.emplace(port_if_index(number), port);
    }
}

void read_ports(const JsonReader &reader, const Json &json, SwitchData &data) {
    if (!json.contains("ports")) {
        uint32_t count = default_port_count;
        reader.optional_number(json, "portCount", "the file", {0, max_port_count}, count);
        add_ports_without_link(data, count);
        return;
    }
    if (json.contains("portCount")) {
        reader.fail("\"ports\" and \"portCount\" exclude each other");
    }
    reader.expect_array(json["ports"], "\"ports\"");
    for (const Json &item : json["ports"]) {
        reader.expect_object(
            item, "a port",
            {"ifIndex", "vsan", "link", "denyList", "alias", "enabled", "speedMbps", "traps", "traffic"});
        if (!item.contains("ifIndex")) {
            reader.fail("a port has no \"ifIndex\"");
        }
        const uint32_t if_index = reader.number(item["ifIndex"], "a port's \"ifIndex\"", if_indexes);
        const std::string place = fmt::format("port {}", if_index);
        Port port;
        reader.optional_number(item, "vsan", place, vsan_numbers, port.vsan);
        reader.optional_number(item, "denyList", place, any_number, port.deny_list);
        uint32_t link = OPER_STATE_UP;
        read_word(reader, item, "link", place, oper_state_words, link);
        port.link_up = link == OPER_STATE_UP;
        read_port_settings(reader, item, place + ": ", port);
        if (!data.vsans.contains(port.vsan)) {
            reader.fail(fmt::format("{} is in VSAN {}, which does not exist", place, port.vsan));
        }
        if (data.ports.contains(if_index)) {
            reader.fail(place + " is listed twice");
        }
        data.ports[if_index] = std::move(port);
        if (data.ports.size() > max_port_count) {
            reader.fail(fmt::format("it lists more than {} ports", max_port_count));
        }
    }
}

void read_settings(const JsonReader &reader, const Json &json, Settings &settings) {
    for (const LatencyKind &kind : latency_kinds) {
        reader.optional_number(json, kind.word, "the file", latencies, settings.*kind.setting);
    }
    read_truth(reader, json, "inorderDelivery", "the file", settings.inorder_delivery);
    reader.optional_boolean(json, "statusEvents", "the file", settings.status_events);
    if (json.contains("timers")) {
        PartialTimers timers;
        read_timers(reader, json["timers"], "\"timers\"", timers);
        for (const TimerKind &kind : timer_kinds) {
            settings.timers[kind.timer] = timers[kind.timer].value_or(settings.timers[kind.timer]);
        }
    }
}

void read_distribution(const JsonReader &reader, const Json &json, SwitchData &data) {
    reader.expect_object(json, "\"tdx\"", {"fctimer"});
    const auto feature = json.find("fctimer");
    if (feature == json.end()) {
        return;
    }
    reader.expect_object(*feature, "\"fctimer\"", {"enabled", "showRun", "refuse", "timers"});
    reader.optional_boolean(*feature, "enabled", "\"fctimer\"", data.settings.tdx_enabled);
    reader.optional_boolean(*feature, "showRun", "\"fctimer\"", data.settings.tdx_show_run);
    reader.optional_boolean(*feature, "refuse", "\"fctimer\"", data.settings.tdx_refusing);
    const auto timers = feature->find("timers");
    if (timers == feature->end()) {
        return;
    }
    if (!timers->is_object()) {
        reader.fail("\"fctimer\": \"timers\" must be an object");
    }
    for (const auto &[key, values] : timers->items()) {
        const std::string place = fmt::format("\"fctimer\": timers of \"{}\"", JsonReader::printable(key));
        uint32_t id = 0;
        const auto [end, error] = std::from_chars(key.data(), key.data() + key.size(), id);
        if (error != std::errc() || end != key.data() + key.size() || key.front() == '0' || !data.vsans.contains(id)) {
            reader.fail(place + ": the key must be the number of a VSAN that exists");
        }
        read_timers(reader, values, place, data.vsans.at(id).distributed_timers);
    }
}

// In each VSAN the timers must be in order, and in the distribution service's record of it,
// which becomes the VSAN's own when it is committed.
void check_timer_orders(const JsonReader &reader, const SwitchData &data) {
    if (const std::string place = disordered_timers(data); !place.empty()) {
        reader.fail(place + ": \"edtov\" must be less than \"ratov\", but where \"forceTimers\" is true");
    }
}

void check_format(const JsonReader &reader, const Json &json) {
    const auto format = json.find("format");
    if (format != json.end() && *format != configuration_format) {
        reader.fail(fmt::format("\"format\" must be {}; another is of another release", configuration_format));
    }
}

// A world wide name as wwn_text writes it, and not 0.
// As strict as where a single role is added. An old role file may have other names.
void check_role_names(const JsonReader &reader, const Roles &roles) {
    for (const Role &role : roles.list()) {
        if (!is_role_name(role.name)) {
            reader.fail(fmt::format("the role \"{}\" has a name without characters, or with control characters",
                                    JsonReader::printable(role.name)));
        }
    }
}

uint64_t read_wwn(const JsonReader &reader, const Json &json) {
    const std::string &text = reader.text(json, "\"wwn\"");
    uint64_t wwn = 0;
    std::string digits;
    for (size_t at = 0; at < text.size(); ++at) {
        if (at % 3 == 2 && text[at] == ':') {
            continue;
        }
        digits += at % 3 == 2 ? '?' : text[at];
    }
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), wwn, 16);
    constexpr size_t size = 23;
    if (text.size() != size || error != std::errc() || end != digits.data() + digits.size() || wwn == 0) {
        reader.fail("\"wwn\" must be eight bytes as in \"10:00:02:5c:b5:ae:8c:a5\"");
    }
    return wwn;
}

} // namespace

std::string default_vsan_name(uint32_t id) {
    return fmt::format("VSAN{:04}", id);
}

std::string disordered_timers(const SwitchData &data) {
    const auto of_switch = [&](Timer timer) { return data.settings.timers[timer]; };
    if (!are_timers_in_order(of_switch)) {
        return "the switch-wide timers";
    }
    for (const auto &[id, vsan] : data.vsans) {
        const auto running = [&of_switch, &timers = vsan.timers](Timer timer) {
            return timers[timer].value_or(of_switch(timer));
        };
        const auto distributed = [&running, &timers = vsan.distributed_timers](Timer timer) {
            return timers[timer].value_or(running(timer));
        };
        if (!are_timers_in_order(running)) {
            return fmt::format("the timers of VSAN {}", id);
        }
        if (!are_timers_in_order(distributed)) {
            return fmt::format("\"fctimer\": timers of \"{}\"", id);
        }
    }
    return "";
}

Configuration read_configuration(std::string_view text, const std::string &source) {
    const JsonReader reader(source);
    const Json json = reader.parse_object(text);
    check_format(reader, json);
    reader.expect_object(json, "the file",
                         {"format", "wwn", "vsans", "vsanRange", "ports", "portCount", "timers", "forceTimers",
                          "switchLatency", "networkLatency", "inorderDelivery", "statusEvents", "system", "tdx",
                          "roles"});
    Configuration configuration;
    SwitchData &data = configuration.data;
    read_vsans(reader, json, data);
    read_ports(reader, json, data);
    configuration.has_ports = json.contains("ports") || json.contains("portCount");
    read_settings(reader, json, data.settings);
    if (json.contains("wwn")) {
        data.settings.wwn = read_wwn(reader, json["wwn"]);
    }
    if (json.contains("system")) {
        const Json &system = json["system"];
        reader.expect_object(system, "\"system\"", {"contact", "name", "location"});
        read_system_texts(reader, system, "\"system\": ", data.settings.system);
    }
    if (json.contains("tdx")) {
        read_distribution(reader, json["tdx"], data);
    }
    bool force = false;
    reader.optional_boolean(json, "forceTimers", "the file", force);
    if (!force) {
        check_timer_orders(reader, data);
    }
    if (json.contains("roles")) {
        configuration.roles = read_roles(reader, json["roles"]);
        check_role_names(reader, *configuration.roles);
    }
    return configuration;
}

SwitchData parse_configuration(std::string_view text, const std::string &source) {
    return read_configuration(text, source).data;
}

Configuration load_configuration(const std::string &path) {
    if (path == "-") {
        return read_configuration(read_standard_input(max_configuration_size), "standard input");
    }
    // The operator may name a link; it is in the daemon's own folders that there must be none.
    std::error_code error;
    const std::filesystem::path file = std::filesystem::canonical(path, error);
    const auto text = read_file(error ? path : file.string(), max_configuration_size);
    if (!text) {
        throw Refusal(fmt::format("Cannot read {}: there is no such file.", path));
    }
    return read_configuration(*text, path);
}

SwitchData demo_configuration() {
    return parse_configuration(demo_json, "the built-in demo configuration");
}

SwitchData empty_configuration() {
    SwitchData data;
    add_default_vsan(data, VSAN_NUMBER_DEFAULT);
    add_ports_without_link(data, default_port_count);
    return data;
}

namespace {

// Of an address of 48 bits: no maker has been given one with the first, and one with the second
// stands for a group.
constexpr uint64_t address_bits = 0xffffffffffff;
constexpr uint64_t locally_administered = uint64_t{1} << 41;
constexpr uint64_t group = uint64_t{1} << 40;

constexpr uint64_t own_address(uint64_t bits) {
    return (bits & address_bits & ~group) | locally_administered;
}

// A name's first four bits say how the rest was assigned.
constexpr uint64_t naa(uint64_t format) {
    return format << 60;
}

} // namespace

void give_identity(SwitchData &data) {
    std::random_device random;
    if (data.settings.wwn == 0) {
        data.settings.wwn = naa(1) | own_address(uint64_t{random()} << 32 | random());
    }
    data.settings.last_change = time_of_day();
}

// A switch that was given a name of another kind has an address in it all the same.
uint64_t port_wwn(uint64_t switch_wwn, uint32_t number) {
    return naa(2) | uint64_t{number % 4096} << 48 | own_address(switch_wwn);
}

} // namespace vswitch
