// SPDX-License-Identifier: Apache-2.0
// Roles: which users are restricted to which VSANs and interfaces.
#ifndef VSWITCH_ROLES_H
#define VSWITCH_ROLES_H

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "contract/records.h"
#include "model/rules.h"

namespace vswitch {

// What one restricted user may touch.
struct Permission {
    std::array<uint8_t, VSAN_BITMAP_SIZE> vsans{}; // see contract/records.h
    std::vector<Range> interfaces;                 // ifIndex ranges, ascending, apart from each other

    bool allows_vsan(uint32_t vsan) const { return vsan_bitmap_has(vsans.data(), vsans.size(), vsan) != 0; }
    bool allows_interface(uint32_t if_index) const;
};

// A role as its file gives it.
struct Role {
    std::string name;
    std::vector<Range> vsans;
    std::vector<Range> interfaces;
    std::vector<std::string> users;

    bool operator==(const Role &) const = default;
};

class Roles {
  public:
    // The permission of a user, or null for a user who is not restricted.
    const Permission *find(std::string_view user) const;

    // Adds a role: each of its users may touch what it grants, beside what the user's
    // other roles grant. Returns how many ranges of interfaces were copied for that.
    size_t add(Role role);

    const std::vector<Role> &list() const { return list_; }

    // The number of the content: roles with the same number are the same roles.
    uint64_t version() const { return version_; }
    size_t user_count() const { return users_.size(); }

  private:
    uint64_t version_ = 0; // 0: none
    std::vector<Role> list_;
    // Users of the same roles share what these grant.
    std::map<std::string, std::shared_ptr<const Permission>, std::less<>> users_;
};

// Reads roles from JSON text:
//
//   {"roles": [{"name": "backup-team", "vsans": ["1", "10-20"],
//               "interfaces": ["16777216", "16781312-16785408"], "users": ["alice"]}]}
//
// VSANs are 0 to 4095, interfaces 1 to 4294967295; everything but the name may be left
// out. `source` names the text in errors. Throws Refusal.
Roles parse_roles(std::string_view text, const std::string &source);

// Reads a role file; a missing file holds no roles. Throws Refusal.
Roles load_roles(const std::string &path);

// The text of a role file that load_roles reads as these roles. Throws Refusal when it would be too large.
std::string format_roles(const std::vector<Role> &roles);

} // namespace vswitch

#endif
