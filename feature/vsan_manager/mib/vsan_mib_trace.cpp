// SPDX-License-Identifier: Apache-2.0
#include "vsan_mib_trace.h"
#include "vsan_mib_never.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

// The history's record: the class, then the text with its NUL.
struct history_event {
    uint32_t trace_class;
    char text[512];
};

// Texts of this module have some 400 characters; what a switch's own error texts add has room.
constexpr size_t MAX_TEXT = 2048;

bool history_wants(uint32_t trace_class) {
    return sdwrap_hist_event_subtype_check(TRACE_MODULE_ID, trace_class) == 0;
}

bool debug_output_wants(uint32_t trace_class) {
    return sdwrap_chk_int(trace_class, 0, 0, 1) != 0;
}

} // namespace

bool trace_is_wanted(uint32_t trace_class) {
    return history_wants(trace_class) || debug_output_wants(trace_class);
}

void trace_text(uint32_t trace_class, const char *format, ...) {
    char text[MAX_TEXT];
    va_list arguments;
    va_start(arguments, format);
    const int written = vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (VSAN_NEVER(written < 0, "no text has wide characters or more than INT_MAX bytes")) {
        return;
    }

    if (history_wants(trace_class)) {
        history_event event;
        event.trace_class = trace_class;
        const size_t length = strnlen(text, sizeof event.text - 1);
        memcpy(event.text, text, length);
        event.text[length] = '\0';
        sdwrap_hist_event(TRACE_MODULE_ID, static_cast<uint32_t>(length) + 5, &event);
    }
    if (debug_output_wants(trace_class)) {
        buginf(sdwrap_dbg_modname, "%s", text);
    }
}
