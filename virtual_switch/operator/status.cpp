// SPDX-License-Identifier: Apache-2.0
// Commands about the switch as a whole and its events.
#include <algorithm>
#include <unistd.h>

#include "model/configuration.h"
#include "operator/command_table.h"

namespace vswitch {

namespace {

using Json = JsonReader::Json;

constexpr uint32_t max_injected = 100000;
constexpr size_t max_subscribers = 64; // so many are shown
constexpr size_t max_note = 60000;     // bytes

Json subscribers_json(const EventHub &events) {
    Json list = Json::array();
    for (const Subscriber *subscriber : events.subscribers()) {
        if (list.size() == max_subscribers) {
            break;
        }
        list.push_back({{"number", subscriber->number()},
                        {"classes", subscriber->classes()},
                        {"queued", subscriber->queued()},
                        {"delivered", subscriber->delivered()},
                        {"dropped", subscriber->dropped()}});
    }
    return list;
}

size_t agents(const EventHub &events) {
    const auto subscribers = events.subscribers();
    return static_cast<size_t>(std::ranges::count_if(subscribers, &Subscriber::is_agent));
}

Json vsans_json(const SwitchModel &model) {
    uint32_t suspended = 0;
    uint32_t up = 0;
    for (const auto &[id, vsan] : model.vsans()) {
        suspended += vsan.admin_state == ADMIN_STATE_SUSPENDED;
        up += model.is_up(id);
    }
    return {{"total", model.vsan_count()}, {"suspended", suspended}, {"up", up}};
}

void show_switch(Call &call) {
    const ServedSwitch &the_switch = call.the_switch;
    const SwitchModel &model = the_switch.model;
    const Settings &settings = model.settings();
    uint32_t ports_up = 0;
    for (const auto &[if_index, port] : model.ports()) {
        ports_up += port.is_up();
    }
    uint64_t requests = 0;
    for (const auto &[key, count] : the_switch.counters.requests) {
        requests += count;
    }

    call.reply = {{"wwn", wwn_text(settings.wwn)},
                  {"pid", getpid()},
                  {"lastChange", the_switch.last_change().seconds},
                  {"vsans", vsans_json(model)},
                  {"ports", {{"total", model.port_count()}, {"up", ports_up}}},
                  {"roles", the_switch.roles.list().size()},
                  {"tdx", {{"enabled", settings.tdx_enabled}, {"showRun", settings.tdx_show_run}}},
                  {"statusEvents", settings.status_events},
                  {"requests", requests},
                  {"connections",
                   {{"open", the_switch.counters.connections},
                    {"dropped", the_switch.counters.dropped_connections},
                    {"refused", the_switch.counters.refused_connections}}},
                  {"events",
                   {{"published", the_switch.events.totals().published},
                    {"missed", the_switch.events.totals().missed},
                    {"dropped", the_switch.events.totals().dropped}}},
                  {"subscribers", subscribers_json(the_switch.events)},
                  {"agents", agents(the_switch.events)},
                  {"faults",
                   {{"active", the_switch.faults.list().size() + the_switch.client_faults.list().size()},
                    {"applied", the_switch.faults.applied() + the_switch.client_faults.applied()}}}};
    if (model.session()) {
        call.reply["tdx"]["heldBy"] = model.session()->user;
    }
}

// Publishes events that nothing has caused: the storm that a receiver should survive.
void inject_events(Call &call) {
    const SwitchModel &model = call.the_switch.model;
    const uint32_t count = call.arguments.required_number("count", {1, max_injected});
    const uint32_t event_class =
        call.arguments.number("class", {EVENT_PORT_MOVED, EVENT_VSAN_CHANGED}).value_or(EVENT_VSAN_CHANGED);
    Event event;
    if (event_class == EVENT_VSAN_CHANGED) {
        const uint32_t id = call.arguments.number("vsan", vsan_numbers).value_or(VSAN_NUMBER_DEFAULT);
        const Vsan &vsan = require_vsan(call.the_switch, id);
        VsanEvent change;
        change.vsan = id;
        change.admin_state = change.former_admin_state = vsan.admin_state;
        change.oper_state = model.is_up(id) ? OPER_STATE_UP : OPER_STATE_DOWN;
        change.former_oper_state = model.is_up(id) ? OPER_STATE_DOWN : OPER_STATE_UP;
        event = vsan_event(change);
    } else if (event_class == EVENT_PORT_MOVED) {
        if (model.ports().empty()) {
            throw Refusal(STATUS_NO_MORE_INTERFACES, "The switch has no port.");
        }
        const auto &[if_index, port] = *model.ports().begin();
        event = port_event(if_index, port.vsan, port.vsan);
    } else {
        call.arguments.reader().fail(fmt::format("\"class\" must be {} or {}", EVENT_PORT_MOVED, EVENT_VSAN_CHANGED));
    }
    for (uint32_t number = 0; number < count; ++number) {
        call.the_switch.events.publish(event);
    }
    call.reply["published"] = count;
}

// The requests served since the last reset, and what the tool asked to be kept then.
void show_counters(Call &call) {
    const Counters &counters = call.the_switch.counters;
    call.reply["requests"] = Json::array();
    for (const auto &[key, count] : counters.requests) {
        const auto former = counters.requests_at_reset.find(key);
        const uint64_t since = count - (former == counters.requests_at_reset.end() ? 0 : former->second);
        if (since > 0) {
            call.reply["requests"].push_back(
                {{"service", key.service}, {"opcode", key.opcode}, {"kind", key.kind}, {"answered", since}});
        }
    }
    call.reply["note"] = counters.note_at_reset;
}

// Answers as if it were only asked, so that what was counted before is seen once more, and whole.
void reset_counters(Call &call) {
    const std::string note = call.arguments.required_text("note", max_note);
    show_counters(call);
    Counters &counters = call.the_switch.counters;
    counters.requests_at_reset = counters.requests;
    counters.note_at_reset = note;
}

const Command commands[] = {
    {"counters.show", MTS_KIND_GET, show_counters, {}},
    {"counters.reset", MTS_KIND_SET, reset_counters, {"note"}},
    {"switch.show", MTS_KIND_GET, show_switch, {}},
    {"events.inject", MTS_KIND_SET, inject_events, {"count", "class", "vsan"}},
};

} // namespace

std::span<const Command> status_commands() {
    return commands;
}

} // namespace vswitch
