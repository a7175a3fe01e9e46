/*
 * The event history of a process name, as it lies in the file `history.NAME` in the
 * switch's run directory. Words are in the machine's own byte order.
 *
 *   byte  0  magic      HISTORY_RING_MAGIC
 *         4  version    HISTORY_RING_VERSION
 *         8  capacity   HISTORY_RING_CAPACITY
 *        12  begin      position of the oldest record
 *        16  end        position behind the latest record
 *        20  zero       44 bytes
 *        64  records    `capacity` bytes
 *
 * A position counts all bytes ever recorded, modulo 2^32; position p is byte
 * p % capacity of the records, and a record may wrap around. Records are multiples
 * of four bytes:
 *
 *   byte  0  length     of the whole record
 *         4  process id
 *         8  seconds since 1970, 64 bits
 *        16  nanoseconds
 *        20  module id
 *        24  event class
 *        28  text length
 *        32  the text, without a NUL, and up to three zero bytes
 *
 * Readers take no lock. A writer moves `begin` past what it is going to overwrite
 * before it does so, and `end` past a record after writing it. Who copies the
 * records and reads `begin` afterwards knows which of the copy is whole. That also
 * makes the file good after a writer died at any point.
 */
#ifndef HISTORY_RING_H
#define HISTORY_RING_H

#include <stddef.h>
#include <stdint.h>

#define HISTORY_RING_MAGIC 0x48525631u
#define HISTORY_RING_VERSION 1u
#define HISTORY_RING_CAPACITY 262144u
#define HISTORY_MAX_TEXT 1024u

struct history_ring {
    uint32_t magic;
    uint32_t version;
    uint32_t capacity;
    uint32_t begin;
    uint32_t end;
    uint32_t zero[11];
    uint8_t records[HISTORY_RING_CAPACITY];
};
static_assert(offsetof(history_ring, records) == 64, "the header is 64 bytes");
static_assert((HISTORY_RING_CAPACITY & (HISTORY_RING_CAPACITY - 1)) == 0, "positions wrap at 2^32");

struct history_record {
    uint32_t process_id;
    uint32_t nanoseconds;
    int64_t seconds;
    uint32_t module_id;
    uint32_t event_class;
    char text[HISTORY_MAX_TEXT + 1]; /* NUL-terminated */
};

#pragma GCC visibility push(hidden)

/* Makes `ring` an empty history. */
void history_ring_format(history_ring &ring);

/* Whether `ring` has the header of a history of this version and size. */
bool history_ring_is_valid(const history_ring &ring);

/* Adds a record to a valid ring, dropping as many of the oldest as are in the way.
 * One writer at a time. */
void history_ring_append(history_ring &ring, const history_record &record);

/*
 * Takes the record at `position` and moves `position` to the next one. Start with
 * the ring's `begin`. The ring must not change meanwhile: use a copy.
 *
 * False when there are no more records, or when what follows is damaged.
 */
bool history_ring_next(const history_ring &ring, uint32_t &position, history_record &record);

/*
 * Copies the history in the file `path` into `copy`, while its writer goes on.
 *
 * Returns 0, or -1 with errno: EINVAL when the file is no history, otherwise as
 * open(2) and read(2) have it. `copy` is then undefined.
 */
int history_ring_load(const char *path, history_ring &copy);

#pragma GCC visibility pop

#endif
