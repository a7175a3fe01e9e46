// SPDX-License-Identifier: Apache-2.0
#include "model/difference.h"

#include <algorithm>

namespace vswitch {

namespace {

using Pending = std::map<uint32_t, PartialTimers>;

void add_vsans(Change &change, const SwitchData &before, const SwitchData &after) {
    for (const auto &[id, vsan] : after.vsans) {
        const auto former = before.vsans.find(id);
        if (former == before.vsans.end() || former->second != vsan) {
            change.vsans.emplace(id, vsan);
        }
    }
    for (const auto &[id, vsan] : before.vsans) {
        if (!after.vsans.contains(id)) {
            change.deleted_vsans.insert(id);
        }
    }
}

void add_ports(Change &change, const SwitchData &before, const SwitchData &after) {
    for (const auto &[if_index, port] : after.ports) {
        const Port &former = before.ports.at(if_index);
        Port present = port;
        if (present.is_up() == former.is_up()) {
            present.last_change = former.last_change;
        }
        if (present != former) {
            change.ports.emplace(if_index, std::move(present));
        }
    }
}

void add_settings(Change &change, const SwitchData &before, const SwitchData &after) {
    Settings settings = after.settings;
    if (change.vsans.empty() && change.deleted_vsans.empty()) {
        settings.last_change = before.settings.last_change;
    }
    if (settings != before.settings) {
        change.settings = std::move(settings);
    }
}

// Whether what was pending of a VSAN that is still there is pending with some value.
bool are_kept(const Pending &former, const Pending &present, const Change &change) {
    return std::ranges::all_of(former, [&](const auto &row) {
        const auto &[id, timers] = row;
        if (change.deleted_vsans.contains(id)) {
            return true;
        }
        const auto found = present.find(id);
        return std::ranges::all_of(timer_kinds, [&, &values = timers](const TimerKind &kind) {
            return !values[kind.timer] || (found != present.end() && found->second[kind.timer]);
        });
    });
}

void add_pending(Change &change, const Pending &former, const Pending &present) {
    for (const auto &[id, timers] : present) {
        const auto found = former.find(id);
        for (const TimerKind &kind : timer_kinds) {
            const auto value = timers[kind.timer];
            if (value && (found == former.end() || found->second[kind.timer] != value)) {
                change.pending.push_back({id, kind.timer, *value});
            }
        }
    }
}

// A session only ever gains values; one that has lost some is another.
void add_session(Change &change, const SwitchData &before, const SwitchData &after) {
    if (!after.session) {
        change.session = before.session ? Change::Session::ends : Change::Session::stays;
        return;
    }
    const bool goes_on = before.session && before.session->user == after.session->user &&
                         are_kept(before.session->pending, after.session->pending, change);
    if (!goes_on) {
        change.session = before.session ? Change::Session::restarts : Change::Session::opens;
        change.holder = after.session->user;
    }
    add_pending(change, goes_on ? before.session->pending : Pending(), after.session->pending);
}

} // namespace

Change difference(const SwitchData &before, const SwitchData &after) {
    Change change;
    add_vsans(change, before, after);
    add_ports(change, before, after);
    add_settings(change, before, after);
    add_session(change, before, after);
    return change;
}

bool is_empty(const Change &change) {
    return !change.settings && change.vsans.empty() && change.ports.empty() && change.deleted_vsans.empty() &&
           change.session == Change::Session::stays && change.pending.empty();
}

} // namespace vswitch
