// SPDX-License-Identifier: Apache-2.0
#include "model/roles.h"

#include <algorithm>
#include <charconv>
#include <set>

#include "contract/frames.h"
#include "contract/limits.h"
#include "model/files.h"
#include "model/json_settings.h"

namespace vswitch {

namespace {

constexpr size_t max_user_ranges = ROLE_MAX_RANGES;
constexpr size_t max_role_file = 4u << 20;
constexpr size_t max_user_name = MTS_WIRE_MAX_USER;
constexpr size_t max_users = 4096;
// Of all users whose roles differ, each role of each counted: so much is read in a moment.
constexpr size_t max_copied_ranges = 4u << 20;

// Sorts ranges and joins those that overlap or touch.
void normalise(std::vector<Range> &ranges) {
    std::sort(ranges.begin(), ranges.end());
    std::vector<Range> joined;
    for (const auto &range : ranges) {
        if (!joined.empty() && (range.least <= joined.back().greatest || range.least - joined.back().greatest == 1)) {
            joined.back().greatest = std::max(joined.back().greatest, range.greatest);
        } else {
            joined.push_back(range);
        }
    }
    ranges = std::move(joined);
}

// What somebody may touch who has a role besides.
Permission extend(Permission permission, const Role &role) {
    for (const auto &[first, last] : role.vsans) {
        for (uint32_t vsan = first; vsan <= last; ++vsan) {
            vsan_bitmap_add(permission.vsans.data(), vsan);
        }
    }
    permission.interfaces.insert(permission.interfaces.end(), role.interfaces.begin(), role.interfaces.end());
    normalise(permission.interfaces);
    return permission;
}

// Reads "5" or "5-9".
Range parse_range(const JsonReader &reader, const std::string &text, const std::string &place, Range allowed) {
    Range range{};
    const char *end = text.data() + text.size();
    auto result = std::from_chars(text.data(), end, range.least);
    range.greatest = range.least;
    if (result.ec == std::errc() && result.ptr != end && *result.ptr == '-') {
        result = std::from_chars(result.ptr + 1, end, range.greatest);
    }
    if (result.ec != std::errc() || result.ptr != end || !allowed.contains(range.least) ||
        !allowed.contains(range.greatest) || range.least > range.greatest) {
        reader.fail(fmt::format("{} holds \"{}\", which is no number or range within {} to {}", place,
                                JsonReader::printable(text), allowed.least, allowed.greatest));
    }
    return range;
}

std::vector<Range> parse_ranges(const JsonReader &reader, const JsonReader::Json &role, const char *key,
                                const std::string &role_place, Range allowed) {
    std::vector<Range> ranges;
    const auto found = role.find(key);
    if (found == role.end()) {
        return ranges;
    }
    const std::string place = fmt::format("{}: \"{}\"", role_place, key);
    reader.expect_array(*found, place);
    for (const auto &item : *found) {
        ranges.push_back(parse_range(reader, reader.text(item, place), place, allowed));
    }
    normalise(ranges);
    if (ranges.size() > max_user_ranges) {
        reader.fail(fmt::format("{} holds more than {} separate ranges", place, max_user_ranges));
    }
    return ranges;
}

Role parse_role(const JsonReader &reader, const JsonReader::Json &item, const std::string &name,
                const std::string &place) {
    Role role;
    role.name = name;
    role.vsans = parse_ranges(reader, item, "vsans", place, {0, VSAN_NUMBER_MAX});
    role.interfaces = parse_ranges(reader, item, "interfaces", place, if_indexes);
    const auto users = item.find("users");
    if (users == item.end()) {
        return role;
    }
    reader.expect_array(*users, place + ": \"users\"");
    for (const auto &user : *users) {
        const std::string &user_name = reader.text(user, place + ": a user");
        if (user_name.empty() || user_name.size() > max_user_name) {
            reader.fail(fmt::format("{}: a user name must have 1 to {} bytes", place, max_user_name));
        }
        role.users.push_back(user_name);
        if (role.users.size() > max_users) {
            reader.fail(fmt::format("{} names more than {} users", place, max_users));
        }
    }
    return role;
}

} // namespace

bool Permission::allows_interface(uint32_t if_index) const {
    const auto range = std::lower_bound(interfaces.begin(), interfaces.end(), if_index,
                                        [](const Range &one, uint32_t wanted) { return one.greatest < wanted; });
    return range != interfaces.end() && range->least <= if_index;
}

const Permission *Roles::find(std::string_view user) const {
    const auto found = users_.find(user);
    return found == users_.end() ? nullptr : found->second.get();
}

size_t Roles::add(Role role) {
    size_t copied = 0;
    static uint64_t last_version = 0;
    version_ = ++last_version;
    std::map<std::shared_ptr<const Permission>, std::shared_ptr<const Permission>> extended; // by what it was
    for (const std::string &user : role.users) {
        std::shared_ptr<const Permission> &present = users_[user];
        std::shared_ptr<const Permission> &granted = extended[present];
        if (!granted) {
            granted = std::make_shared<Permission>(extend(present ? *present : Permission(), role));
            copied += granted->interfaces.size();
        }
        present = granted;
    }
    list_.push_back(std::move(role));
    return copied;
}

Roles read_roles(const JsonReader &reader, const JsonReader::Json &list) {
    Roles roles;
    reader.expect_array(list, "\"roles\"");
    std::set<std::string> names;
    size_t copied = 0;
    for (const auto &item : list) {
        std::string place = "a role";
        reader.expect_object(item, place, {"name", "vsans", "interfaces", "users"});
        if (!item.contains("name")) {
            reader.fail("a role has no \"name\"");
        }
        const std::string &name = reader.text(item["name"], "a role's \"name\"");
        place = fmt::format("the role \"{}\"", JsonReader::printable(name));
        if (names.contains(name)) {
            reader.fail(place + " is given twice");
        }
        names.insert(name);

        const Role role = parse_role(reader, item, name, place);
        copied += roles.add(role);
        if (copied > max_copied_ranges) {
            reader.fail(fmt::format("its users have more than {} interface ranges in all", max_copied_ranges));
        }
        if (roles.user_count() > max_users) {
            reader.fail(fmt::format("it names more than {} users", max_users));
        }
        for (const std::string &user : role.users) {
            if (roles.find(user)->interfaces.size() > max_user_ranges) {
                reader.fail(fmt::format("the user \"{}\" has more than {} separate interface ranges",
                                        JsonReader::printable(user), max_user_ranges));
            }
        }
    }
    return roles;
}

Roles parse_roles(std::string_view text, const std::string &source) {
    const JsonReader reader(source);
    const auto json = reader.parse_object(text);
    reader.expect_object(json, "the file", {"roles"});
    const auto list = json.find("roles");
    return list == json.end() ? Roles() : read_roles(reader, *list);
}

Roles load_roles(const std::string &path) {
    const auto text = read_file(path, max_role_file);
    return text ? parse_roles(*text, path) : Roles();
}

JsonReader::Json role_json(const Role &role) {
    const auto texts = [](const std::vector<Range> &ranges) {
        JsonReader::Json list = JsonReader::Json::array();
        for (const auto &[first, last] : ranges) {
            list.push_back(first == last ? fmt::format("{}", first) : fmt::format("{}-{}", first, last));
        }
        return list;
    };
    return {{"name", role.name},
            {"vsans", texts(role.vsans)},
            {"interfaces", texts(role.interfaces)},
            {"users", role.users}};
}

std::string format_roles(const std::vector<Role> &roles) {
    JsonReader::Json list = JsonReader::Json::array();
    for (const Role &role : roles) {
        list.push_back(role_json(role));
    }
    const JsonReader::Json file{{"roles", list}};
    std::string text = file.dump(2, ' ', false, JsonReader::Json::error_handler_t::replace) + "\n";
    if (text.size() > max_role_file) {
        throw Refusal(
            fmt::format("The roles would need a file of {} bytes; {} is the most.", text.size(), max_role_file));
    }
    return text;
}

} // namespace vswitch
