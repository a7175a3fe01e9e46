#include "configuration.h"

#include <charconv>
#include <chrono>
#include <random>

#include "demo_json.h"
#include "files.h"
#include "json_reader.h"

namespace vswitch {

namespace {

using Json = JsonReader::Json;

constexpr std::size_t max_configuration_file = 4u << 20;
constexpr std::uint32_t default_port_count = 48;
constexpr std::uint32_t max_port_count = 4096;
constexpr std::uint32_t max_timer = 100000; /* milliseconds */

void read_name(const JsonReader &reader, const Json &object, const std::string &place, std::string &name) {
    const auto found = object.find("name");
    if (found == object.end())
        return;
    name = reader.text(*found, place + ": \"name\"");
    bool usable = !name.empty() && name.size() <= max_vsan_name;
    for (const char c : name)
        usable = usable && c > ' ' && c < 0x7f;
    if (!usable)
        reader.fail(
            fmt::format("{}: \"name\" must be 1 to {} printable characters without blanks", place, max_vsan_name));
}

/* Reads a key whose value is one of two words. */
template <typename Value>
void read_word(const JsonReader &reader, const Json &object, const char *key, const std::string &place,
               std::pair<const char *, Value> first, std::pair<const char *, Value> second, Value &value) {
    const auto found = object.find(key);
    if (found == object.end())
        return;
    if (*found == first.first)
        value = first.second;
    else if (*found == second.first)
        value = second.second;
    else
        reader.fail(fmt::format("{}: \"{}\" must be \"{}\" or \"{}\"", place, key, first.first, second.first));
}

constexpr std::pair<const char *, Timer> timer_names[] = {
    {"edtov", Timer::e_d_tov},
    {"ratov", Timer::r_a_tov},
    {"dstov", Timer::d_s_tov},
    {"fstov", Timer::f_s_tov},
};

void read_timers(const JsonReader &reader, const Json &json, const std::string &place, PartialTimers &timers) {
    reader.expect_object(json, place, {"edtov", "ratov", "dstov", "fstov"});
    for (const auto &[name, timer] : timer_names) {
        const auto found = json.find(name);
        if (found != json.end())
            timers[timer] = reader.number(*found, fmt::format("{}: \"{}\"", place, name), 1, max_timer);
    }
}

void read_vsan(const JsonReader &reader, const Json &json, SwitchData &data, std::set<std::uint32_t> &listed) {
    reader.expect_object(
        json, "a VSAN",
        {"id", "name", "state", "mtu", "loadBalancing", "interop", "inorderDelivery", "networkDropLatency", "timers"});
    if (!json.contains("id"))
        reader.fail("a VSAN has no \"id\"");
    const std::uint32_t id = reader.number(json["id"], "a VSAN's \"id\"", 1, max_vsan);
    const std::string place = fmt::format("VSAN {}", id);
    if (!listed.insert(id).second)
        reader.fail(place + " is listed twice");

    Vsan vsan;
    vsan.name = default_vsan_name(id);
    read_name(reader, json, place, vsan.name);
    read_word<std::uint32_t>(reader, json, "state", place, {"active", vsan_active}, {"suspended", vsan_suspended},
                             vsan.admin_state);
    reader.optional_number(json, "mtu", place, 1, max_mtu, vsan.mtu);
    read_word<std::uint32_t>(reader, json, "loadBalancing", place, {"srcIdDestId", 1}, {"srcIdDestIdOxId", 2},
                             vsan.load_balancing);
    reader.optional_number(json, "interop", place, 1, default_interop, vsan.interop);
    if (vsan.interop > 4 && vsan.interop != default_interop)
        reader.fail(fmt::format("{}: \"interop\" must be 1 to 4, or {} for none", place, default_interop));
    reader.optional_number(json, "inorderDelivery", place, truth_true, truth_false, vsan.inorder_delivery);
    reader.optional_number(json, "networkDropLatency", place, 1, max_latency, vsan.drop_latency);
    if (json.contains("timers"))
        read_timers(reader, json["timers"], place + ": \"timers\"", vsan.timers);
    data.vsans.insert_or_assign(id, std::move(vsan));
}

void add_default_vsan(SwitchData &data, std::uint32_t id) {
    const auto [row, added] = data.vsans.try_emplace(id);
    if (added)
        row->second.name = default_vsan_name(id);
}

void read_vsans(const JsonReader &reader, const Json &json, SwitchData &data) {
    if (json.contains("vsanRange")) {
        reader.expect_array(json["vsanRange"], "\"vsanRange\"");
        for (const Json &range : json["vsanRange"]) {
            reader.expect_object(range, "a VSAN range", {"first", "last"});
            if (!range.contains("first") || !range.contains("last"))
                reader.fail("a VSAN range must have \"first\" and \"last\"");
            const std::uint32_t first = reader.number(range["first"], "a VSAN range's \"first\"", 1, max_vsan);
            const std::uint32_t last = reader.number(range["last"], "a VSAN range's \"last\"", first, max_vsan);
            for (std::uint32_t id = first; id <= last; ++id)
                add_default_vsan(data, id);
        }
    }
    add_default_vsan(data, default_vsan);
    if (json.contains("vsans")) {
        reader.expect_array(json["vsans"], "\"vsans\"");
        std::set<std::uint32_t> listed;
        for (const Json &vsan : json["vsans"])
            read_vsan(reader, vsan, data, listed);
    }
    std::map<std::string_view, std::uint32_t> names;
    for (const auto &[id, vsan] : data.vsans) {
        const auto [other, added] = names.emplace(vsan.name, id);
        if (!added)
            reader.fail(fmt::format("VSAN {} and VSAN {} have the same name \"{}\"", other->second, id, vsan.name));
    }
}

void add_ports_without_link(SwitchData &data, std::uint32_t count) {
    Port port;
    port.link_up = false;
    for (std::uint32_t number = 0; number < count; ++number)
        data.ports.emplace(port_if_index(number), port);
}

void read_ports(const JsonReader &reader, const Json &json, SwitchData &data) {
    if (!json.contains("ports")) {
        std::uint32_t count = default_port_count;
        reader.optional_number(json, "portCount", "the file", 0, max_port_count, count);
        add_ports_without_link(data, count);
        return;
    }
    if (json.contains("portCount"))
        reader.fail("\"ports\" and \"portCount\" exclude each other");
    reader.expect_array(json["ports"], "\"ports\"");
    for (const Json &item : json["ports"]) {
        reader.expect_object(item, "a port", {"ifIndex", "vsan", "link", "denyList"});
        if (!item.contains("ifIndex"))
            reader.fail("a port has no \"ifIndex\"");
        const std::uint32_t if_index = reader.number(item["ifIndex"], "a port's \"ifIndex\"", 1, UINT32_MAX);
        const std::string place = fmt::format("port {}", if_index);
        Port port;
        reader.optional_number(item, "vsan", place, 1, max_vsan, port.vsan);
        reader.optional_number(item, "denyList", place, 0, UINT32_MAX, port.deny_list);
        read_word<bool>(reader, item, "link", place, {"up", true}, {"down", false}, port.link_up);
        if (!data.vsans.contains(port.vsan))
            reader.fail(fmt::format("{} is in VSAN {}, which does not exist", place, port.vsan));
        if (!data.ports.emplace(if_index, port).second)
            reader.fail(place + " is listed twice");
        if (data.ports.size() > max_port_count)
            reader.fail(fmt::format("it lists more than {} ports", max_port_count));
    }
}

void read_settings(const JsonReader &reader, const Json &json, Settings &settings) {
    reader.optional_number(json, "switchLatency", "the file", 0, max_latency, settings.switch_latency);
    reader.optional_number(json, "networkLatency", "the file", 0, max_latency, settings.network_latency);
    reader.optional_number(json, "inorderDelivery", "the file", truth_true, truth_false, settings.inorder_delivery);
    if (json.contains("timers")) {
        PartialTimers timers;
        read_timers(reader, json["timers"], "\"timers\"", timers);
        for (const auto &[name, timer] : timer_names)
            settings.timers[timer] = timers[timer].value_or(settings.timers[timer]);
    }
}

void read_distribution(const JsonReader &reader, const Json &json, SwitchData &data) {
    reader.expect_object(json, "\"tdx\"", {"fctimer"});
    const auto feature = json.find("fctimer");
    if (feature == json.end())
        return;
    reader.expect_object(*feature, "\"fctimer\"", {"enabled", "showRun", "timers"});
    reader.optional_boolean(*feature, "enabled", "\"fctimer\"", data.settings.tdx_enabled);
    reader.optional_boolean(*feature, "showRun", "\"fctimer\"", data.settings.tdx_show_run);
    const auto timers = feature->find("timers");
    if (timers == feature->end())
        return;
    if (!timers->is_object())
        reader.fail("\"fctimer\": \"timers\" must be an object");
    for (const auto &[key, values] : timers->items()) {
        const std::string place = fmt::format("\"fctimer\": timers of \"{}\"", JsonReader::printable(key));
        std::uint32_t id = 0;
        const auto [end, error] = std::from_chars(key.data(), key.data() + key.size(), id);
        const auto row = data.vsans.find(id);
        if (error != std::errc() || end != key.data() + key.size() || key.front() == '0' || row == data.vsans.end())
            reader.fail(place + ": the key must be the number of a VSAN that exists");
        read_timers(reader, values, place, row->second.distributed_timers);
    }
}

} // namespace

std::string default_vsan_name(std::uint32_t id) {
    return fmt::format("VSAN{:04}", id);
}

SwitchData parse_configuration(std::string_view text, const std::string &source) {
    const JsonReader reader(source);
    const Json json = reader.parse_object(text);
    reader.expect_object(json, "the file",
                         {"vsans", "vsanRange", "ports", "portCount", "timers", "switchLatency", "networkLatency",
                          "inorderDelivery", "tdx"});
    SwitchData data;
    read_vsans(reader, json, data);
    read_ports(reader, json, data);
    read_settings(reader, json, data.settings);
    if (json.contains("tdx"))
        read_distribution(reader, json["tdx"], data);
    return data;
}

SwitchData load_configuration(const std::string &path) {
    const auto text = read_file(path, max_configuration_file);
    if (!text)
        throw Refusal(fmt::format("Cannot read {}: there is no such file.", path));
    return parse_configuration(*text, path);
}

SwitchData demo_configuration() {
    return parse_configuration(demo_json, "the built-in demo configuration");
}

SwitchData empty_configuration() {
    SwitchData data;
    add_default_vsan(data, default_vsan);
    add_ports_without_link(data, default_port_count);
    return data;
}

void give_identity(SwitchData &data) {
    /* A name of the locally assigned kind (first digit 3), so that it is nobody's. */
    std::random_device random;
    const std::uint64_t drawn = std::uint64_t{random()} << 32 | random();
    data.settings.wwn = std::uint64_t{3} << 60 | drawn >> 4;
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(now);
    const auto rest = std::chrono::duration_cast<std::chrono::microseconds>(now - seconds);
    data.settings.change_seconds = static_cast<std::uint64_t>(seconds.count());
    data.settings.change_microseconds = static_cast<std::uint32_t>(rest.count());
}

} // namespace vswitch
