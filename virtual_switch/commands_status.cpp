/* Commands about the switch as a whole and its events. */
#include <unistd.h>

#include "command_table.h"

namespace vswitch {

namespace {

using Json = JsonReader::Json;

constexpr std::uint32_t max_injected = 100000;
constexpr std::size_t max_subscribers = 64; /* so many are shown */

Json subscribers_json(const EventHub &events) {
    Json list = Json::array();
    for (const Subscriber *subscriber : events.subscribers()) {
        if (list.size() == max_subscribers)
            break;
        list.push_back({{"number", subscriber->number()},
                        {"classes", subscriber->classes()},
                        {"queued", subscriber->queued()},
                        {"delivered", subscriber->delivered()},
                        {"dropped", subscriber->dropped()}});
    }
    return list;
}

void show_switch(Call &call) {
    const Switch &target = call.target;
    const SwitchModel &model = target.model;
    const Settings &settings = model.settings();
    std::uint32_t suspended = 0;
    std::uint32_t up = 0;
    for (const auto *row = model.vsan_after(0); row; row = model.vsan_after(row->first)) {
        suspended += row->second.admin_state == vsan_suspended;
        up += model.is_up(*row);
    }
    std::uint32_t ports_up = 0;
    for (const auto *row = model.port_after(0); row; row = model.port_after(row->first))
        ports_up += row->second.link_up;
    std::uint64_t requests = 0;
    for (const auto &[key, count] : target.counters.requests)
        requests += count;

    std::string wwn;
    for (int shift = 56; shift >= 0; shift -= 8)
        wwn += fmt::format("{}{:02x}", shift == 56 ? "" : ":", settings.wwn >> shift & 0xff);
    call.reply = {{"wwn", wwn},
                  {"pid", getpid()},
                  {"lastChange", settings.change_seconds},
                  {"vsans", {{"total", model.vsan_count()}, {"suspended", suspended}, {"up", up}}},
                  {"ports", {{"total", model.port_count()}, {"up", ports_up}}},
                  {"roles", target.roles.list().size()},
                  {"tdx", {{"enabled", settings.tdx_enabled}, {"showRun", settings.tdx_show_run}}},
                  {"statusEvents", settings.status_events},
                  {"requests", requests},
                  {"connections",
                   {{"open", target.counters.connections},
                    {"dropped", target.counters.dropped_connections},
                    {"refused", target.counters.refused_connections}}},
                  {"events",
                   {{"published", target.events.totals().published},
                    {"missed", target.events.totals().missed},
                    {"dropped", target.events.totals().dropped}}},
                  {"subscribers", subscribers_json(target.events)},
                  {"faults", {{"active", target.faults.list().size()}, {"applied", target.faults.applied()}}}};
    if (model.session())
        call.reply["tdx"]["heldBy"] = model.session()->user;
}

/* Publishes events that nothing has caused: the storm that a receiver should survive. */
void inject_events(Call &call) {
    const SwitchModel &model = call.target.model;
    const std::uint32_t count = call.arguments.required_number("count", 1, max_injected);
    const std::uint32_t event_class =
        call.arguments.number("class", event_port_moved, event_vsan_changed).value_or(event_vsan_changed);
    Event event;
    if (event_class == event_vsan_changed) {
        const std::uint32_t id = call.arguments.number("vsan", 1, max_vsan).value_or(default_vsan);
        const auto *row = model.vsan(id);
        if (!row)
            throw CommandRefused(STATUS_NO_SUCH_VSAN, fmt::format("VSAN {} does not exist.", id));
        VsanEvent change;
        change.vsan = id;
        change.admin_state = change.former_admin_state = row->second.admin_state;
        change.oper_state = model.is_up(*row) ? oper_up : oper_down;
        change.former_oper_state = model.is_up(*row) ? oper_down : oper_up;
        event = vsan_event(change);
    } else if (event_class == event_port_moved) {
        const auto *row = model.port_after(0);
        if (!row)
            throw CommandRefused(STATUS_NO_MORE_INTERFACES, "The switch has no port.");
        event = port_event(row->first, row->second.vsan, row->second.vsan);
    } else {
        call.arguments.reader().fail(fmt::format("\"class\" must be {} or {}", event_port_moved, event_vsan_changed));
    }
    for (std::uint32_t number = 0; number < count; ++number)
        call.target.events.publish(event);
    call.reply["published"] = count;
}

const Command commands[] = {
    {"switch.show", kind_get, show_switch, {}},
    {"events.inject", kind_set, inject_events, {"count", "class", "vsan"}},
};

} // namespace

std::span<const Command> status_commands() {
    return commands;
}

} // namespace vswitch
