// SPDX-License-Identifier: Apache-2.0
// What the message service's client makes of the bytes that come from the switch:
// frames, and the replies and events in them.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "fuzz_input.h"
#include "mts/mts_frame.h"

namespace {

// Sums up bytes, so that each of them is read.
unsigned touch(std::span<const uint8_t> bytes) {
    unsigned sum = 0;
    for (const uint8_t byte : bytes) {
        sum += byte;
    }
    return sum;
}

volatile unsigned sink;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    // A copy of exactly this size, so that reading beyond it is noticed.
    const std::vector<uint8_t> input(data, data + size);
    std::span<const uint8_t> rest(input);
    for (;;) {
        mts_frame frame;
        size_t needed = 0;
        const mts_decode result = mts_frame_decode(rest, frame, needed);
        if (result == mts_decode::more) {
            require(needed > rest.size() && needed <= MTS_WIRE_HEADER + MTS_WIRE_MAX_BODY);
        }
        if (result != mts_decode::frame) {
            return 0;
        }
        require(needed == MTS_WIRE_HEADER + frame.body.size() && needed <= rest.size());
        require(frame.body.data() == rest.data() + MTS_WIRE_HEADER);

        // The front of a frame is never taken for anything else.
        mts_frame none;
        size_t still_needed = 0;
        require(mts_frame_decode(rest.first(needed - 1), none, still_needed) == mts_decode::more);

        mts_reply reply;
        if (mts_reply_decode(frame.body, reply)) {
            require(reply.has_data || reply.data.empty());
            sink = touch(reply.data);
        }
        uint32_t event_class = 0;
        std::span<const uint8_t> payload;
        if (mts_event_decode(frame.body, event_class, payload)) {
            require(payload.size() + MTS_WIRE_EVENT_FIXED == frame.body.size());
            sink = touch(payload);
        }
        rest = rest.subspan(needed);
    }
}
