// SPDX-License-Identifier: Apache-2.0
// Adds and removes roles, in their file and in force.
#include <algorithm>
#include <spdlog/spdlog.h>

#include "changes/commit.h"
#include "contract/status_codes.h"
#include "model/files.h"
#include "model/rules.h"

namespace vswitch {

namespace {

// Has `edit` change the list of roles, which may refuse with a status, and brings the
// result into force.
template <typename Edit>
uint32_t edit_roles(Switch &the_switch, const Requester &requester, std::string *sentence, Edit edit) {
    if (const uint32_t status = check_switch_right(the_switch, requester); status != STATUS_SUCCESS) {
        return status;
    }
    if (the_switch.drafted_roles) {
        return edit(*the_switch.drafted_roles);
    }
    const bool in_file = !the_switch.role_file.empty();
    uint32_t failure = STATUS_ROLES_NOT_WRITTEN;
    try {
        std::vector<Role> list = (in_file ? load_roles(the_switch.role_file) : the_switch.roles).list();
        if (const uint32_t status = edit(list); status != STATUS_SUCCESS) {
            return status;
        }
        failure = STATUS_BAD_ROLE;
        const std::string text = format_roles(list);
        Roles roles = parse_roles(text, "the roles");
        failure = STATUS_ROLES_NOT_WRITTEN;
        if (in_file) {
            replace_file(the_switch.role_file, text);
        }
        the_switch.roles = std::move(roles);
        return STATUS_SUCCESS;
    } catch (const Refusal &refusal) {
        spdlog::warn("the roles stay as they are: {}", refusal.what());
        if (sentence) {
            *sentence = refusal.what();
        }
        return failure;
    }
}

} // namespace

uint32_t add_role(Switch &the_switch, const Requester &requester, Role &role,
                  const std::function<Role(const Role &present)> &merge, std::string *sentence) {
    return edit_roles(the_switch, requester, sentence, [&](std::vector<Role> &list) -> uint32_t {
        if (!is_role_name(role.name)) {
            if (sentence) {
                *sentence =
                    "A role's name must have at least one character, and none that ends a line or moves the cursor.";
            }
            return STATUS_BAD_ROLE;
        }
        const auto present = std::ranges::find(list, role.name, &Role::name);
        if (present == list.end()) {
            list.push_back(role);
        } else if (merge) {
            role = merge(*present);
            *present = role;
        } else {
            return STATUS_ROLE_EXISTS;
        }
        return STATUS_SUCCESS;
    });
}

uint32_t add_role(Switch &the_switch, const Requester &requester, const Role &role, bool replace,
                  std::string *sentence) {
    std::function<Role(const Role &)> merge;
    if (replace) {
        merge = [&](const Role &) { return role; };
    }
    Role added = role;
    return add_role(the_switch, requester, added, merge, sentence);
}

uint32_t remove_role(Switch &the_switch, const Requester &requester, const std::string &name, std::string *sentence) {
    return edit_roles(the_switch, requester, sentence, [&](std::vector<Role> &list) -> uint32_t {
        const auto present = std::ranges::find(list, name, &Role::name);
        if (present == list.end()) {
            return STATUS_NO_SUCH_ROLE;
        }
        list.erase(present);
        return STATUS_SUCCESS;
    });
}

} // namespace vswitch
