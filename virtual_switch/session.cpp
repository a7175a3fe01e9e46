#include "session.h"

#include "mts/mts_wire.h"

namespace vswitch {

Session::~Session() {
    target_.counters.subscriptions -= subscribed_.size();
}

std::size_t Session::serve(Bytes input, Buffer &output) {
    std::size_t used = 0;
    while (!broken_ && output.size() < output_limit) {
        Frame frame;
        const char *reason = nullptr;
        const Parsed parsed = parse_frame(input.subspan(used), frame, &reason);
        if (parsed == Parsed::incomplete)
            break;
        if (parsed == Parsed::invalid) {
            broken_ = reason;
            break;
        }
        serve_frame(frame, output);
        used += frame.size;
    }
    return used;
}

void Session::serve_frame(const Frame &frame, Buffer &output) {
    switch (frame.type) {
    case MTS_FRAME_REQUEST: {
        Request request;
        if (!decode_request(frame.body, request)) {
            broken_ = "it sent a malformed request";
            return;
        }
        answer_request(target_, request, reply_);
        append_reply(output, frame.correlation, reply_);
        return;
    }
    case MTS_FRAME_SUBSCRIBE:
        if (!subscribe(frame.body)) {
            broken_ = "it sent a malformed subscription";
            return;
        }
        append_pong(output, frame.correlation);
        return;
    default: /* a ping; the parser lets nothing else through */
        if (!frame.body.empty()) {
            broken_ = "it sent a malformed ping";
            return;
        }
        append_pong(output, frame.correlation);
    }
}

bool Session::subscribe(Bytes body) {
    if (body.size() % 4 != 0 || body.size() / 4 > max_subscribed_classes)
        return false;
    std::set<std::uint32_t> classes;
    for (std::size_t at = 0; at < body.size(); at += 4)
        classes.insert(*load_word(body, at));
    target_.counters.subscriptions += classes.size();
    target_.counters.subscriptions -= subscribed_.size();
    subscribed_ = std::move(classes);
    return true;
}

} // namespace vswitch
