// What reading and writing make of a history file that anybody may have written.
#include <cstdlib>
#include <cstring>

#include "sdwrap/history_ring.h"

// The input is the header's begin and end, and what the records start with; the
// same bytes are repeated at the end of the ring, so that records wrap around.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static history_ring ring;
    static history_record record;
    if (size < 8 || size > HISTORY_RING_CAPACITY / 2) {
        return 0;
    }
    history_ring_format(ring);
    memcpy(&ring.begin, data, 4);
    memcpy(&ring.end, data + 4, 4);
    memcpy(ring.records, data + 8, size - 8);
    memcpy(ring.records + HISTORY_RING_CAPACITY - (size - 8), data + 8, size - 8);
    if (!history_ring_is_valid(ring)) {
        return 0;
    }
    for (uint32_t position = ring.begin; history_ring_next(ring, position, record);) {
        if (strnlen(record.text, sizeof record.text) > HISTORY_MAX_TEXT) {
            abort();
        }
    }
    history_ring_append(ring, record);
    if (!history_ring_is_valid(ring)) {
        abort();
    }
    return 0;
}
