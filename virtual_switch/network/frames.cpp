// SPDX-License-Identifier: Apache-2.0
#include "network/frames.h"

#include "contract/frames.h"

namespace vswitch {

namespace {

bool is_sent_by_clients(uint32_t type) {
    return type == MTS_FRAME_REQUEST || type == MTS_FRAME_SUBSCRIBE || type == MTS_FRAME_PING ||
           type == MTS_FRAME_SHARE || type == MTS_FRAME_KNOCK;
}

void append_header(Buffer &output, uint32_t type, uint32_t correlation, size_t body_size) {
    output.resize(output.size() + MTS_WIRE_HEADER);
    mts_frame_write_header(&output[output.size() - MTS_WIRE_HEADER],
                           {type, correlation, static_cast<uint32_t>(body_size)});
}

} // namespace

Parsed parse_frame(Bytes input, Frame &frame, const char **reason) {
    mts_frame_header header{};
    const mts_frame_front front = mts_frame_read_header(input.data(), input.size(), &header);
    if (front == MTS_FRONT_NO_FRAME) {
        *reason = "what it sent is not a frame";
        return Parsed::invalid;
    }
    if (front == MTS_FRONT_BAD_TYPE || (header.type != 0 && !is_sent_by_clients(header.type))) {
        *reason = "it sent a frame of a type that clients do not send";
        return Parsed::invalid;
    }
    if (front == MTS_FRONT_BAD_LENGTH) {
        *reason = "it announced a frame that is too long";
        return Parsed::invalid;
    }
    if (front == MTS_FRONT_MORE || input.size() - MTS_WIRE_HEADER < header.body_length) {
        return Parsed::incomplete;
    }
    frame.type = header.type;
    frame.correlation = header.correlation;
    frame.body = input.subspan(MTS_WIRE_HEADER, header.body_length);
    frame.size = size_t{MTS_WIRE_HEADER} + header.body_length;
    return Parsed::complete;
}

bool decode_request(Bytes body, Request &request) {
    if (body.size() < MTS_WIRE_REQUEST_FIXED) {
        return false;
    }
    request.service = *load_word(body, 0);
    request.opcode = *load_word(body, 4);
    request.kind = *load_word(body, 8);
    request.length = *load_word(body, 12);
    const uint32_t payload_size = *load_word(body, 20);
    const uint32_t user_size = *load_word(body, 24);
    if (payload_size > MTS_WIRE_MAX_PAYLOAD || user_size > MTS_WIRE_MAX_USER ||
        (payload_size != 0 && payload_size != request.length) ||
        body.size() - MTS_WIRE_REQUEST_FIXED != size_t{payload_size} + user_size) {
        return false;
    }
    request.payload = body.subspan(MTS_WIRE_REQUEST_FIXED, payload_size);
    const Bytes user = body.subspan(MTS_WIRE_REQUEST_FIXED + size_t{payload_size}, user_size);
    request.user = {reinterpret_cast<const char *>(user.data()), user.size()};
    return true;
}

void append_reply(Buffer &output, uint32_t correlation, const Reply &reply) {
    append_header(output, MTS_FRAME_REPLY, correlation, MTS_WIRE_REPLY_FIXED + reply.data.size());
    append_word(output, reply.status);
    append_word(output, reply.has_data);
    output.insert(output.end(), reply.data.begin(), reply.data.end());
}

void append_pong(Buffer &output, uint32_t correlation) {
    append_header(output, MTS_FRAME_PONG, correlation, 0);
}

void append_shared(Buffer &output, uint32_t correlation) {
    append_header(output, MTS_FRAME_SHARED, correlation, 0);
}

void append_knock(Buffer &output) {
    append_header(output, MTS_FRAME_KNOCK, 0, 0);
}

} // namespace vswitch
