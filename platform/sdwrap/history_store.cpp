// SPDX-License-Identifier: Apache-2.0
#include "history_store.h"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "coarse_clock.h"
#include "run_directory.h"

namespace {

// How often to look whether the history file can be had by now.
constexpr int64_t RETRY_INTERVAL_MS = 1000;

// Lines that wait for the file.
struct {
    size_t length;
    char lines[32768];
} backlog;

struct {
    bool is_open;
    int fd;
    int64_t retry_at;
    char path[RUN_PATH_SIZE];
} file;

[[gnu::destructor]] void close_at_unload(void) {
    history_store_close();
}

// The name comes from the program's name and must stay one component of a path, in which
// a dot begins what is no part of it.
bool file_path(const char *name, char (&path)[RUN_PATH_SIZE]) {
    char component[80] = HISTORY_FILE_PREFIX;
    size_t length = sizeof HISTORY_FILE_PREFIX - 1;
    for (; *name != '\0' && length < sizeof component - 1; ++name) {
        const unsigned char letter = static_cast<unsigned char>(*name);
        component[length++] = isalnum(letter) || letter == '-' || letter == '_' ? *name : '_';
    }
    component[length] = '\0';
    return run_directory_path(component, path);
}

// Whether a file is ours alone, so that nobody has us write into another's.
bool is_private(const struct stat &status) {
    return S_ISREG(status.st_mode) && status.st_uid == geteuid() && status.st_nlink == 1;
}

// Who may enter the run directory as a member of its group may read what is there.
bool set_permissions(int fd) {
    struct stat directory;
    const bool is_shared = stat(run_directory(), &directory) == 0 && (directory.st_mode & S_IXGRP) != 0 &&
                           fchown(fd, static_cast<uid_t>(-1), directory.st_gid) == 0;
    return fchmod(fd, is_shared ? S_IRUSR | S_IWUSR | S_IRGRP : S_IRUSR | S_IWUSR) == 0;
}

bool open_file(const char *name) {
    if (!file_path(name, file.path)) {
        return false;
    }
    int fd = open(file.path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, S_IRUSR | S_IWUSR);
    // Descriptors 0 to 2 would take in whatever somebody prints.
    if (fd != -1 && fd <= STDERR_FILENO) {
        const int moved = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        close(fd);
        fd = moved;
    }
    if (fd == -1) {
        return false;
    }
    struct stat status;
    if (fstat(fd, &status) != 0 || !is_private(status) || !set_permissions(fd)) {
        close(fd);
        return false;
    }
    file.is_open = true;
    file.fd = fd;
    return true;
}

// Puts the full file in the place of the old one, unless another process has done so. Where
// that is not possible, what it holds goes, so that it stays within its bound.
void put_away(const struct stat &status) {
    struct stat named;
    if (stat(file.path, &named) == 0 && named.st_ino == status.st_ino && named.st_dev == status.st_dev) {
        char old[RUN_PATH_SIZE + sizeof HISTORY_OLD_SUFFIX];
        snprintf(old, sizeof old, "%s" HISTORY_OLD_SUFFIX, file.path);
        if (rename(file.path, old) != 0 && ftruncate(file.fd, 0) != 0) {
            unlink(file.path);
        }
    }
    history_store_close();
}

// Sees to it that a file is open that has its name, and room for `length` bytes.
bool make_ready(const char *name, size_t length) {
    struct stat status = {};
    if (file.is_open && (fstat(file.fd, &status) != 0 || status.st_nlink == 0)) {
        history_store_close();
    }
    if (file.is_open && static_cast<size_t>(status.st_size) + length > HISTORY_FILE_MAX) {
        put_away(status);
    }
    if (!file.is_open && coarse_milliseconds() >= file.retry_at && !open_file(name)) {
        file.retry_at = coarse_milliseconds() + RETRY_INTERVAL_MS;
    }
    return file.is_open;
}

// Adds whole lines to the file. Of those that find no room nothing is left in it.
bool append(const char *lines, size_t length) {
    const ssize_t written = write(file.fd, lines, length);
    if (written == static_cast<ssize_t>(length)) {
        return true;
    }
    struct stat status;
    // A line without its end is better than one that comes twice.
    return written > 0 && (fstat(file.fd, &status) != 0 || ftruncate(file.fd, status.st_size - written) != 0);
}

// Keeps a line, the oldest of which make room.
void keep(const char *line, size_t length) {
    size_t dropped = 0;
    while (backlog.length - dropped + length > sizeof backlog.lines) {
        const void *end = memchr(backlog.lines + dropped, '\n', backlog.length - dropped);
        dropped = static_cast<size_t>(static_cast<const char *>(end) - backlog.lines) + 1;
    }
    backlog.length -= dropped;
    memmove(backlog.lines, backlog.lines + dropped, backlog.length);
    memcpy(backlog.lines + backlog.length, line, length);
    backlog.length += length;
}

} // namespace

void history_store_add(const char *name, const history_line &record) {
    static char line[HISTORY_MAX_LINE]; // too large for the agent's stack
    const size_t length = history_line_write(record, line);
    if (make_ready(name, backlog.length + length)) {
        if (backlog.length > 0 && append(backlog.lines, backlog.length)) {
            backlog.length = 0;
        }
        if (backlog.length == 0 && append(line, length)) {
            return;
        }
        // The disk is full, perhaps. Until then the file is let go of.
        history_store_close();
        file.retry_at = coarse_milliseconds() + RETRY_INTERVAL_MS;
    }
    keep(line, length);
}

void history_store_close(void) {
    if (file.is_open) {
        close(file.fd);
    }
    file.is_open = false;
}
