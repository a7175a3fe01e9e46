// SPDX-License-Identifier: Apache-2.0
// A copy of the database in memory, made in steps while the database is used.
#ifndef VSWITCH_STORE_COPY_H
#define VSWITCH_STORE_COPY_H

#include <SQLiteCpp/Backup.h>
#include <SQLiteCpp/SQLiteCpp.h>
#include <optional>
#include <string>

namespace vswitch {

class StoreCopy {
  public:
    // Some hundred KB take less time than a change does. With the last step goes a copy of the whole, some
    // tens of milliseconds for the largest switch.
    static constexpr int pages_a_step = 64;

    // `source` outlives the copy. What is written through it meanwhile is copied, too. Throws
    // SQLite::Exception, as the other function does.
    explicit StoreCopy(SQLite::Database &source) : backup_(target_, source) {}

    // Copies `pages_a_step` more. Returns the bytes of a database file when that was the last, else
    // nothing. REQUIRES: it has not been complete.
    std::optional<std::string> copy_more();

  private:
    SQLite::Database target_{":memory:", SQLite::OPEN_READWRITE};
    SQLite::Backup backup_;
};

} // namespace vswitch

#endif
