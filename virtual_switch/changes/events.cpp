// SPDX-License-Identifier: Apache-2.0
#include "changes/events.h"

#include "contract/attributes.h"

namespace vswitch {

Event vsan_event(const VsanEvent &event) {
    const uint32_t words[] = {event.deleted,
                              event.vsan,
                              event.created,
                              2, // attributes
                              ATTRIBUTE_ADMIN_STATE,
                              event.admin_state,
                              event.former_admin_state,
                              ATTRIBUTE_OPER_STATE,
                              event.oper_state,
                              event.former_oper_state};
    Event result{EVENT_VSAN_CHANGED, {}};
    for (const uint32_t word : words) {
        append_word(result.payload, word);
    }
    return result;
}

Event port_event(uint32_t if_index, uint32_t former_vsan, uint32_t vsan) {
    Event result{EVENT_PORT_MOVED, {}};
    for (const uint32_t word : {if_index, former_vsan, vsan}) {
        append_word(result.payload, word);
    }
    return result;
}

} // namespace vswitch
