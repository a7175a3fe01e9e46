/*
 * Every function here leaves errno as it was: callers trace a failure before they
 * look at its reason.
 */
#include "sdwrap.h"

#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
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

// Puts the time and the name in front of a text. Returns the length, which is less
// than `size`.
size_t write_prefix(char *line, size_t size, const char *name) {
    struct timespec now;
    struct tm utc = {};
    clock_gettime(CLOCK_REALTIME, &now);
    gmtime_r(&now.tv_sec, &utc);
    size_t length = strftime(line, size, "%Y-%m-%dT%H:%M:%S", &utc);
    const int more =
        snprintf(line + length, size - length, ".%06ldZ %.64s: ", now.tv_nsec / 1000, name == nullptr ? "-" : name);
    return length + (more > 0 ? static_cast<size_t>(more) : 0);
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
    static history_record stored; // too large for the agent's stack
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    memcpy(&event_class, record, sizeof event_class);
    stored.process_id = static_cast<uint32_t>(getpid());
    stored.nanoseconds = static_cast<uint32_t>(now.tv_nsec);
    stored.seconds = now.tv_sec;
    stored.module_id = module_id;
    stored.event_class = event_class;

    const char *text = static_cast<const char *>(record) + sizeof event_class;
    const size_t bound =
        length - sizeof event_class < HISTORY_MAX_TEXT ? length - sizeof event_class : HISTORY_MAX_TEXT;
    const size_t text_length = strnlen(text, bound);
    memcpy(stored.text, text, text_length);
    stored.text[text_length] = '\0';
    history_store_add(sdwrap_dbg_modname == nullptr ? "unnamed" : sdwrap_dbg_modname, stored);
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
