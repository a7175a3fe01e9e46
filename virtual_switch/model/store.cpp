// SPDX-License-Identifier: Apache-2.0
#include "model/store.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <optional>
#include <spdlog/spdlog.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "model/rules.h"
#include "model/store_copy.h"
#include "model/store_settings.h"
#include "model/store_writer.h"

namespace vswitch {

namespace {

// "VSAN", so that another program's database is not taken for ours.
constexpr int64_t application_id = 0x5653414e;
constexpr int busy_milliseconds = 2000;

// Names may be empty, which is no conflict. A timer's key is that of enum Timer.
constexpr const char *steps_since_empty[] = {
    R"sql(
    CREATE TABLE setting (
        name TEXT PRIMARY KEY,
        value INTEGER NOT NULL
    ) STRICT, WITHOUT ROWID;
    CREATE TABLE vsan (
        id INTEGER PRIMARY KEY CHECK (id BETWEEN 1 AND 4095),
        name TEXT NOT NULL,
        media INTEGER NOT NULL,
        admin_state INTEGER NOT NULL,
        mtu INTEGER NOT NULL,
        load_balancing INTEGER NOT NULL,
        interop INTEGER NOT NULL,
        inorder_delivery INTEGER NOT NULL,
        drop_latency INTEGER NOT NULL,
        rest BLOB NOT NULL CHECK (length(rest) IN (0, 2032))
    ) STRICT;
    CREATE UNIQUE INDEX vsan_name ON vsan (name) WHERE name <> '';
    CREATE TABLE port (
        if_index INTEGER PRIMARY KEY CHECK (if_index BETWEEN 1 AND 4294967295),
        vsan INTEGER NOT NULL REFERENCES vsan (id),
        deny_list INTEGER NOT NULL,
        link_up INTEGER NOT NULL CHECK (link_up IN (0, 1))
    ) STRICT;
    CREATE INDEX port_vsan ON port (vsan);
    CREATE TABLE vsan_timer (
        vsan INTEGER NOT NULL REFERENCES vsan (id) ON DELETE CASCADE,
        timer INTEGER NOT NULL CHECK (timer BETWEEN 7 AND 10),
        value INTEGER NOT NULL,
        PRIMARY KEY (vsan, timer)
    ) STRICT, WITHOUT ROWID;
    CREATE TABLE distributed_timer (
        vsan INTEGER NOT NULL REFERENCES vsan (id) ON DELETE CASCADE,
        timer INTEGER NOT NULL CHECK (timer BETWEEN 7 AND 10),
        value INTEGER NOT NULL,
        PRIMARY KEY (vsan, timer)
    ) STRICT, WITHOUT ROWID;
    )sql",
    // A user's name is bytes; VSAN 0 stands for the whole switch.
    R"sql(
    INSERT INTO setting VALUES ('tdx_fctimer_refusing', 0), ('status_events', 1);
    CREATE TABLE timer_session (
        id INTEGER PRIMARY KEY CHECK (id = 1),
        user BLOB NOT NULL
    ) STRICT;
    CREATE TABLE pending_timer (
        vsan INTEGER NOT NULL CHECK (vsan BETWEEN 0 AND 4095),
        timer INTEGER NOT NULL CHECK (timer BETWEEN 7 AND 10),
        value INTEGER NOT NULL,
        PRIMARY KEY (vsan, timer)
    ) STRICT, WITHOUT ROWID;
    )sql",
    // A port's traffic has a row for each counter that grows; counters are those of enum port_counter,
    // and texts those of enum system_text.
    R"sql(
    ALTER TABLE port ADD COLUMN enabled INTEGER NOT NULL DEFAULT 1 CHECK (enabled IN (0, 1));
    ALTER TABLE port ADD COLUMN alias TEXT NOT NULL DEFAULT '';
    ALTER TABLE port ADD COLUMN speed INTEGER NOT NULL DEFAULT 8000;
    ALTER TABLE port ADD COLUMN traps INTEGER NOT NULL DEFAULT 1 CHECK (traps IN (0, 1));
    ALTER TABLE port ADD COLUMN change_seconds INTEGER NOT NULL DEFAULT 0;
    ALTER TABLE port ADD COLUMN change_microseconds INTEGER NOT NULL DEFAULT 0;
    CREATE TABLE port_traffic (
        if_index INTEGER NOT NULL REFERENCES port (if_index),
        counter INTEGER NOT NULL CHECK (counter BETWEEN 0 AND 7),
        rate INTEGER NOT NULL CHECK (rate BETWEEN 1 AND 4294967295),
        PRIMARY KEY (if_index, counter)
    ) STRICT, WITHOUT ROWID;
    CREATE TABLE system_text (
        text INTEGER PRIMARY KEY CHECK (text BETWEEN 0 AND 2),
        value TEXT NOT NULL
    ) STRICT;
    INSERT INTO system_text VALUES (0, ''), (1, 'vswitch'), (2, '');
    )sql",
};

