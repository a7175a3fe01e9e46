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

std::optional<Event> port_changed_event(uint32_t if_index, const Port &former, const Port &present, Timestamp moment) {
    uint32_t which = 0;
    const auto note = [&](bool is_different, port_change change) { which |= is_different ? uint32_t{change} : 0; };
    note(former.enabled != present.enabled, PORT_CHANGE_ADMIN);
    note(former.is_up() != present.is_up(), PORT_CHANGE_OPER);
    note(former.alias != present.alias, PORT_CHANGE_ALIAS);
    note(former.speed != present.speed, PORT_CHANGE_SPEED);
    note(former.traffic != present.traffic, PORT_CHANGE_TRAFFIC);
    note(former.traps != present.traps, PORT_CHANGE_TRAPS);
    if (which == 0) {
        return std::nullopt;
    }
    const auto status = [](bool is_up) { return is_up ? uint32_t{PORT_UP} : uint32_t{PORT_DOWN}; };
    const uint32_t words[] = {if_index,
                              which,
                              status(former.enabled),
                              status(present.enabled),
                              status(former.is_up()),
                              status(present.is_up()),
                              static_cast<uint32_t>(moment.seconds),
                              moment.microseconds,
                              present.traps ? uint32_t{PORT_TRAPS_ENABLED} : uint32_t{PORT_TRAPS_DISABLED}};
    static_assert(sizeof words == PORT_CHANGED_SIZE);
    Event result{EVENT_PORT_CHANGED, {}};
    for (const uint32_t word : words) {
        append_word(result.payload, word);
    }
    return result;
}

Event setting_event(const SettingEvent &event) {
    Event result{EVENT_SETTING_CHANGED, {}};
    for (const uint32_t word : {event.kind, event.which, event.key, event.value, event.former}) {
        append_word(result.payload, word);
    }
    result.payload.insert(result.payload.end(), event.text.begin(), event.text.end());
    return result;
}

} // namespace vswitch
