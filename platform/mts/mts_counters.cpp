// SPDX-License-Identifier: Apache-2.0
#include "mts_counters.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "contract/services.h"
#include "mts_stream.h"
#include "run_directory.h"

namespace {

// How often to try whether the file can be had by now.
constexpr mts_time RETRY_INTERVAL = 1000 * MTS_MILLISECOND;

// How many files of processes that have gone are removed at a time.
constexpr int MAX_REMOVED = 64;

// Where this process counts as long as it has no file.
request_counters own;

// What is asked of the switch itself is not told.
request_counter untold = {MTS_SERVICE_SWITCH, 0, 0, 0, 0, 0, 0};

// All zero but the first two is a process without a file.
struct {
    request_counters *counters;
    const char *name; // null when no file is wanted
    bool has_file;
    int fd;      // holds the lock
    ino_t inode; // of the file
    mts_time retry_at;
    char path[RUN_PATH_SIZE];
} store = {&own, nullptr, false, -1, 0, 0, {}};

// Counts go on elsewhere.
void move_to(request_counters *counters) {
    memcpy(counters->rows, store.counters->rows, sizeof counters->rows);
    store.counters = counters;
    mts_counters_latest = &untold;
}

// Whether the descriptor is the file's still: somebody may have closed it, and its number be another's.
bool has_descriptor(struct stat &status) {
    return fstat(store.fd, &status) == 0 && status.st_ino == store.inode;
}

// Goes back to memory of this process's own.
void let_go_of_file(void) {
    if (!store.has_file) {
        return;
    }
    request_counters *mapped = store.counters;
    move_to(&own);
    munmap(mapped, sizeof *mapped);
    struct stat status;
    if (has_descriptor(status)) {
        close(store.fd);
    }
    store.has_file = false;
}

// The file stays its parent's.
void begin_as_fork(void) {
    let_go_of_file();
    store.retry_at = 0;
}

[[gnu::destructor]] void remove_at_unload(void) {
    if (store.has_file) {
        unlink(store.path);
    }
    let_go_of_file();
}

// The name must stay one component of a path, in which a dot stands in front of the process id.
bool make_path(char (&path)[RUN_PATH_SIZE], const char *prefix) {
    char component[96];
    size_t length = 0;
    for (const char *at = prefix; *at != '\0'; ++at) {
        component[length++] = *at;
    }
    for (const char *at = store.name; *at != '\0' && length < sizeof component - 16; ++at) {
        const unsigned char letter = static_cast<unsigned char>(*at);
        component[length++] = isalnum(letter) || letter == '-' || letter == '_' ? *at : '_';
    }
    snprintf(component + length, sizeof component - length, ".%d", static_cast<int>(getpid()));
    return run_directory_path(component, path);
}

// Removes the file of a process that has gone, which holds no lock any more.
void remove_if_left(int directory, const char *name) {
    const int fd = openat(directory, name, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (fd == -1) {
        return;
    }
    struct stat opened;
    struct stat named;
    if (flock(fd, LOCK_EX | LOCK_NB) == 0 && fstat(fd, &opened) == 0 && S_ISREG(opened.st_mode) &&
        fstatat(directory, name, &named, AT_SYMLINK_NOFOLLOW) == 0 && named.st_ino == opened.st_ino &&
        opened.st_uid == geteuid()) {
        unlinkat(directory, name, 0);
    }
    close(fd);
}

void remove_what_others_left(void) {
    DIR *directory = opendir(run_directory());
    if (directory == nullptr) {
        return;
    }
    int left = MAX_REMOVED;
    while (const struct dirent *entry = left > 0 ? readdir(directory) : nullptr) {
        if (strncmp(entry->d_name, REQUEST_COUNTERS_PREFIX, sizeof REQUEST_COUNTERS_PREFIX - 1) == 0) {
            remove_if_left(dirfd(directory), entry->d_name);
            --left;
        }
    }
    closedir(directory);
}

// Who may enter the run directory as a member of its group may read what is there.
bool set_permissions(int fd) {
    struct stat directory;
    const bool is_shared = stat(run_directory(), &directory) == 0 && (directory.st_mode & S_IXGRP) != 0 &&
                           fchown(fd, static_cast<uid_t>(-1), directory.st_gid) == 0;
    return fchmod(fd, is_shared ? S_IRUSR | S_IWUSR | S_IRGRP : S_IRUSR | S_IWUSR) == 0;
}

// A number that no other process and no former load of this library has had.
uint64_t make_instance(void) {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return (static_cast<uint64_t>(now.tv_sec) << 32) ^ (static_cast<uint64_t>(now.tv_nsec) << 2) ^
           static_cast<uint64_t>(getpid());
}

// Makes what is open the file of this process: all of it there, since a full disk must not
// be met when counting; locked; then under its name. `path` is the one it has until then.
bool furnish(int fd, const char *path) {
    if (flock(fd, LOCK_EX | LOCK_NB) != 0 || posix_fallocate(fd, 0, sizeof(request_counters)) != 0 ||
        !set_permissions(fd)) {
        return false;
    }
    void *memory = mmap(nullptr, sizeof(request_counters), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (memory == MAP_FAILED) {
        return false;
    }
    auto *counters = static_cast<request_counters *>(memory);
    counters->magic = REQUEST_COUNTERS_MAGIC;
    counters->version = REQUEST_COUNTERS_VERSION;
    counters->instance = make_instance();
    // Not in the place of another's, who may have the same number in another container.
    if (link(path, store.path) != 0) {
        munmap(memory, sizeof(request_counters));
        return false;
    }
    move_to(counters);
    return true;
}

bool make_file(void) {
    char path[RUN_PATH_SIZE];
    if (!make_path(path, "." REQUEST_COUNTERS_PREFIX) || !make_path(store.path, REQUEST_COUNTERS_PREFIX)) {
        return false;
    }
    remove_what_others_left();
    unlink(path); // of a former process of this number, which died just then
    int fd = open(path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR);
    // Descriptors 0 to 2 would take in whatever somebody prints.
    if (fd != -1 && fd <= STDERR_FILENO) {
        const int moved = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        close(fd);
        fd = moved;
    }
    if (fd == -1 || !furnish(fd, path)) {
        unlink(path);
        if (fd != -1) {
            close(fd);
        }
        return false;
    }
    unlink(path);
    struct stat status;
    store.fd = fd;
    store.inode = fstat(fd, &status) == 0 ? status.st_ino : 0;
    store.has_file = true;
    return true;
}

bool is_of(const request_counter &row, uint32_t service, uint32_t opcode, uint32_t kind) {
    return row.service == service && row.opcode == opcode && row.kind == kind;
}

} // namespace

request_counter *mts_counters_latest = &untold;

void mts_count_requests(const char *name) {
    if (store.name == nullptr) {
        pthread_atfork(nullptr, nullptr, begin_as_fork);
    }
    store.name = name;
}

request_counter *mts_counters_find(uint32_t service, uint32_t opcode, uint32_t kind) {
    if (service == MTS_SERVICE_SWITCH) {
        return &untold;
    }
    request_counter *rows = store.counters->rows;
    for (request_counter *row = rows; row != rows + REQUEST_COUNTERS_ROWS; ++row) {
        if (row->is_used == 0) {
            row->service = service;
            row->opcode = opcode;
            row->kind = kind;
            __atomic_store_n(&row->is_used, 1, __ATOMIC_RELEASE);
        }
        if (is_of(*row, service, opcode, kind)) {
            mts_counters_latest = row;
            return row;
        }
    }
    rows[REQUEST_COUNTERS_ROWS].is_used = 1;
    return rows + REQUEST_COUNTERS_ROWS;
}

void mts_counters_see_to_file(void) {
    if (store.name == nullptr) {
        return;
    }
    const int reason = errno;
    struct stat status;
    if (store.has_file && (!has_descriptor(status) || status.st_nlink == 0)) {
        let_go_of_file(); // somebody has removed it, perhaps with the whole directory
    }
    if (!store.has_file && mts_now() >= store.retry_at && !make_file()) {
        store.retry_at = mts_now() + RETRY_INTERVAL;
    }
    errno = reason;
}
