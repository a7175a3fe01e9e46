#include "roles.h"

#include <algorithm>
#include <charconv>
#include <set>

#include "files.h"
#include "json_reader.h"
#include "mts/mts_wire.h"

namespace vswitch {

namespace {

constexpr std::size_t max_user_ranges = MTS_ROLE_MAX_RANGES;
constexpr std::size_t max_role_file = 4u << 20;
constexpr std::size_t max_user_name = MTS_WIRE_MAX_USER;
constexpr std::size_t max_users = 4096;

/* Sorts ranges and joins those that overlap or touch. */
void normalise(std::vector<Permission::Range> &ranges) {
    std::sort(ranges.begin(), ranges.end());
    std::vector<Permission::Range> joined;
    for (const auto &range : ranges) {
        if (!joined.empty() && (range.first <= joined.back().second || range.first - joined.back().second == 1))
            joined.back().second = std::max(joined.back().second, range.second);
        else
            joined.push_back(range);
    }
    ranges = std::move(joined);
}

/* Reads "5" or "5-9". */
Permission::Range parse_range(const JsonReader &reader, const std::string &text, const std::string &place,
                              std::uint32_t lowest, std::uint32_t highest) {
    Permission::Range range{};
    const char *end = text.data() + text.size();
    auto result = std::from_chars(text.data(), end, range.first);
    range.second = range.first;
    if (result.ec == std::errc() && result.ptr != end && *result.ptr == '-')
        result = std::from_chars(result.ptr + 1, end, range.second);
    if (result.ec != std::errc() || result.ptr != end || range.first < lowest || range.second > highest ||
        range.first > range.second)
        reader.fail(fmt::format("{} holds \"{}\", which is no number or range within {} to {}", place,
                                JsonReader::printable(text), lowest, highest));
    return range;
}

std::vector<Permission::Range> parse_ranges(const JsonReader &reader, const JsonReader::Json &role, const char *key,
                                            const std::string &role_place, std::uint32_t lowest,
                                            std::uint32_t highest) {
    std::vector<Permission::Range> ranges;
    const auto found = role.find(key);
    if (found == role.end())
        return ranges;
    const std::string place = fmt::format("{}: \"{}\"", role_place, key);
    reader.expect_array(*found, place);
    for (const auto &item : *found)
        ranges.push_back(parse_range(reader, reader.text(item, place), place, lowest, highest));
    normalise(ranges);
    if (ranges.size() > max_user_ranges)
        reader.fail(fmt::format("{} holds more than {} separate ranges", place, max_user_ranges));
    return ranges;
}

} // namespace

bool Permission::allows_interface(std::uint32_t if_index) const {
    const auto range = std::lower_bound(interfaces.begin(), interfaces.end(), if_index,
                                        [](const Range &one, std::uint32_t wanted) { return one.second < wanted; });
    return range != interfaces.end() && range->first <= if_index;
}

const Permission *Roles::find(std::string_view user) const {
    const auto found = users_.find(user);
    return found == users_.end() ? nullptr : &found->second;
}

void Roles::add(Role role) {
    static std::uint64_t last_version = 0;
    version_ = ++last_version;
    for (const std::string &user : role.users) {
        Permission &granted = users_[user];
        for (const auto &[first, last] : role.vsans)
            for (std::uint32_t vsan = first; vsan <= last; ++vsan)
                granted.vsans[vsan / 8] = static_cast<std::uint8_t>(granted.vsans[vsan / 8] | 0x80u >> vsan % 8);
        granted.interfaces.insert(granted.interfaces.end(), role.interfaces.begin(), role.interfaces.end());
        normalise(granted.interfaces);
    }
    list_.push_back(std::move(role));
}

Roles parse_roles(std::string_view text, const std::string &source) {
    const JsonReader reader(source);
    const auto json = reader.parse_object(text);
    reader.expect_object(json, "the file", {"roles"});
    Roles roles;
    const auto list = json.find("roles");
    if (list == json.end())
        return roles;
    reader.expect_array(*list, "\"roles\"");
    std::set<std::string> names;
    for (const auto &item : *list) {
        std::string place = "a role";
        reader.expect_object(item, place, {"name", "vsans", "interfaces", "users"});
        if (!item.contains("name"))
            reader.fail("a role has no \"name\"");
        const std::string &name = reader.text(item["name"], "a role's \"name\"");
        place = fmt::format("the role \"{}\"", JsonReader::printable(name));
        if (!names.insert(name).second)
            reader.fail(place + " is given twice");

        Role role;
        role.name = name;
        role.vsans = parse_ranges(reader, item, "vsans", place, 0, max_vsan);
        role.interfaces = parse_ranges(reader, item, "interfaces", place, 1, UINT32_MAX);
        if (const auto users = item.find("users"); users != item.end()) {
            reader.expect_array(*users, place + ": \"users\"");
            for (const auto &user : *users) {
                const std::string &user_name = reader.text(user, place + ": a user");
                if (user_name.empty() || user_name.size() > max_user_name)
                    reader.fail(fmt::format("{}: a user name must have 1 to {} bytes", place, max_user_name));
                role.users.push_back(user_name);
                if (role.users.size() > max_users)
                    reader.fail(fmt::format("{} names more than {} users", place, max_users));
            }
        }
        const std::vector<std::string> users = role.users;
        roles.add(std::move(role));
        if (roles.user_count() > max_users)
            reader.fail(fmt::format("it names more than {} users", max_users));
        for (const std::string &user : users)
            if (roles.find(user)->interfaces.size() > max_user_ranges)
                reader.fail(fmt::format("the user \"{}\" has more than {} separate interface ranges",
                                        JsonReader::printable(user), max_user_ranges));
    }
    return roles;
}

Roles load_roles(const std::string &path) {
    const auto text = read_file(path, max_role_file);
    return text ? parse_roles(*text, path) : Roles();
}

std::string format_roles(const std::vector<Role> &roles) {
    const auto texts = [](const std::vector<Permission::Range> &ranges) {
        JsonReader::Json list = JsonReader::Json::array();
        for (const auto &[first, last] : ranges)
            list.push_back(first == last ? fmt::format("{}", first) : fmt::format("{}-{}", first, last));
        return list;
    };
    JsonReader::Json list = JsonReader::Json::array();
    for (const Role &role : roles)
        list.push_back({{"name", role.name},
                        {"vsans", texts(role.vsans)},
                        {"interfaces", texts(role.interfaces)},
                        {"users", role.users}});
    const JsonReader::Json file{{"roles", list}};
    return file.dump(2, ' ', false, JsonReader::Json::error_handler_t::replace) + "\n";
}

} // namespace vswitch
