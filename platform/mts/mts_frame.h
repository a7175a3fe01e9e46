// SPDX-License-Identifier: Apache-2.0
// Frames of the message service, taken apart and put together in memory. Nothing
// here does input or output or keeps state; the layouts are those of contract/frames.h.
#ifndef MTS_FRAME_H
#define MTS_FRAME_H

#include <cstddef>
#include <cstdint>

#include <span>

#include "contract/frames.h"

// A received frame. The body lies in the bytes that were decoded.
struct mts_frame {
    uint32_t type;
    uint32_t correlation;
    std::span<const uint8_t> body;
};

enum class mts_decode {
    frame, // a complete frame is at the front
    more,  // what is there can be the front of a frame
    bad    // no frame starts with these bytes
};

// The content of a REPLY. `data` lies in the decoded body.
struct mts_reply {
    uint32_t status;
    bool has_data; // data follows, possibly none of it
    std::span<const uint8_t> data;
};

#pragma GCC visibility push(hidden)

// Looks at the front of `bytes` for one frame. Garbage is recognised by its first
// wrong byte or word, not only when a whole header has come.
//
// size  out: the length of the frame when there is one, otherwise the least number
//       of bytes that could complete its header or body. Never more than
//       MTS_WIRE_HEADER + MTS_WIRE_MAX_BODY; not set for `bad`.
mts_decode mts_frame_decode(std::span<const uint8_t> bytes, mts_frame &frame, size_t &size);

// Decodes the body of a REPLY. False when it is no reply: too short, a data mark
// other than 0 and 1, data behind a mark of 0, or the one status that only a
// requester uses, to say that it has none.
bool mts_reply_decode(std::span<const uint8_t> body, mts_reply &reply);

// Decodes the body of an EVENT. False when it is too short.
bool mts_event_decode(std::span<const uint8_t> body, uint32_t &event_class, std::span<const uint8_t> &payload);

#pragma GCC visibility pop

#endif
