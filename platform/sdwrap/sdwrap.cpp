// SPDX-License-Identifier: Apache-2.0
// Every function here leaves errno as it was: callers trace a failure before they
// look at its reason.
#include "sdwrap.h"

#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include "debug_filters.h"
#include "history_store.h"

namespace {

// Names a file for the debug output, which otherwise goes to standard error.
constexpr const char *DEBUG_LOG_VARIABLE = "SDWRAP_DEBUG_LOG";

// A pipe takes a line up to this length as a whole or not at all.
constexpr size_t MAX_LINE = 2048;

// Writes a line unless that would block or raise SIGPIPE.
bool write_line(int fd, const char *line, size_t length) {
    struct pollfd target = {fd, POLLOUT, 0};
    if (poll(&target, 1, 0) != 1 || target.revents != POLLOUT) {
        return false;
    }
    return write(fd, line, length) == static_cast<ssize_t>(length);
}

// The file is opened for each line: it may be moved away or removed at any time,
// and debug output is rare.
bool write_line_to_file(const char *path, const char *line, size_t length) {
    const int fd = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, S_IRUSR | S_IWUSR);
    if (fd == -1) {
        return false;
    }
    const bool is_written = write_line(fd, line, length);
    close(fd);
    return is_written;
}

// The time in UTC, as "2026-11-22T02:00:00.123456Z". The second is formatted once for all that
// fall into it. Static storage, valid until the next call.
const char *time_text(void) {
    static time_t second = -1;
    static char text[40];
    static size_t length;
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    if (now.tv_sec != second) {
        struct tm utc = {};
        second = now.tv_sec;
        gmtime_r(&second, &utc);
        length = strftime(text, sizeof text - sizeof ".123456Z", "%Y-%m-%dT%H:%M:%S", &utc);
        memcpy(text + length, ".000000Z", sizeof ".000000Z");
    }
    long microseconds = now.tv_nsec / 1000;
    for (size_t digit = length + 6; digit > length; --digit) {
        text[digit] = static_cast<char>('0' + microseconds % 10);
        microseconds /= 10;
    }
    return text;
}

// Puts the time and the name in front of a text. Returns the length, which is less
// than `size`.
size_t write_prefix(char *line, size_t size, const char *name) {
    const int length = snprintf(line, size, "%s %.64s: ", time_text(), name == nullptr ? "-" : name);
    return length > 0 ? static_cast<size_t>(length) : 0;
}

// One text is one line, whatever it contains.
size_t make_one_line(char *text, size_t length) {
    while (length > 0 && isspace(static_cast<unsigned char>(text[length - 1]))) {
        --length;
    }
    for (size_t i = 0; i < length; ++i) {
        if (iscntrl(static_cast<unsigned char>(text[i]))) {
            text[i] = ' ';
        }
    }
    return length;
}

} // namespace

const char *sdwrap_dbg_modname = program_invocation_short_name;

int sdwrap_hist_event_subtype_check(uint32_t, uint32_t event_class) {
    return !debug_filters_of(debug_filters_current(), event_class).history;
}

int sdwrap_chk_int(uint32_t event_class, uint32_t, uint32_t, uint32_t) {
    return debug_filters_of(debug_filters_current(), event_class).debug;
}

void sdwrap_hist_event(uint32_t module_id, uint32_t length, const void *record) {
    uint32_t event_class = 0;
    if (record == nullptr || length < sizeof event_class) {
        return;
    }
    const int reason = errno;
    static char text[HISTORY_MAX_TEXT]; // too large for the agent's stack
    memcpy(&event_class, record, sizeof event_class);
    const char *given = static_cast<const char *>(record) + sizeof event_class;
    const size_t bound = length - sizeof event_class < sizeof text ? length - sizeof event_class : sizeof text;
    const size_t given_length = strnlen(given, bound);
    memcpy(text, given, given_length);

    history_store_add(sdwrap_dbg_modname == nullptr ? "unnamed" : sdwrap_dbg_modname,
                      {.time = time_text(),
                       .process_id = static_cast<uint32_t>(getpid()),
                       .module_id = module_id,
                       .event_class = event_class,
                       .text = {text, make_one_line(text, given_length)}});
    errno = reason;
}

void buginf(const char *name, const char *format, ...) {
    if (format == nullptr) {
        return;
    }
    const int reason = errno;
    char line[MAX_LINE];
    const size_t start = write_prefix(line, sizeof line, name);
    va_list arguments;
    va_start(arguments, format);
    const int formatted = vsnprintf(line + start, sizeof line - start, format, arguments);
    va_end(arguments);

    size_t length = formatted > 0 ? static_cast<size_t>(formatted) : 0;
    length = length < sizeof line - start ? length : sizeof line - start - 1;
    length = start + make_one_line(line + start, length);
    line[length++] = '\n';

    const char *path = getenv(DEBUG_LOG_VARIABLE);
    if (path == nullptr || *path == '\0' || !write_line_to_file(path, line, length)) {
        write_line(STDERR_FILENO, line, length);
    }
    errno = reason;
}
