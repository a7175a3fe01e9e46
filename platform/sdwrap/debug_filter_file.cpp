// SPDX-License-Identifier: Apache-2.0
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "coarse_clock.h"
#include "debug_filters.h"
#include "run_directory.h"
#include "sdwrap.h"

namespace {

constexpr int64_t LOOK_INTERVAL_MS = 250;

// Timestamps of files advance with the kernel's tick: a file read less than this
// after its last change may change again and look the same.
constexpr int64_t UNSURE_MS = 100;

// What tells one content of the file from another. All zero: there is no file.
struct file_stamp {
    dev_t device;
    ino_t inode;
    off_t size;
    int64_t changed_s;
    int64_t changed_ns;

    bool operator==(const file_stamp &) const = default;
};

debug_filters current;
file_stamp seen;
int64_t look_again_at;

int64_t wall_milliseconds(void) {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// Reads a whole file of at most `size` bytes. Returns the number of bytes, or -1
// with errno.
ssize_t read_file(const char *path, char *bytes, size_t size) {
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (fd == -1) {
        return -1;
    }
    ssize_t result = 0;
    size_t length = 0;
    while (length < size && (result = read(fd, bytes + length, size - length)) != 0) {
        if (result == -1 && errno != EINTR) {
            break;
        }
        length += result > 0 ? static_cast<size_t>(result) : 0;
    }
    const int reason = errno;
    close(fd);
    errno = reason;
    return result == -1 ? -1 : static_cast<ssize_t>(length);
}

void load(const char *path) {
    static char text[DEBUG_FILTER_FILE_MAX + 1];
    const ssize_t length = read_file(path, text, sizeof text);
    if (length == -1) {
        buginf(sdwrap_dbg_modname, "%s cannot be read (%s); the filters stay as they were", path, strerror(errno));
        return;
    }
    if (static_cast<size_t>(length) > DEBUG_FILTER_FILE_MAX) {
        buginf(sdwrap_dbg_modname, "%s is longer than %u bytes; the filters stay as they were", path,
               DEBUG_FILTER_FILE_MAX);
        return;
    }
    const debug_filters_errors errors = debug_filters_parse({text, static_cast<size_t>(length)}, current);
    if (errors.count > 0) {
        buginf(sdwrap_dbg_modname,
               "%s: %u of its lines skipped, the first is line %u; a line is \"history|debug CLASS on|off\"", path,
               errors.count, errors.first_line);
    }
}

void look_at_file(void) {
    char path[RUN_PATH_SIZE];
    struct stat status;
    file_stamp found = {};
    const bool is_there = run_directory_path(DEBUG_FILTER_FILE, path) && stat(path, &status) == 0;
    if (is_there) {
        found = {status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
    }
    if (found == seen) {
        return;
    }
    seen = found;
    if (!is_there) {
        current = {};
        return;
    }
    load(path);
    const int64_t age_ms = wall_milliseconds() - (found.changed_s * 1000 + found.changed_ns / 1000000);
    if (age_ms >= 0 && age_ms < UNSURE_MS) {
        seen.size = -1;
    }
}

} // namespace

const debug_filters &debug_filters_current(void) {
    const int64_t now = coarse_milliseconds();
    if (now >= look_again_at) {
        const int reason = errno;
        look_again_at = now + LOOK_INTERVAL_MS;
        look_at_file();
        errno = reason;
    }
    return current;
}
