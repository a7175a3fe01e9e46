// SPDX-License-Identifier: Apache-2.0
#include "changes/transaction.h"

#include <optional>
#include <spdlog/spdlog.h>

#include "changes/commit.h"
#include "contract/status_codes.h"
#include "model/difference.h"
#include "model/files.h"

namespace vswitch {

namespace {

// Roles that are wanted, and their file where they are kept in one.
struct NextRoles {
    Roles roles;
    std::optional<FileDraft> file;
};

// Whether a role file says the same. One that cannot be read says something else.
bool has_roles(const std::string &role_file, const std::vector<Role> &wanted) {
    try {
        return load_roles(role_file).list() == wanted;
    } catch (const Refusal &) {
        return false;
    }
}

// STATUS_SUCCESS with the roles ready to come into force, if they are others, or why they cannot.
uint32_t prepare_roles(const Switch &the_switch, const std::vector<Role> &wanted, std::optional<NextRoles> &next,
                       std::string *sentence) {
    uint32_t failure = STATUS_ROLES_NOT_WRITTEN;
    try {
        if (wanted == the_switch.roles.list() &&
            (the_switch.role_file.empty() || has_roles(the_switch.role_file, wanted))) {
            return STATUS_SUCCESS;
        }
        failure = STATUS_BAD_ROLE;
        const std::string text = format_roles(wanted);
        next.emplace().roles = parse_roles(text, "the roles");
        failure = STATUS_ROLES_NOT_WRITTEN;
        if (!the_switch.role_file.empty()) {
            next->file.emplace(the_switch.role_file, text);
        }
        return STATUS_SUCCESS;
    } catch (const Refusal &refusal) {
        if (sentence) {
            *sentence = refusal.what();
        }
        return failure;
    }
}

// False, with a sentence, when the roles' file stays the former one.
bool replace_role_file(FileDraft &file, std::string *sentence) {
    try {
        file.take_place();
    } catch (const Refusal &refusal) {
        spdlog::warn("{}", refusal.what());
        if (sentence) {
            *sentence = refusal.what();
        }
    }
    return file.is_in_place();
}

// Writes what leads back from a change that was written. False when the database keeps it.
bool take_back(const Switch &the_switch, const Change &change) {
    const SwitchData &present = the_switch.model.data();
    SwitchModel changed(present);
    changed.apply(change);
    return keep(the_switch, difference(changed.data(), present), changed.data()) == STATUS_SUCCESS;
}

} // namespace

void begin_draft(Switch &draft, const Switch &the_switch) {
    draft.clock = the_switch.clock;
    draft.traffic = Traffic(the_switch.clock.start());
}

void draft_roles(Switch &draft, const Switch &the_switch) {
    if (!draft.drafted_roles) {
        draft.drafted_roles =
            (the_switch.role_file.empty() ? the_switch.roles : load_roles(the_switch.role_file)).list();
    }
}

uint32_t make_it(Switch &the_switch, const Wanted &wanted, std::string *sentence) {
    std::optional<NextRoles> next;
    if (wanted.roles) {
        if (const uint32_t status = prepare_roles(the_switch, *wanted.roles, next, sentence);
            status != STATUS_SUCCESS) {
            return status;
        }
    }
    const SwitchData &present = the_switch.model.data();
    const Change change = difference(present, wanted.data);
    if (!is_empty(change)) {
        if (const uint32_t status = keep(the_switch, change, present); status != STATUS_SUCCESS) {
            return status;
        }
    }
    if (next && next->file && !replace_role_file(*next->file, sentence)) {
        if (!is_empty(change) && !take_back(the_switch, change)) {
            spdlog::critical("The database has a change that was refused, and that comes into force when the switch "
                             "is started again.");
        }
        return STATUS_ROLES_NOT_WRITTEN;
    }
    if (next) {
        the_switch.roles = std::move(next->roles);
    }
    if (!is_empty(change)) {
        bring_into_force(the_switch, change);
    }
    return STATUS_SUCCESS;
}

} // namespace vswitch
