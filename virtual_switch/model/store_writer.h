// SPDX-License-Identifier: Apache-2.0
// What is written to the database, and how.
#ifndef VSWITCH_STORE_WRITER_H
#define VSWITCH_STORE_WRITER_H

#include <SQLiteCpp/SQLiteCpp.h>
#include <cstdint>
#include <string>

#include "model/switch_data.h"

namespace vswitch {

// Its statements are prepared once: preparing one takes longer than running it. All
// functions throw SQLite::Exception and are called within a transaction.
class StoreWriter {
  public:
    // `database` has the present schema and outlives the writer.
    explicit StoreWriter(SQLite::Database &database);

    // Writes a whole switch to an empty database.
    void write(const SwitchData &data);

    // Writes what differs from `present`, which the database holds.
    void write(const Change &change, const SwitchData &present);

  private:
    // A table with a row for each value of a VSAN's timers.
    class TimerTable {
      public:
        TimerTable(SQLite::Database &database, const char *table);
        void clear(uint32_t vsan);
        void write(uint32_t vsan, Timer timer, uint32_t value);
        void write(uint32_t vsan, const PartialTimers &timers);
        void replace(uint32_t vsan, const PartialTimers &timers, const PartialTimers *present);

      private:
        SQLite::Statement clear_;
        SQLite::Statement insert_;
    };

    void write(const Settings &settings, const Settings *present);
    void write(uint32_t id, const Vsan &vsan, const Vsan *present);
    void write(uint32_t if_index, const Port &port, const Port *present);
    void open_session(const std::string &user);
    // Takes their names away from VSANs whose names others get.
    void free_names(const Change &change, const SwitchData &present);

    SQLite::Statement setting_;
    SQLite::Statement vsan_;
    SQLite::Statement vsan_removal_;
    SQLite::Statement name_removal_;
    SQLite::Statement port_;
    SQLite::Statement traffic_;
    SQLite::Statement traffic_removal_;
    SQLite::Statement system_text_;
    SQLite::Statement session_;
    SQLite::Statement session_removal_;
    SQLite::Statement pending_removal_;
    TimerTable timers_;
    TimerTable distributed_timers_;
    TimerTable pending_timers_;
};

} // namespace vswitch

#endif