int64_t pragma(SQLite::Database &database, const char *name) {
    return database.execAndGet(fmt::format("PRAGMA {}", name)).getInt64();
}

// A column that must hold a number from 0 to `highest`.
uint32_t number(const SQLite::Column &column, uint32_t highest = UINT32_MAX) {
    const int64_t value = column.getInt64();
    if (!column.isInteger() || value < 0 || value > highest) {
        throw Damage(fmt::format("the column {} holds a value outside its range", column.getName()));
    }
    return static_cast<uint32_t>(value);
}

void read_timers(SQLite::Database &database, const char *table, SwitchData &data, PartialTimers Vsan::*timers) {
    SQLite::Statement query(database, fmt::format("SELECT vsan, timer, value FROM {}", table));
    while (query.executeStep()) {
        const uint32_t vsan = number(query.getColumn(0));
        const auto timer = timer_of_key(number(query.getColumn(1)));
        if (!data.vsans.contains(vsan) || !timer) {
            throw Damage("a timer belongs to no VSAN");
        }
        (data.vsans.at(vsan).*timers)[*timer] = number(query.getColumn(2));
    }
}

void read_session(SQLite::Database &database, SwitchData &data) {
    SQLite::Statement session(database, "SELECT user FROM timer_session");
    if (session.executeStep()) {
        data.session = DistributionSession{session.getColumn(0).getString(), {}};
    }
    SQLite::Statement pending(database, "SELECT vsan, timer, value FROM pending_timer");
    while (pending.executeStep()) {
        const uint32_t vsan = number(pending.getColumn(0));
        const auto timer = timer_of_key(number(pending.getColumn(1)));
        if (!data.session || !timer || (vsan != 0 && !data.vsans.contains(vsan))) {
            throw Damage("a pending timer belongs to no session or no VSAN");
        }
        data.session->pending[vsan][*timer] = number(pending.getColumn(2));
    }
}

void read_ports(SQLite::Database &database, SwitchData &data) {
    SQLite::Statement ports(database, "SELECT if_index, vsan, deny_list, link_up, enabled, alias, speed, traps, "
                                      "change_seconds, change_microseconds FROM port");
    while (ports.executeStep()) {
        const uint32_t if_index = number(ports.getColumn(0));
        Port port;
        port.vsan = number(ports.getColumn(1));
        port.deny_list = number(ports.getColumn(2));
        port.link_up = number(ports.getColumn(3), 1) != 0;
        port.enabled = number(ports.getColumn(4), 1) != 0;
        port.alias = ports.getColumn(5).getString();
        port.speed = number(ports.getColumn(6));
        port.traps = number(ports.getColumn(7), 1) != 0;
        port.last_change.seconds = number(ports.getColumn(8));
        port.last_change.microseconds = number(ports.getColumn(9), 999999);
        if (!data.vsans.contains(port.vsan)) {
            throw Damage(fmt::format("interface {} belongs to no VSAN", if_index));
        }
        if (check_port(port) != STATUS_SUCCESS) {
            throw Damage(fmt::format("the settings of interface {} are not those of a port", if_index));
        }
        data.ports.emplace(if_index, std::move(port));
    }
    SQLite::Statement traffic(database, "SELECT if_index, counter, rate FROM port_traffic");
    while (traffic.executeStep()) {
        const auto port = data.ports.find(number(traffic.getColumn(0)));
        if (port == data.ports.end()) {
            throw Damage("traffic belongs to no interface");
        }
        port->second.traffic[number(traffic.getColumn(1), PORT_COUNTER_COUNT - 1)] = number(traffic.getColumn(2));
    }
}

void read_system_texts(SQLite::Database &database, SystemTexts &texts) {
    SQLite::Statement query(database, "SELECT value FROM system_text ORDER BY text");
    for (std::string &text : texts) {
        if (!query.executeStep()) {
            throw Damage("a text of the system is missing");
        }
        text = query.getColumn(0).getString();
    }
    if (check_system_texts(texts) != STATUS_SUCCESS) {
        throw Damage("a text of the system is none");
    }
}

