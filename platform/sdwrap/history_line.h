// SPDX-License-Identifier: Apache-2.0
// One record of the event history. The history's files hold a line for each:
//
//   2026-11-22T02:00:00.123456Z 4711 7536640 100 the text
//
// that is the time in UTC, the process id, the module id, the event class and the text,
// in which nothing ends a line, each behind one blank.
#ifndef HISTORY_LINE_H
#define HISTORY_LINE_H

#include <cstddef>
#include <cstdint>

#include <string_view>

// The longest text that is kept, and the longest line with its end.
inline constexpr size_t HISTORY_MAX_TEXT = 1024;
inline constexpr size_t HISTORY_MAX_LINE = HISTORY_MAX_TEXT + 64;

// The views lie in the line, or with whoever makes it.
struct history_line {
    std::string_view time; // as above
    uint32_t process_id;
    uint32_t module_id;
    uint32_t event_class;
    std::string_view text;

    bool operator==(const history_line &) const = default;
};

#pragma GCC visibility push(hidden)

// Writes a record as a line, whose text is cut where it would become too long. Returns
// the number of bytes, the line's end included.
size_t history_line_write(const history_line &record, char (&line)[HISTORY_MAX_LINE]);

// Reads a line, without its end. False when it is no record.
bool history_line_read(std::string_view line, history_line &record);

#pragma GCC visibility pop

#endif
