/*
 * The switch's database, `switch.db` in the state folder.
 *
 * It is one SQLite file in write-ahead mode, synchronous FULL: what a transaction has
 * written is on the disk when it ends. `application_id` says that the file is ours,
 * `user_version` which schema it has; opening an older one migrates it.
 */
#ifndef VSWITCH_STORE_H
#define VSWITCH_STORE_H

#include <memory>
#include <span>
#include <string>

#include "files.h"
#include "switch_data.h"

namespace SQLite {
class Database;
}

namespace vswitch {

class StoreWriter;

/* The steps from an empty file to the present schema. Step n, counted from 0, is SQL
 * that leads from version n to version n + 1. Steps are only ever appended. */
using SchemaSteps = std::span<const char *const>;
SchemaSteps schema_steps();

class Store {
  public:
    /* Locks the state folder `directory`, which must exist, for as long as this object
     * lives. Throws Refusal when another daemon has it. */
    explicit Store(std::string directory);
    ~Store();
    Store(const Store &) = delete;
    Store &operator=(const Store &) = delete;

    /* Whether the folder has a database. */
    bool exists() const;

    /* Makes the database. It appears under its name only when it is complete, so that a
     * failure half-way leaves none. REQUIRES: !exists(). Throws Refusal. */
    void create(const SwitchData &data);

    /*
     * Checks the database, migrates it when it is older, opens it and returns what it
     * holds. Throws Refusal for a database that is damaged, newer than `steps` or not a
     * switch's; its files are then as they were, byte for byte.
     */
    SwitchData open(SchemaSteps steps = schema_steps());

    /*
     * Writes a change in one transaction and returns when it is on the disk; `present` is
     * what the database holds. False when that failed, for instance on a full disk: the
     * database is as it was, and a later change may succeed. The first of several failures
     * is logged. REQUIRES: the database is open, and `change` fits what it holds.
     */
    bool write(const Change &change, const SwitchData &present);

    const std::string &path() const { return path_; }

  private:
    void write_once(const Change &change, const SwitchData &present);
    bool make_room();

    std::string directory_;
    std::string path_;
    FileLock lock_;
    std::unique_ptr<SQLite::Database> database_;
    std::unique_ptr<StoreWriter> writer_;
    bool failing_ = false; /* the last write failed */
};

} // namespace vswitch

#endif