SwitchData read_data(SQLite::Database &database) {
    SwitchData data;
    SQLite::Statement setting(database, "SELECT value FROM setting WHERE name = ?");
    for (const SettingRow &row : setting_rows()) {
        setting.bind(1, row.name);
        if (!setting.executeStep()) {
            throw Damage(fmt::format("the setting {} is missing", row.name));
        }
        row.set(data.settings, setting.getColumn(0).getInt64());
        setting.reset();
    }
    SQLite::Statement vsans(database, "SELECT id, name, media, admin_state, mtu, load_balancing, interop, "
                                      "inorder_delivery, drop_latency, rest FROM vsan");
    while (vsans.executeStep()) {
        const uint32_t id = number(vsans.getColumn(0), VSAN_NUMBER_MAX);
        Vsan vsan;
        vsan.name = vsans.getColumn(1).getString();
        uint32_t *const words[] = {&vsan.media,   &vsan.admin_state,      &vsan.mtu,         &vsan.load_balancing,
                                   &vsan.interop, &vsan.inorder_delivery, &vsan.drop_latency};
        int column = 2;
        for (uint32_t *word : words) {
            *word = number(vsans.getColumn(column++));
        }
        const SQLite::Column rest = vsans.getColumn(column);
        const auto *bytes = static_cast<const uint8_t *>(rest.getBlob());
        const auto size = static_cast<size_t>(rest.getBytes());
        if (size != 0 && size != VSAN_REST_SIZE) {
            throw Damage(fmt::format("the record of VSAN {} has the wrong size", id));
        }
        vsan.rest.assign(bytes, bytes + size);
        data.vsans.emplace(id, std::move(vsan));
    }
    if (!data.vsans.contains(VSAN_NUMBER_DEFAULT) || data.vsans.contains(0)) {
        throw Damage("its VSANs are not those of a switch");
    }
    read_ports(database, data);
    read_system_texts(database, data.settings.system);
    read_timers(database, "vsan_timer", data, &Vsan::timers);
    read_timers(database, "distributed_timer", data, &Vsan::distributed_timers);
    read_session(database, data);
    return data;
}

// Closing a database writes its log into it and removes the log's name, unless told.
void leave_files_at_close(SQLite::Database &database) {
    sqlite3_db_config(database.getHandle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
}

bool has_content(const std::string &path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && status.st_size > 0;
}

// `path` as a file URI.
std::string uri_of(const std::string &path, const char *parameters) {
    std::string uri = "file:";
    for (const char c : path) {
        if (c == '%' || c == '?' || c == '#') {
            uri += fmt::format("%{:02x}", static_cast<unsigned char>(c));
        } else {
            uri += c;
        }
    }
    return uri + parameters;
}

void remove_database(const std::string &path) {
    for (const char *suffix : {"", "-wal", "-shm", "-journal"}) {
        unlink((path + suffix).c_str());
    }
}

// Copies a database with what is in its log. The copy is on the disk, under its name, when it is
// complete, and not at all when that fails. Throws Refusal.
void keep_copy(SQLite::Database &database, const std::string &path, int64_t version) {
    const std::string copy = fmt::format("{}.v{}", path, version);
    if (file_state(copy)) {
        spdlog::info("{} is there already; the database is not copied again before it is migrated", copy);
        return;
    }
    const std::string draft = copy + ".new";
    const auto cannot_copy = [&](const std::string &reason) {
        return Refusal(fmt::format("Cannot copy the database {} to {} before it is migrated: {}. It stays as it is; "
                                   "make room for the copy and start again.",
                                   path, copy, reason));
    };
    remove_database(draft);
    try {
        SQLite::Statement statement(database, "VACUUM INTO ?");
        statement.bind(1, uri_of(draft, ""));
        statement.exec();
        sync_file(draft);
        if (rename(draft.c_str(), copy.c_str()) != 0) {
            throw cannot_copy(std::strerror(errno));
        }
        sync_directory(std::filesystem::path(copy).parent_path().string());
    } catch (const SQLite::Exception &error) {
        remove_database(draft);
        throw cannot_copy(error.what());
    } catch (...) {
        remove_database(draft);
        throw;
    }
    spdlog::info("kept the database of schema {} as {}", version, copy);
}

// Looks at a database without changing its files, and returns what it holds, or nothing
// when its schema is older; then it has been copied.
//
// Without a write-ahead log the file is declared immutable, so that SQLite makes no
// files beside it. With one, left by a crash, its content counts; its index is then made in
// memory, which takes a lock that a file opened for reading cannot have. Nobody asks for it:
// the state folder is locked.
std::optional<SwitchData> inspect(const std::string &path, SchemaSteps steps) {
    if (!has_content(path)) {
        throw Damage("it is empty");
    }
    const bool has_log = has_content(path + "-wal");
    SQLite::Database database(uri_of(path, has_log ? "?mode=ro&vfs=unix-none" : "?immutable=1"),
                              SQLite::OPEN_READONLY | SQLite::OPEN_URI, busy_milliseconds);
    leave_files_at_close(database);
    database.exec("PRAGMA locking_mode = EXCLUSIVE; PRAGMA trusted_schema = OFF; PRAGMA cell_size_check = ON");
    const int64_t version = pragma(database, "user_version");
    if (pragma(database, "application_id") != application_id) {
        throw Refusal(
            fmt::format("The file {} is not a switch's database; move it away to start with a new one.", path));
    }
    if (version > static_cast<int64_t>(steps.size())) {
        throw Refusal(fmt::format("The database {} was written by a newer version of this program (schema {}, this "
                                  "one knows {}); start that version, or move the file away to start with a new one.",
                                  path, version, steps.size()));
    }
    const std::string verdict = database.execAndGet("PRAGMA integrity_check(1)").getString();
    if (version < 1 || verdict != "ok") {
        throw Damage(verdict);
    }
    if (version < static_cast<int64_t>(steps.size())) {
        keep_copy(database, path, version);
        return std::nullopt;
    }
    return read_data(database);
}

// The lock comes first: without it, the log's index would be a file.
void configure(SQLite::Database &database) {
    database.exec("PRAGMA locking_mode = EXCLUSIVE");
    database.exec("PRAGMA journal_mode = WAL");
    database.exec("PRAGMA synchronous = FULL; PRAGMA foreign_keys = ON; PRAGMA trusted_schema = OFF");
}

// A log without its database, left by somebody who has moved only that away, would be taken
// for the log of the next one. It stays beside, for the day when the database comes back.
void set_log_aside(const std::string &path) {
    for (const char *suffix : {"-wal", "-journal"}) {
        const std::string log = path + suffix;
        const std::string aside = log + ".old";
        if (rename(log.c_str(), aside.c_str()) == 0) {
            spdlog::warn("{} belongs to a database that is gone; it is {} now", log, aside);
        } else if (errno != ENOENT) {
            throw Refusal(fmt::format("Cannot move {} away: {}.", log, std::strerror(errno)));
        }
    }
}

} // namespace

