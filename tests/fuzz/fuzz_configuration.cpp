// SPDX-License-Identifier: Apache-2.0
// Whatever the operator's JSON files hold: they make a switch that is whole and is written as it was
// read, or are refused with one printable line.
#include <cstdlib>
#include <string_view>

#include "model/configuration.h"
#include "model/refusal.h"
#include "model/roles.h"
#include "model/rules.h"
#include "model/switch_model.h"

using namespace vswitch;

namespace {

void check_refusal(const Refusal &refusal) {
    for (const char *c = refusal.what(); *c != '\0'; ++c) {
        if (*c < ' ' || *c == 0x7f) {
            abort();
        }
    }
}

void check_switch(const SwitchData &data) {
    if (!data.vsans.contains(VSAN_NUMBER_DEFAULT)) {
        abort();
    }
    for (const auto &[id, vsan] : data.vsans) {
        if (id < 1 || id > VSAN_NUMBER_MAX || !is_vsan_name(vsan.name)) {
            abort();
        }
    }
    for (const auto &[if_index, port] : data.ports) {
        if (if_index == 0 || !data.vsans.contains(port.vsan) || check_port(port) != STATUS_SUCCESS) {
            abort();
        }
    }
    if (check_system_texts(data.settings.system) != STATUS_SUCCESS) {
        abort();
    }
}

// What is written of a configuration is read as the same, and written as the same.
void check_written_again(const Configuration &configuration) {
    const std::vector<Role> roles = configuration.roles.value_or(Roles()).list();
    const std::string text = format_configuration(configuration.data, roles);
    const Configuration again = read_configuration(text, "written");
    const std::vector<Role> roles_again = again.roles.value_or(Roles()).list();
    if (again.data != configuration.data || roles_again != roles ||
        format_configuration(again.data, roles_again) != text) {
        abort();
    }
}

void check_permission(const Permission &permission) {
    for (size_t at = 0; at < permission.interfaces.size(); ++at) {
        const auto &[first, last] = permission.interfaces[at];
        if (first == 0 || first > last || (at > 0 && permission.interfaces[at - 1].greatest >= first - 1)) {
            abort();
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    try {
        const Configuration parsed = read_configuration(text, "initial.json");
        check_switch(parsed.data);
        const SwitchModel model(parsed.data);
        if (!model.vsan_after(0)) {
            abort();
        }
        check_written_again(parsed);
    } catch (const Refusal &refusal) {
        check_refusal(refusal);
    }
    try {
        const Roles roles = parse_roles(text, "roles.json");
        if (const Permission *permission = roles.find("alice")) {
            check_permission(*permission);
        }
        if (parse_roles(format_roles(roles.list()), "written").list() != roles.list()) {
            abort();
        }
    } catch (const Refusal &refusal) {
        check_refusal(refusal);
    }
    return 0;
}
