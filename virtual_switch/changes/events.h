// SPDX-License-Identifier: Apache-2.0
// What a change publishes: an event's class and payload, see contract/events.h.
#ifndef VSWITCH_EVENTS_H
#define VSWITCH_EVENTS_H

#include <cstdint>
#include <optional>
#include <string_view>

#include "contract/events.h"
#include "model/bytes.h"
#include "model/switch_data.h"

namespace vswitch {

struct Event {
    uint32_t event_class = 0;
    Buffer payload;

    bool operator==(const Event &) const = default;
};

struct VsanEvent {
    uint32_t vsan = 0;
    bool created = false;
    bool deleted = false;
    uint32_t admin_state = 0, former_admin_state = 0;
    uint32_t oper_state = 0, former_oper_state = 0;
};

Event vsan_event(const VsanEvent &event);
Event port_event(uint32_t if_index, uint32_t former_vsan, uint32_t vsan);

// What has become of a port, or nothing when it is the same but for its VSAN, deny list and cable.
std::optional<Event> port_changed_event(uint32_t if_index, const Port &former, const Port &present, Timestamp moment);

struct SettingEvent {
    uint32_t kind = 0; // an enum changed_setting
    uint32_t which = 0;
    uint32_t key = 0;
    uint32_t value = 0, former = 0;
    std::string_view text = {};
};

Event setting_event(const SettingEvent &event);

} // namespace vswitch

#endif