SchemaSteps schema_steps() {
    return steps_since_empty;
}

Store::Store(std::string directory)
    : directory_(std::move(directory)), path_(directory_ + "/switch.db"),
      lock_(Lock::On::folder, directory_,
            fmt::format("Another vswitchd runs on the state folder {}; stop it first.", directory_)) {}

Store::~Store() {
    if (database_ && files() != expected_) {
        leave_files_at_close(*database_);
    }
}

bool Store::exists() const {
    struct stat status {};
    return lstat(path_.c_str(), &status) == 0;
}

void Store::create(const SwitchData &data) {
    const std::string draft = path_ + ".new";
    remove_database(draft);
    try {
        {
            SQLite::Database database(draft, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE, busy_milliseconds);
            configure(database);
            SQLite::Transaction transaction(database);
            for (const char *step : schema_steps()) {
                database.exec(step);
            }
            StoreWriter(database).write(data);
            database.exec(fmt::format("PRAGMA application_id = {}", application_id));
            database.exec(fmt::format("PRAGMA user_version = {}", schema_steps().size()));
            transaction.commit();
            if (database.execAndGet("PRAGMA wal_checkpoint(TRUNCATE)").getInt() != 0) {
                throw Refusal(fmt::format("Cannot write the database {}: it is in use.", draft));
            }
        }
        set_log_aside(path_);
        if (rename(draft.c_str(), path_.c_str()) != 0) {
            throw Refusal(fmt::format("Cannot write the database {}: {}.", path_, std::strerror(errno)));
        }
        sync_directory(directory_);
    } catch (const SQLite::Exception &error) {
        remove_database(draft);
        throw Refusal(fmt::format("Cannot write the database {}: {}.", path_, error.what()));
    } catch (...) {
        remove_database(draft);
        throw;
    }
}

