// SPDX-License-Identifier: Apache-2.0
// What a change acts on: the running switch, where it is kept, and who hears of it.
#ifndef VSWITCH_SWITCH_H
#define VSWITCH_SWITCH_H

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "changes/event_hub.h"
#include "model/roles.h"
#include "model/switch_model.h"
#include "model/traffic.h"

namespace vswitch {

class Store;

struct Switch {
    SwitchClock clock;
    SwitchModel model;
    Traffic traffic;
    Roles roles;
    EventHub events;
    Store *store;          // where changes are kept; null: they last as long as this object
    std::string role_file; // where roles are kept; empty: likewise
    // The roles as they will be, where this is a draft, see transaction.h; then nobody goes by `roles`.
    std::optional<std::vector<Role>> drafted_roles;

    Switch(SwitchData data, Roles initial_roles, Store *keeper = nullptr, std::string file_of_roles = "")
        : model(std::move(data)), traffic(clock.start()), roles(std::move(initial_roles)), store(keeper),
          role_file(std::move(file_of_roles)) {}

    // When the VSAN table was changed last, as everybody is told: never later than it is by
    // this switch's clock, and never earlier than what was told before in this run.
    Timestamp last_change() const { return clock.told(model.settings().last_change); }
};

} // namespace vswitch

#endif
