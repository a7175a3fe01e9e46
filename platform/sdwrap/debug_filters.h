// SPDX-License-Identifier: Apache-2.0
// Which event classes go into the history and to the debug output.
//
// The text form has one setting a line; the last one of a class counts:
//
//   # comment
//   history 101 on
//   debug 100 off
//
// A class without a setting goes into the history, but for the ordinary trace (101),
// and not to the debug output.
#ifndef DEBUG_FILTERS_H
#define DEBUG_FILTERS_H

#include <cstddef>
#include <cstdint>

#include <span>

#define DEBUG_FILTERS_MAX 32u

// What is wanted of one event class.
struct debug_filter {
    uint32_t event_class;
    bool history;
    bool debug;
};

// The classes that have settings. All zero is a set without any.
struct debug_filters {
    size_t count;
    debug_filter classes[DEBUG_FILTERS_MAX];
};

// Why lines of a text could not be used. All zero: each could.
struct debug_filters_errors {
    unsigned count;      // how many
    unsigned first_line; // the number of the first one, counted from 1
};

#pragma GCC visibility push(hidden)

// The setting of a class.
debug_filter debug_filters_of(const debug_filters &filters, uint32_t event_class);

// Reads the text form into `filters`. A line that cannot be understood, or names
// one class too many, is skipped and counted.
debug_filters_errors debug_filters_parse(std::span<const char> text, debug_filters &filters);

// The settings in `debug.conf` in the run directory. The file is looked at 250 ms
// after the previous look at the earliest, otherwise this costs a glance at a
// coarse clock. Without the file there are no settings; a file that cannot be read
// leaves the settings as they were. Both that and lines that cannot be understood
// are reported to the debug output, once for each change of the file.
const debug_filters &debug_filters_current(void);

#pragma GCC visibility pop

#endif