SwitchData Store::open(SchemaSteps steps) {
    const auto damaged = [&](const std::string &reason) {
        return Refusal(fmt::format("The database {} is damaged or cannot be read ({}); restore it from a backup, or "
                                   "move it away to start with a new one.",
                                   path_, reason));
    };
    std::optional<SwitchData> data;
    try {
        data = inspect(path_, steps);
    } catch (const SQLite::Exception &error) {
        throw damaged(error.what());
    } catch (const Damage &damage) {
        throw damaged(damage.what());
    }

    try {
        auto database = std::make_unique<SQLite::Database>(path_, SQLite::OPEN_READWRITE, busy_milliseconds);
        configure(*database);
        const char *log_path = sqlite3_filename_wal(sqlite3_db_filename(database->getHandle(), "main"));
        log_path_ = log_path ? log_path : "";
        if (!data) {
            SQLite::Transaction transaction(*database);
            for (auto step = static_cast<size_t>(pragma(*database, "user_version")); step < steps.size(); ++step) {
                database->exec(steps[step]);
            }
            database->exec(fmt::format("PRAGMA user_version = {}", steps.size()));
            data = read_data(*database);
            transaction.commit();
        }
        writer_.reset();
        copies_.clear();
        database_ = std::move(database);
        expected_ = files();
    } catch (const SQLite::Exception &error) {
        throw Refusal(fmt::format("Cannot open the database {}: {}.", path_, error.what()));
    } catch (const Damage &damage) {
        throw damaged(damage.what());
    }
    return std::move(*data);
}

void Store::write_once(const Change &change, const SwitchData &present) {
    SQLite::Transaction transaction(*database_, SQLite::TransactionBehavior::IMMEDIATE);
    if (!writer_) {
        writer_ = std::make_unique<StoreWriter>(*database_);
    }
    writer_->write(change, present);
    transaction.commit();
}

// On a small disk it may be the log of what has been written already that takes the room.
bool Store::make_room() {
    try {
        return database_->execAndGet("PRAGMA wal_checkpoint(TRUNCATE)").getInt() == 0;
    } catch (const SQLite::Exception &) {
        return false;
    }
}

Store::Files Store::files() const {
    return {file_state(path_), file_state(log_path_)};
}

void Store::expect_files() {
    const auto update = [](std::optional<FileState> &expected, const std::optional<FileState> &present) {
        if (expected && present && expected->is_same_file(*present)) {
            expected = present;
        }
    };
    const Files present = files();
    update(expected_.database, present.database);
    update(expected_.log, present.log);
}

bool Store::refuse(Trouble why, const std::string &sentence) {
    if (std::exchange(trouble_, why) != why) {
        spdlog::error("{}", sentence);
    }
    return false;
}

bool Store::try_to_write(const Change &change, const SwitchData &present) {
    const auto refused = [&](const SQLite::Exception &error) {
        return refuse(Trouble::unwritable,
                      fmt::format("Cannot write the database {}: {}. The change is refused.", path_, error.what()));
    };
    try {
        write_once(change, present);
    } catch (const SQLite::Exception &error) {
        if (error.getErrorCode() != SQLITE_FULL || !make_room()) {
            return refused(error);
        }
        try {
            write_once(change, present);
        } catch (const SQLite::Exception &second_error) {
            return refused(second_error);
        }
    }
    return true;
}

bool Store::write(const Change &change, const SwitchData &present) {
    if (files() != expected_) {
        return refuse(
            Trouble::not_ours,
            fmt::format("The database {} or its log was removed, replaced or written by somebody else. Changes "
                        "are refused until both are back as they were, or the switch is started again.",
                        path_));
    }
    const bool written = try_to_write(change, present);
    expect_files();
    if (written && std::exchange(trouble_, Trouble::none) != Trouble::none) {
        spdlog::info("The database {} can be written again.", path_);
    }
    return written;
}

uint32_t Store::begin_copy() {
    if (files() != expected_) {
        throw Refusal(fmt::format("The database {} or its log was removed, replaced or written by somebody else; it "
                                  "is not copied.",
                                  path_));
    }
    if (copies_.size() == max_copies) {
        copies_.erase(copies_.begin());
    }
    try {
        copies_.emplace(++last_copy_, std::make_unique<StoreCopy>(*database_));
    } catch (const SQLite::Exception &error) {
        throw Refusal(fmt::format("Cannot copy the database {}: {}.", path_, error.what()));
    }
    return last_copy_;
}

std::optional<std::string> Store::copy_more(uint32_t number) {
    const auto copy = copies_.find(number);
    if (copy == copies_.end()) {
        throw Refusal(STATUS_NO_SUCH_PARCEL, "The copy of the database was given up for others; try again.");
    }
    try {
        auto content = copy->second->copy_more();
        if (content) {
            copies_.erase(copy);
        }
        return content;
    } catch (const SQLite::Exception &error) {
        copies_.erase(copy);
        throw Refusal(fmt::format("Cannot copy the database {}: {}.", path_, error.what()));
    }
}

} // namespace vswitch
