// SPDX-License-Identifier: Apache-2.0
// The frames of the message protocol, see contract/frames.h: a bounded parser for what a
// client may send, and the answers.
#ifndef VSWITCH_FRAMES_H
#define VSWITCH_FRAMES_H

#include <cstddef>
#include <cstdint>

#include "services/request.h"

namespace vswitch {

struct Frame {
    uint32_t type = 0;
    uint32_t correlation = 0;
    Bytes body;      // part of the input
    size_t size = 0; // bytes of input that the frame takes
};

enum class Parsed {
    complete,
    incomplete, // the input is the beginning of a frame
    invalid     // it is not, and no more input can make it one
};

// Parses the frame at the start of `input`. Invalid input is recognised from the first
// byte that is wrong. When the result is `invalid`, *reason says why, a static text.
Parsed parse_frame(Bytes input, Frame &frame, const char **reason);

// Decodes the body of a REQUEST frame; false when it is malformed. `request` points
// into the body.
bool decode_request(Bytes body, Request &request);

void append_reply(Buffer &output, uint32_t correlation, const Reply &reply);
void append_pong(Buffer &output, uint32_t correlation);
void append_shared(Buffer &output, uint32_t correlation);
void append_knock(Buffer &output);

} // namespace vswitch

#endif
