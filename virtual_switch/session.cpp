#include "session.h"

#include <algorithm>
#include <set>
#include <spdlog/spdlog.h>
#include <unistd.h>
#include <utility>

#include "mts/mts_wire.h"

namespace vswitch {

Session::~Session() {
    target_.counters.subscriptions -= subscriber_.classes().size();
}

std::size_t Session::serve(Bytes input, Buffer &output) {
    std::size_t used = 0;
    while (!broken_ && !is_ended_ && !delay_ && output.size() < output_limit) {
        Frame frame;
        const char *reason = nullptr;
        const Parsed parsed = parse_frame(input.subspan(used), frame, &reason);
        if (parsed == Parsed::incomplete)
            break;
        if (parsed == Parsed::invalid) {
            broken_ = reason;
            break;
        }
        const bool served = serve_frame(frame, output);
        target_.events.deliver();
        if (!served)
            break;
        used += frame.size;
    }
    return used;
}

void Session::resume() {
    was_delayed_ = delay_.has_value();
    delay_.reset();
}

bool Session::serve_frame(const Frame &frame, Buffer &output) {
    switch (frame.type) {
    case MTS_FRAME_REQUEST: {
        Request request;
        if (!decode_request(frame.body, request)) {
            broken_ = "it sent a malformed request";
            return true;
        }
        return serve_request(request, frame.correlation, output);
    }
    case MTS_FRAME_SUBSCRIBE:
        if (!subscribe(frame.body)) {
            broken_ = "it sent a malformed subscription";
            return true;
        }
        append_pong(output, frame.correlation);
        return true;
    default: /* a sign without a body; the parser lets nothing else through */
        if (!frame.body.empty())
            broken_ = "it sent a malformed sign";
        else if (frame.type == MTS_FRAME_PING || (frame.type == MTS_FRAME_SHARE && !give_memory(frame.correlation)))
            append_pong(output, frame.correlation);
        return true;
    }
}

bool Session::serve_request(const Request &request, std::uint32_t correlation, Buffer &output) {
    const auto fault = std::exchange(was_delayed_, false) ? std::nullopt : target_.faults.take(request);
    if (!fault) {
        answer_request(target_, request, reply_);
        append_reply(output, correlation, reply_);
        return true;
    }
    switch (fault->action) {
    case FaultAction::delay:
        delay_ = std::chrono::milliseconds(fault->value);
        return false;
    case FaultAction::drop:
        return true;
    case FaultAction::close:
        is_ended_ = true;
        return true;
    case FaultAction::exit:
        spdlog::critical("fault {} ends the daemon", fault->number);
        _exit(fault_exit_status);
    case FaultAction::status:
        if (fault->with_data)
            answer_request(target_, request, reply_);
        else
            reply_ = {};
        reply_.status = fault->value;
        break;
    case FaultAction::no_data:
        answer_request(target_, request, reply_);
        reply_.status = 0;
        reply_.has_data = false;
        reply_.data.clear();
        break;
    case FaultAction::short_reply:
        answer_request(target_, request, reply_);
        reply_.data.resize(std::min<std::size_t>(reply_.data.size(), fault->value));
        break;
    }
    append_reply(output, correlation, reply_);
    return true;
}

bool Session::give_memory(std::uint32_t correlation) {
    return memory_giver_ && memory_giver_(correlation);
}

bool Session::subscribe(Bytes body) {
    if (body.size() % 4 != 0 || body.size() / 4 > max_subscribed_classes)
        return false;
    std::set<std::uint32_t> classes;
    for (std::size_t at = 0; at < body.size(); at += 4)
        classes.insert(*load_word(body, at));
    target_.counters.subscriptions += classes.size();
    target_.counters.subscriptions -= subscriber_.classes().size();
    subscriber_.subscribe(std::move(classes));
    return true;
}

} // namespace vswitch
