#include "vsan_mib_trace.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

void trace_history(uint32_t trace_class, const char *format, ...) {
    // The history's record: the class, then the text with its NUL.
    struct {
        uint32_t trace_class;
        char text[512];
    } record;
    record.trace_class = trace_class;

    va_list arguments;
    va_start(arguments, format);
    const int written = vsnprintf(record.text, sizeof record.text, format, arguments);
    va_end(arguments);
    if (written < 0)
        return;

    const auto length = static_cast<uint32_t>(strlen(record.text));
    sdwrap_hist_event(TRACE_MODULE_ID, length + 5, &record);
}
