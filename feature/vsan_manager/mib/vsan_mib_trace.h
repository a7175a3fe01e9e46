// SPDX-License-Identifier: Apache-2.0
// Trace lines. Each goes two ways, to the event history and to the debug output,
// and each way is filtered by class; a text that nobody wants is never formatted.
#ifndef VSAN_MIB_TRACE_H
#define VSAN_MIB_TRACE_H

#include <cstdint>
#include <cstring>

#include "sdwrap.h"

#include "vsan_mib.h"

constexpr uint32_t TRACE_MODULE_ID = 0x730000;

constexpr uint32_t TRACE_FAILURE = 100; // failures and refusals
constexpr uint32_t TRACE_EVENT = 101;   // entries, requests, replies, decisions

// A text for the trace with the source line where it stands; both go with the function's
// name into a trace. A text that has no room for the line leaves it out.
struct trace_format {
    const char *text = nullptr;
    int line = 0;
};

// Whether a line of this class is wanted, in either way.
bool trace_is_wanted(uint32_t trace_class);

// Formats one text and hands it to the ways that want it. In the history it is cut to
// 511 characters, in the debug output to 2047.
void trace_text(uint32_t trace_class, const char *format, ...) __attribute__((format(printf, 2, 3)));

// VSAN_TRACE(class, format, arguments...): the arguments are evaluated only when the
// line is wanted. There are many lines, so as little as possible is done in place.
#define VSAN_TRACE(trace_class, ...)                                                                                   \
    do {                                                                                                               \
        if (trace_is_wanted(trace_class))                                                                              \
            trace_text((trace_class), __VA_ARGS__);                                                                    \
    } while (0)

// A record's name as text: bounded by its field, since a terminating NUL may be missing.
struct vsan_name_text {
    char text[sizeof vsanEntry::vsanName + 1];

    explicit vsan_name_text(const vsanEntry &entry) {
        memcpy(text, entry.vsanName, sizeof entry.vsanName);
        text[sizeof entry.vsanName] = '\0';
    }
};

#endif
