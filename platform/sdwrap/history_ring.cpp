#include "history_ring.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>

namespace {

// How often to try and copy a history that is overwritten faster than it is read.
constexpr int READ_ATTEMPTS = 8;

// A record in front of its text.
struct record_header {
    uint32_t length;
    uint32_t process_id;
    uint32_t seconds[2]; // a 64-bit number, at an alignment of four
    uint32_t nanoseconds;
    uint32_t module_id;
    uint32_t event_class;
    uint32_t text_length;
};
static_assert(sizeof(record_header) == 32, "the layout of the file");

void copy_in(history_ring &ring, uint32_t position, const void *bytes, size_t length) {
    const size_t start = position % HISTORY_RING_CAPACITY;
    const size_t until_wrap = HISTORY_RING_CAPACITY - start;
    const size_t first = length < until_wrap ? length : until_wrap;
    memcpy(ring.records + start, bytes, first);
    memcpy(ring.records, static_cast<const uint8_t *>(bytes) + first, length - first);
}

void copy_out(const history_ring &ring, uint32_t position, void *bytes, size_t length) {
    const size_t start = position % HISTORY_RING_CAPACITY;
    const size_t until_wrap = HISTORY_RING_CAPACITY - start;
    const size_t first = length < until_wrap ? length : until_wrap;
    memcpy(bytes, ring.records + start, first);
    memcpy(static_cast<uint8_t *>(bytes) + first, ring.records, length - first);
}

uint32_t padded(uint32_t length) {
    return (length + 3) & ~3u;
}

// Reads the header of the record at `position`. False when no sound record of at
// most `available` bytes starts there.
bool read_header(const history_ring &ring, uint32_t position, uint32_t available, record_header &header) {
    if (available < sizeof header) {
        return false;
    }
    copy_out(ring, position, &header, sizeof header);
    return header.text_length <= HISTORY_MAX_TEXT && header.length == sizeof header + padded(header.text_length) &&
           header.length <= available;
}

// Reads exactly `length` bytes of a file.
bool read_at(int fd, void *bytes, size_t length, size_t offset) {
    size_t done = 0;
    while (done < length) {
        const ssize_t got =
            pread(fd, static_cast<uint8_t *>(bytes) + done, length - done, static_cast<off_t>(offset + done));
        if (got > 0) {
            done += static_cast<size_t>(got);
        } else if (got == 0) {
            errno = EINVAL;
            return false;
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

// Copies a history while it is written: `end` first and `begin` last, so that what
// lies between them was in the ring all the time.
bool read_ring(int fd, history_ring &copy) {
    uint32_t begin = 0;
    uint32_t end = 0;
    if (!read_at(fd, &end, sizeof end, offsetof(history_ring, end)) || !read_at(fd, &copy, sizeof copy, 0) ||
        !read_at(fd, &begin, sizeof begin, offsetof(history_ring, begin))) {
        return false;
    }
    copy.begin = begin;
    copy.end = end;
    return true;
}

bool is_ring_file(int fd) {
    struct stat status;
    return fstat(fd, &status) == 0 && S_ISREG(status.st_mode) &&
           status.st_size == static_cast<off_t>(sizeof(history_ring));
}

} // namespace

void history_ring_format(history_ring &ring) {
    memset(&ring, 0, offsetof(history_ring, records));
    ring.version = HISTORY_RING_VERSION;
    ring.capacity = HISTORY_RING_CAPACITY;
    ring.magic = HISTORY_RING_MAGIC;
}

bool history_ring_is_valid(const history_ring &ring) {
    return ring.magic == HISTORY_RING_MAGIC && ring.version == HISTORY_RING_VERSION &&
           ring.capacity == HISTORY_RING_CAPACITY && ring.end - ring.begin <= HISTORY_RING_CAPACITY &&
           ring.begin % 4 == 0 && ring.end % 4 == 0;
}

void history_ring_append(history_ring &ring, const history_record &record) {
    static constexpr uint8_t PADDING[4] = {};
    const uint32_t text_length = static_cast<uint32_t>(strnlen(record.text, HISTORY_MAX_TEXT));
    const uint32_t text_space = padded(text_length);
    record_header header = {.length = static_cast<uint32_t>(sizeof header) + text_space,
                            .process_id = record.process_id,
                            .seconds = {},
                            .nanoseconds = record.nanoseconds,
                            .module_id = record.module_id,
                            .event_class = record.event_class,
                            .text_length = text_length};
    memcpy(header.seconds, &record.seconds, sizeof header.seconds);

    const uint32_t end = ring.end;
    uint32_t begin = ring.begin;
    while (HISTORY_RING_CAPACITY - (end - begin) < header.length) {
        record_header oldest;
        // Behind a damaged record nothing can be found.
        begin = read_header(ring, begin, end - begin, oldest) ? begin + oldest.length : end;
    }
    std::atomic_ref(ring.begin).store(begin, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_seq_cst);
    copy_in(ring, end, &header, sizeof header);
    copy_in(ring, end + static_cast<uint32_t>(sizeof header), record.text, text_length);
    copy_in(ring, end + static_cast<uint32_t>(sizeof header) + text_length, PADDING, text_space - text_length);
    std::atomic_ref(ring.end).store(end + header.length, std::memory_order_release);
}

bool history_ring_next(const history_ring &ring, uint32_t &position, history_record &record) {
    record_header header;
    if (!read_header(ring, position, ring.end - position, header)) {
        return false;
    }
    record.process_id = header.process_id;
    record.nanoseconds = header.nanoseconds;
    memcpy(&record.seconds, header.seconds, sizeof record.seconds);
    record.module_id = header.module_id;
    record.event_class = header.event_class;
    copy_out(ring, position + static_cast<uint32_t>(sizeof header), record.text, header.text_length);
    record.text[header.text_length] = '\0';
    position += header.length;
    return true;
}

int history_ring_load(const char *path, history_ring &copy) {
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (fd == -1) {
        return -1;
    }
    // A writer that went round the whole ring meanwhile has left nothing of the copy.
    bool is_loaded = false;
    errno = EINVAL;
    for (int attempt = 0; attempt < READ_ATTEMPTS && !is_loaded && is_ring_file(fd); ++attempt) {
        if (!read_ring(fd, copy)) {
            break;
        }
        is_loaded = history_ring_is_valid(copy);
        errno = EINVAL;
    }
    const int reason = errno;
    close(fd);
    errno = reason;
    return is_loaded ? 0 : -1;
}
