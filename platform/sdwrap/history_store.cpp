#include "history_store.h"

#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <stdio.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "run_directory.h"

namespace {

// How often to look whether the history file can be had by now.
constexpr int64_t RETRY_INTERVAL_MS = 1000;

// How often to ask for the lock of another process, which holds it for the time of
// one record.
constexpr int LOCK_ATTEMPTS = 16;

history_ring in_memory;

struct history_file {
    history_ring *ring; // null while there is no file
    int fd;
    int64_t retry_at;
} file;

[[gnu::destructor]] void close_at_unload(void) {
    history_store_close();
}

// Locks the file against other processes of the same name, or lets go of it. Such a
// lock is not passed on to a forked child and ends with the process.
bool set_lock(int fd, short type) {
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    for (int attempt = 0; attempt < LOCK_ATTEMPTS; ++attempt) {
        if (fcntl(fd, F_SETLK, &lock) == 0) {
            return true;
        }
        if (errno != EAGAIN && errno != EACCES && errno != EINTR) {
            return false;
        }
        sched_yield();
    }
    return false;
}

// The name comes from the program's name and must stay one component of a path.
bool file_path(const char *name, char (&path)[RUN_PATH_SIZE]) {
    char component[80] = "history.";
    size_t length = sizeof "history." - 1;
    for (; *name != '\0' && length < sizeof component - 1; ++name) {
        const unsigned char letter = static_cast<unsigned char>(*name);
        component[length++] = isalnum(letter) || letter == '-' || letter == '_' ? *name : '_';
    }
    component[length] = '\0';
    return run_directory_path(component, path);
}

// Whether a file is ours alone, so that nobody shortens it under our feet.
bool is_private(const struct stat &status) {
    return S_ISREG(status.st_mode) && status.st_uid == geteuid() && status.st_nlink == 1;
}

// Brings an opened file to its size, reserves the space and maps it. The first
// record formats it if it holds no history.
bool prepare(int fd) {
    struct stat status;
    if (fstat(fd, &status) != 0 || !is_private(status) || fchmod(fd, S_IRUSR | S_IWUSR) != 0) {
        return false;
    }
    const off_t size = static_cast<off_t>(sizeof(history_ring));
    // Never made shorter than a history: another process may have it mapped.
    if ((status.st_size > size && ftruncate(fd, size) != 0) || posix_fallocate(fd, 0, size) != 0) {
        return false;
    }
    void *mapped = mmap(nullptr, sizeof(history_ring), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (mapped == MAP_FAILED) {
        return false;
    }
    file.ring = static_cast<history_ring *>(mapped);
    file.fd = fd;
    return true;
}

bool open_file(const char *name) {
    char path[RUN_PATH_SIZE];
    if (!file_path(name, path)) {
        return false;
    }
    int fd = open(path, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, S_IRUSR | S_IWUSR);
    if (fd == -1) {
        return false;
    }
    // Descriptors 0 to 2 would take in whatever somebody prints.
    if (fd <= STDERR_FILENO) {
        const int moved = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        close(fd);
        fd = moved;
        if (fd == -1) {
            return false;
        }
    }
    const bool is_ready = set_lock(fd, F_WRLCK) && prepare(fd);
    if (!is_ready) {
        close(fd);
        return false;
    }
    set_lock(fd, F_UNLCK);
    return true;
}

// A file that was shortened would kill the process at the next access, and one that
// was removed is read by nobody.
bool is_file_whole(void) {
    struct stat status;
    return fstat(file.fd, &status) == 0 && status.st_size == static_cast<off_t>(sizeof(history_ring)) &&
           status.st_nlink > 0;
}

void append(history_ring &ring, const history_record &record) {
    if (!history_ring_is_valid(ring)) {
        history_ring_format(ring);
    }
    history_ring_append(ring, record);
}

void append_to_file(const history_record &record) {
    if (set_lock(file.fd, F_WRLCK)) {
        append(*file.ring, record);
        set_lock(file.fd, F_UNLCK);
    }
}

void move_memory_to_file(void) {
    static history_record record; // too large for the agent's stack
    for (uint32_t position = in_memory.begin; history_ring_next(in_memory, position, record);) {
        append_to_file(record);
    }
    in_memory.magic = 0;
    in_memory.begin = in_memory.end = 0;
}

} // namespace

void history_store_add(const char *name, const history_record &record) {
    if (file.ring != nullptr && !is_file_whole()) {
        history_store_close();
    }
    if (file.ring == nullptr && coarse_milliseconds() >= file.retry_at) {
        file.retry_at = coarse_milliseconds() + RETRY_INTERVAL_MS;
        if (open_file(name)) {
            move_memory_to_file();
        }
    }
    if (file.ring != nullptr) {
        append_to_file(record);
    } else {
        append(in_memory, record);
    }
}

void history_store_close(void) {
    if (file.ring != nullptr) {
        munmap(file.ring, sizeof(history_ring));
        close(file.fd);
    }
    file = {};
}
