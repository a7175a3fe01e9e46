// SPDX-License-Identifier: Apache-2.0
// What the disk can do: the smallest transaction that leaves the switch's database as a SET of
// a VSAN's name does, with prepared statements and nothing around it. The same settings of
// SQLite as in virtual_switch/model/store.cpp, but for the lock that keeps others out: this one is
// what any program's database costs.
#include <SQLiteCpp/SQLiteCpp.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "stream.h"

namespace bench {

namespace {

class CommitStream : public Stream {
  public:
    CommitStream(const std::string &path, uint32_t count)
        : database_(path, SQLite::OPEN_READWRITE), count_(count),
          vsan_(configured(), "UPDATE vsan SET name = ? WHERE id = ?"),
          setting_(database_, "UPDATE setting SET value = ? WHERE name = ?") {}

    uint64_t run(const Limit &limit) override {
        uint64_t done = 0;
        while (!limit.reached(done)) {
            commit();
            ++done;
        }
        return done;
    }

    uint64_t operations_per_pass() const override { return count_; }

  private:
    SQLite::Database &configured() {
        database_.exec("PRAGMA journal_mode = WAL");
        database_.exec("PRAGMA synchronous = FULL; PRAGMA foreign_keys = ON; PRAGMA trusted_schema = OFF");
        return database_;
    }

    void commit() {
        const uint32_t id = static_cast<uint32_t>(next_ % count_) + 1;
        SQLite::Transaction transaction(database_, SQLite::TransactionBehavior::IMMEDIATE);
        vsan_.bind(1, fmt::format("{:05}-{:04}", next_ / count_ % 100000, id));
        vsan_.bind(2, id);
        if (vsan_.exec() != 1) {
            throw Failure(fmt::format("the copy of the database has no VSAN {}", id));
        }
        vsan_.reset();
        set("change_seconds", static_cast<int64_t>(next_));
        set("change_microseconds", static_cast<int64_t>(next_ % 1000000));
        transaction.commit();
        ++next_;
    }

    void set(const char *name, int64_t value) {
        setting_.bind(1, value);
        setting_.bind(2, name);
        setting_.exec();
        setting_.reset();
    }

    SQLite::Database database_;
    uint32_t count_;
    SQLite::Statement vsan_;
    SQLite::Statement setting_;
    uint64_t next_ = 0;
};

} // namespace

std::unique_ptr<Stream> make_commit_stream(const nlohmann::json &description) {
    return std::make_unique<CommitStream>(description.at("database").get<std::string>(),
                                          description.at("count").get<uint32_t>());
}

} // namespace bench
