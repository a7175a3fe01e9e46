// SPDX-License-Identifier: Apache-2.0
#include "model/store_writer.h"

#include <SQLiteCpp/VariadicBind.h>
#include <fmt/format.h>
#include <map>
#include <string_view>

#include "model/store_settings.h"

namespace vswitch {

namespace {

// An empty vector has no address, and a null pointer would be bound as NULL.
void bind_bytes(SQLite::Statement &statement, int index, const void *bytes, size_t size) {
    statement.bind(index, size == 0 ? "" : bytes, static_cast<int>(size));
}

// Runs a statement that is ready, and makes it ready for the next time. One that failed is
// made ready before it is bound again.
template <typename... Values> void run(SQLite::Statement &statement, const Values &...values) {
    statement.tryReset();
    if constexpr (sizeof...(values) > 0) {
        SQLite::bind(statement, values...);
    }
    statement.exec();
    statement.reset();
}

} // namespace

StoreWriter::TimerTable::TimerTable(SQLite::Database &database, const char *table)
    : clear_(database, fmt::format("DELETE FROM {} WHERE vsan = ?", table)),
      insert_(database, fmt::format("INSERT OR REPLACE INTO {} VALUES (?, ?, ?)", table)) {}

void StoreWriter::TimerTable::clear(uint32_t vsan) {
    run(clear_, vsan);
}

void StoreWriter::TimerTable::write(uint32_t vsan, Timer timer, uint32_t value) {
    run(insert_, vsan, static_cast<uint32_t>(timer), value);
}

void StoreWriter::TimerTable::write(uint32_t vsan, const PartialTimers &timers) {
    for (const TimerKind &kind : timer_kinds) {
        if (const auto value = timers[kind.timer]) {
            write(vsan, kind.timer, *value);
        }
    }
}

void StoreWriter::TimerTable::replace(uint32_t vsan, const PartialTimers &timers, const PartialTimers *present) {
    if (present && *present == timers) {
        return;
    }
    clear(vsan);
    write(vsan, timers);
}

// A REPLACE of a VSAN or a port would delete the row first, and what refers to it would be in its way.
StoreWriter::StoreWriter(SQLite::Database &database)
    : setting_(database, "INSERT OR REPLACE INTO setting VALUES (?, ?)"),
      vsan_(database, "INSERT INTO vsan VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10) ON CONFLICT (id) DO "
                      "UPDATE SET name = ?2, media = ?3, admin_state = ?4, mtu = ?5, load_balancing = ?6, "
                      "interop = ?7, inorder_delivery = ?8, drop_latency = ?9, rest = ?10"),
      vsan_removal_(database, "DELETE FROM vsan WHERE id = ?"),
      name_removal_(database, "UPDATE vsan SET name = '' WHERE id = ?"),
      port_(database,
            "INSERT INTO port (if_index, vsan, deny_list, link_up, enabled, alias, speed, traps, change_seconds, "
            "change_microseconds) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10) ON CONFLICT (if_index) DO UPDATE "
            "SET vsan = ?2, deny_list = ?3, link_up = ?4, enabled = ?5, alias = ?6, speed = ?7, traps = ?8, "
            "change_seconds = ?9, change_microseconds = ?10"),
      traffic_(database, "INSERT INTO port_traffic VALUES (?, ?, ?)"),
      traffic_removal_(database, "DELETE FROM port_traffic WHERE if_index = ?"),
      system_text_(database, "INSERT OR REPLACE INTO system_text VALUES (?, ?)"),
      session_(database, "INSERT INTO timer_session VALUES (1, ?)"),
      session_removal_(database, "DELETE FROM timer_session"), pending_removal_(database, "DELETE FROM pending_timer"),
      timers_(database, "vsan_timer"), distributed_timers_(database, "distributed_timer"),
      pending_timers_(database, "pending_timer") {}

void StoreWriter::write(const Settings &settings, const Settings *present) {
    for (const SettingRow &row : setting_rows()) {
        if (!present || row.get(*present) != row.get(settings)) {
            run(setting_, row.name, row.get(settings));
        }
    }
    for (uint32_t text = 0; text < settings.system.size(); ++text) {
        if (!present || present->system[text] != settings.system[text]) {
            run(system_text_, text, settings.system[text]);
        }
    }
}

void StoreWriter::write(uint32_t id, const Vsan &vsan, const Vsan *present) {
    vsan_.tryReset();
    bind_bytes(vsan_, 10, vsan.rest.data(), vsan.rest.size());
    run(vsan_, id, vsan.name, vsan.media, vsan.admin_state, vsan.mtu, vsan.load_balancing, vsan.interop,
        vsan.inorder_delivery, vsan.drop_latency);
    timers_.replace(id, vsan.timers, present ? &present->timers : nullptr);
    distributed_timers_.replace(id, vsan.distributed_timers, present ? &present->distributed_timers : nullptr);
}

void StoreWriter::write(uint32_t if_index, const Port &port, const Port *present) {
    run(port_, if_index, port.vsan, port.deny_list, port.link_up ? 1 : 0, port.enabled ? 1 : 0, port.alias, port.speed,
        port.traps ? 1 : 0, static_cast<int64_t>(port.last_change.seconds), port.last_change.microseconds);
    if (present && present->traffic == port.traffic) {
        return;
    }
    run(traffic_removal_, if_index);
    for (uint32_t counter = 0; counter < port.traffic.size(); ++counter) {
        if (port.traffic[counter] != 0) {
            run(traffic_, if_index, counter, port.traffic[counter]);
        }
    }
}

void StoreWriter::open_session(const std::string &user) {
    session_.tryReset();
    bind_bytes(session_, 1, user.data(), user.size());
    run(session_);
}

void StoreWriter::write(const SwitchData &data) {
    write(data.settings, nullptr);
    for (const auto &[id, vsan] : data.vsans) {
        write(id, vsan, nullptr);
    }
    for (const auto &[if_index, port] : data.ports) {
        write(if_index, port, nullptr);
    }
    if (!data.session) {
        return;
    }
    open_session(data.session->user);
    for (const auto &[vsan, timers] : data.session->pending) {
        pending_timers_.write(vsan, timers);
    }
}

void StoreWriter::free_names(const Change &change, const SwitchData &present) {
    std::map<std::string_view, uint32_t> taken;
    for (const auto &[id, vsan] : change.vsans) {
        taken.emplace(vsan.name, id);
    }
    const auto free_name = [&](uint32_t id) {
        const auto former = present.vsans.find(id);
        if (former == present.vsans.end() || former->second.name.empty()) {
            return;
        }
        const auto taker = taken.find(former->second.name);
        if (taker != taken.end() && taker->second != id) {
            run(name_removal_, id);
        }
    };
    for (const auto &[id, vsan] : change.vsans) {
        free_name(id);
    }
    for (const uint32_t id : change.deleted_vsans) {
        free_name(id);
    }
}

// The order is that of the references: rows appear before others refer to them. At no moment have
// two VSANs one name.
void StoreWriter::write(const Change &change, const SwitchData &present) {
    if (change.settings) {
        write(*change.settings, &present.settings);
    }
    free_names(change, present);
    for (const auto &[id, vsan] : change.vsans) {
        const auto former = present.vsans.find(id);
        write(id, vsan, former == present.vsans.end() ? nullptr : &former->second);
    }
    for (const auto &[if_index, port] : change.ports) {
        write(if_index, port, &present.ports.at(if_index));
    }
    if (change.ends_session()) {
        run(session_removal_);
        run(pending_removal_);
    }
    if (change.opens_session()) {
        open_session(change.holder);
    }
    for (const Change::PendingTimer &value : change.pending) {
        pending_timers_.write(value.vsan, value.timer, value.value);
    }
    for (const uint32_t id : change.deleted_vsans) {
        pending_timers_.clear(id);
        run(vsan_removal_, id);
    }
}

} // namespace vswitch
