// SPDX-License-Identifier: Apache-2.0
#include "mts_events.h"

#include <cerrno>

#include "contract/big_endian.h"
#include "mts_stream.h"

struct mts_message {
    uint32_t event_class;
    std::span<const uint8_t> payload;
};

namespace {

// A subscription goes into the empty buffer of a new socket; it waits for nothing
// but, at worst, memory in the kernel.
constexpr mts_time SUBSCRIBE_TIME = 50 * MTS_MILLISECOND;

mts_stream stream;
mts_message current;

// Set once something other than an event has come: what follows cannot be trusted.
bool broken;

[[gnu::destructor]] void close_at_unload(void) {
    mts_events_close();
}

} // namespace

int mts_events_open(const uint32_t *classes, size_t count) {
    mts_events_close();
    if (count > MTS_EVENTS_MAX_CLASSES || (count > 0 && classes == nullptr)) {
        errno = EINVAL;
        return -1;
    }
    uint8_t header[MTS_WIRE_HEADER];
    uint8_t body[4 * MTS_EVENTS_MAX_CLASSES];
    mts_frame_write_header(header, {MTS_FRAME_SUBSCRIBE, 1, static_cast<uint32_t>(4 * count)});
    for (size_t i = 0; i < count; ++i) {
        write_be32(body + 4 * i, classes[i]);
    }
    if (mts_stream_open(stream) != 0) {
        return -1;
    }
    struct iovec parts[] = {{header, sizeof header}, {body, 4 * count}};
    const mts_io sent = mts_stream_send(stream, parts, 2, mts_now() + SUBSCRIBE_TIME);
    if (sent != mts_io::done) {
        errno = sent == mts_io::timeout ? ETIMEDOUT : ECONNRESET;
        mts_stream_close(stream);
        return -1;
    }
    return stream.fd;
}

int mts_events_next(const mts_message **event) {
    *event = nullptr;
    if (!stream.is_open || mts_stream_is_inherited(stream)) {
        errno = ENOTCONN;
        return -1;
    }
    if (broken) {
        errno = EPROTO;
        return -1;
    }
    mts_frame frame;
    switch (mts_stream_receive(stream, frame, MTS_NO_WAIT, false)) {
    case mts_io::done:
        break;
    case mts_io::timeout:
        return 0;
    case mts_io::lost:
        return -1;
    case mts_io::bad:
        broken = true;
        return -1;
    }
    if (frame.type == MTS_FRAME_PONG && frame.body.empty()) {
        // The switch confirms the subscription. What follows keeps the socket
        // readable, so that the caller comes back for it.
        return 0;
    }
    if (frame.type != MTS_FRAME_EVENT || !mts_event_decode(frame.body, current.event_class, current.payload)) {
        broken = true;
        errno = EPROTO;
        return -1;
    }
    *event = &current;
    return 1;
}

void mts_events_close(void) {
    mts_stream_close(stream);
    current = {};
    broken = false;
}

uint32_t mts_message_class(const mts_message *message) {
    return message == nullptr ? 0 : message->event_class;
}

const void *mts_payload_get(const mts_message *message) {
    return message == nullptr || message->payload.empty() ? nullptr : message->payload.data();
}

uint32_t mts_payload_size(const mts_message *message) {
    return message == nullptr ? 0 : static_cast<uint32_t>(message->payload.size());
}
