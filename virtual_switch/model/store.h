// SPDX-License-Identifier: Apache-2.0
// The switch's database, `switch.db` in the state folder.
//
// It is one SQLite file in write-ahead mode, synchronous FULL: what a transaction has
// written is on the disk when it ends. `application_id` says that the file is ours,
// `user_version` which schema it has; opening an older one migrates it.
//
// One process owns it: it locks the database for as long as it is open, so that the index of
// the log is in memory of its own. In a file that others can cut off, reading it would be a
// signal that ends the switch.
#ifndef VSWITCH_STORE_H
#define VSWITCH_STORE_H

#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "model/files.h"
#include "model/switch_data.h"

namespace SQLite {
class Database;
}

namespace vswitch {

class StoreWriter;
class StoreCopy;

// The steps from an empty file to the present schema. Step n, counted from 0, is SQL
// that leads from version n to version n + 1. Steps are only ever appended.
using SchemaSteps = std::span<const char *const>;
SchemaSteps schema_steps();

class Store {
  public:
    // Locks the state folder `directory`, which must exist, for as long as this object
    // lives. Throws Refusal when another daemon has it.
    explicit Store(std::string directory);
    ~Store();
    Store(const Store &) = delete;
    Store &operator=(const Store &) = delete;

    // Whether the folder has a database.
    bool exists() const;

    // Makes the database. It appears under its name only when it is complete, so that a
    // failure half-way leaves none. REQUIRES: !exists(). Throws Refusal.
    void create(const SwitchData &data);

    // Checks the database, migrates it when it is older, opens it and returns what it
    // holds. Throws Refusal for a database that is damaged, newer than `steps` or not a
    // switch's, and when an older one cannot be copied; its files are then as they were,
    // byte for byte.
    //
    // Before a migration from schema n the database is copied to `switch.db.vn`, for whoever
    // wants to go back. A copy that is there already stays: it is from an earlier migration.
    SwitchData open(SchemaSteps steps = schema_steps());

    // Writes a change in one transaction and returns when it is on the disk; `present` is
    // what the database holds. False when that failed, for instance on a full disk, or when
    // somebody has removed, replaced or written the database or its log since the last
    // write: the database is as it was, and a later change may succeed. The first of several
    // failures of a kind is logged. REQUIRES: the database is open, and `change` fits what it
    // holds.
    bool write(const Change &change, const SwitchData &present);

    // Begins a copy of the database, which goes on being written: what is written before the copy is
    // complete is in it. Of those under way more than max_copies are too many, and the oldest is given
    // up. Returns the number of this one. Throws Refusal when the database was removed or replaced, or
    // cannot be read. REQUIRES: the database is open.
    static constexpr size_t max_copies = 4;
    uint32_t begin_copy();

    // Copies a little more, so that whoever is served waits no longer than for a change. Returns the bytes of
    // a database file when the copy is complete, and nothing before. Throws Refusal when it cannot go
    // on, STATUS_NO_SUCH_PARCEL when it was given up.
    std::optional<std::string> copy_more(uint32_t number);

    const std::string &path() const { return path_; }

  private:
    // Why changes fail.
    enum class Trouble { none, unwritable, not_ours };

    bool try_to_write(const Change &change, const SwitchData &present);
    void write_once(const Change &change, const SwitchData &present);
    bool make_room();
    bool refuse(Trouble why, const std::string &sentence);

    // The database and its log, as they are under their names.
    struct Files {
        std::optional<FileState> database;
        std::optional<FileState> log;

        bool operator==(const Files &) const = default;
    };
    Files files() const;

    // Has both files expected as they are now, but not others in their places.
    void expect_files();

    std::string directory_;
    std::string path_;
    std::string log_path_;
    Lock lock_;
    std::unique_ptr<SQLite::Database> database_;
    std::unique_ptr<StoreWriter> writer_;
    std::map<uint32_t, std::unique_ptr<StoreCopy>> copies_; // by number
    uint32_t last_copy_ = 0;
    Files expected_; // as this process has left them
    Trouble trouble_ = Trouble::none;
};

} // namespace vswitch

#endif
