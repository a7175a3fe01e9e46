// SPDX-License-Identifier: Apache-2.0
// What a change publishes: an event's class and payload, see contract/events.h.
#ifndef VSWITCH_EVENTS_H
#define VSWITCH_EVENTS_H

#include <cstdint>

#include "contract/events.h"
#include "model/bytes.h"

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

} // namespace vswitch

#endif
