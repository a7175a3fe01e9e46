// SPDX-License-Identifier: Apache-2.0
// Whatever the operator's JSON files hold: they make a switch that is whole, or are
// refused with one printable line.
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
        if (id < 1 || id > VSAN_NUMBER_MAX || vsan.name.empty() || vsan.name.size() > VSAN_NAME_MAX) {
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
        const SwitchData parsed = parse_configuration(text, "initial.json");
        check_switch(parsed);
        const SwitchModel model(parsed);
        if (!model.vsan_after(0)) {
            abort();
        }
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
