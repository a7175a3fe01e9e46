#include "frames.h"

#include "mts/mts_wire.h"

namespace vswitch {

namespace {

constexpr std::uint8_t magic_bytes[] = {MTS_WIRE_MAGIC >> 24 & 0xff, MTS_WIRE_MAGIC >> 16 & 0xff,
                                        MTS_WIRE_MAGIC >> 8 & 0xff, MTS_WIRE_MAGIC & 0xff};

bool is_sent_by_clients(std::uint32_t type) {
    return type == MTS_FRAME_REQUEST || type == MTS_FRAME_SUBSCRIBE || type == MTS_FRAME_PING ||
           type == MTS_FRAME_SHARE || type == MTS_FRAME_KNOCK;
}

void append_header(Buffer &output, std::uint32_t type, std::uint32_t correlation, std::size_t body_size) {
    append_word(output, MTS_WIRE_MAGIC);
    append_word(output, type);
    append_word(output, correlation);
    append_word(output, static_cast<std::uint32_t>(body_size));
}

} // namespace

Parsed parse_frame(Bytes input, Frame &frame, const char **reason) {
    for (std::size_t at = 0; at < sizeof magic_bytes && at < input.size(); ++at)
        if (input[at] != magic_bytes[at]) {
            *reason = "what it sent is not a frame";
            return Parsed::invalid;
        }
    const auto type = load_word(input, 4);
    if (type && !is_sent_by_clients(*type)) {
        *reason = "it sent a frame of a type that clients do not send";
        return Parsed::invalid;
    }
    const auto body_size = load_word(input, 12);
    if (!body_size)
        return Parsed::incomplete;
    if (*body_size > MTS_WIRE_MAX_BODY) {
        *reason = "it announced a frame that is too long";
        return Parsed::invalid;
    }
    if (input.size() - MTS_WIRE_HEADER < *body_size)
        return Parsed::incomplete;
    frame.type = *type;
    frame.correlation = *load_word(input, 8);
    frame.body = input.subspan(MTS_WIRE_HEADER, *body_size);
    frame.size = std::size_t{MTS_WIRE_HEADER} + *body_size;
    return Parsed::complete;
}

bool decode_request(Bytes body, Request &request) {
    if (body.size() < MTS_WIRE_REQUEST_FIXED)
        return false;
    request.service = *load_word(body, 0);
    request.opcode = *load_word(body, 4);
    request.kind = *load_word(body, 8);
    request.length = *load_word(body, 12);
    const std::uint32_t payload_size = *load_word(body, 20);
    const std::uint32_t user_size = *load_word(body, 24);
    if (payload_size > MTS_WIRE_MAX_PAYLOAD || user_size > MTS_WIRE_MAX_USER ||
        (payload_size != 0 && payload_size != request.length) ||
        body.size() - MTS_WIRE_REQUEST_FIXED != std::size_t{payload_size} + user_size)
        return false;
    request.payload = body.subspan(MTS_WIRE_REQUEST_FIXED, payload_size);
    const Bytes user = body.subspan(MTS_WIRE_REQUEST_FIXED + std::size_t{payload_size}, user_size);
    request.user = {reinterpret_cast<const char *>(user.data()), user.size()};
    return true;
}

void append_reply(Buffer &output, std::uint32_t correlation, const Reply &reply) {
    append_header(output, MTS_FRAME_REPLY, correlation, MTS_WIRE_REPLY_FIXED + reply.data.size());
    append_word(output, reply.status);
    append_word(output, reply.has_data);
    output.insert(output.end(), reply.data.begin(), reply.data.end());
}

void append_pong(Buffer &output, std::uint32_t correlation) {
    append_header(output, MTS_FRAME_PONG, correlation, 0);
}

void append_shared(Buffer &output, std::uint32_t correlation) {
    append_header(output, MTS_FRAME_SHARED, correlation, 0);
}

void append_knock(Buffer &output) {
    append_header(output, MTS_FRAME_KNOCK, 0, 0);
}

} // namespace vswitch
