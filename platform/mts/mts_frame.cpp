#include "mts_frame.h"

#include "big_endian.h"

mts_decode mts_frame_decode(std::span<const uint8_t> bytes, mts_frame &frame, size_t &size) {
    uint32_t type = 0;
    if (bytes.size() >= 4 && read_be32(bytes.data()) != MTS_WIRE_MAGIC) {
        return mts_decode::bad;
    }
    if (bytes.size() >= 8) {
        type = read_be32(bytes.data() + 4);
        if (type < MTS_FRAME_REQUEST || type > MTS_FRAME_KNOCK) {
            return mts_decode::bad;
        }
    }
    if (bytes.size() < MTS_WIRE_HEADER) {
        size = MTS_WIRE_HEADER;
        return mts_decode::more;
    }

    const uint32_t body_length = read_be32(bytes.data() + 12);
    if (body_length > MTS_WIRE_MAX_BODY) {
        return mts_decode::bad;
    }
    size = MTS_WIRE_HEADER + body_length;
    if (bytes.size() < size) {
        return mts_decode::more;
    }
    frame = {type, read_be32(bytes.data() + 8), bytes.subspan(MTS_WIRE_HEADER, body_length)};
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

void mts_frame_encode(uint8_t (&header)[MTS_WIRE_HEADER], mts_frame_type type, uint32_t correlation,
                      uint32_t body_length) {
    write_be32(header, MTS_WIRE_MAGIC);
    write_be32(header + 4, type);
    write_be32(header + 8, correlation);
    write_be32(header + 12, body_length);
}
