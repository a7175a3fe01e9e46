// SPDX-License-Identifier: Apache-2.0
#include "mts_frame.h"

#include "contract/big_endian.h"

mts_decode mts_frame_decode(std::span<const uint8_t> bytes, mts_frame &frame, size_t &size) {
    mts_frame_header header = {};
    switch (mts_frame_read_header(bytes.data(), bytes.size(), &header)) {
    case MTS_FRONT_WHOLE:
        break;
    case MTS_FRONT_MORE:
        size = MTS_WIRE_HEADER;
        return mts_decode::more;
    case MTS_FRONT_NO_FRAME:
    case MTS_FRONT_BAD_TYPE:
    case MTS_FRONT_BAD_LENGTH:
        return mts_decode::bad;
    }
    size = MTS_WIRE_HEADER + header.body_length;
    if (bytes.size() < size) {
        return mts_decode::more;
    }
    frame = {header.type, header.correlation, bytes.subspan(MTS_WIRE_HEADER, header.body_length)};
    return mts_decode::frame;
}

bool mts_reply_decode(std::span<const uint8_t> body, mts_reply &reply) {
    if (body.size() < MTS_WIRE_REPLY_FIXED) {
        return false;
    }
    const uint32_t status = read_be32(body.data());
    const uint32_t mark = read_be32(body.data() + 4);
    const auto data = body.subspan(MTS_WIRE_REPLY_FIXED);
    if (status == UINT32_MAX || mark > 1 || (mark == 0 && !data.empty())) {
        return false;
    }
    reply = {status, mark == 1, data};
    return true;
}

bool mts_event_decode(std::span<const uint8_t> body, uint32_t &event_class, std::span<const uint8_t> &payload) {
    if (body.size() < MTS_WIRE_EVENT_FIXED) {
        return false;
    }
    event_class = read_be32(body.data());
    payload = body.subspan(MTS_WIRE_EVENT_FIXED);
    return true;
}
