// SPDX-License-Identifier: Apache-2.0
#include "network/conversation.h"

#include <algorithm>
#include <set>
#include <spdlog/spdlog.h>
#include <utility>

#include "contract/client_faults.h"
#include "contract/frames.h"
#include "services/services.h"

namespace vswitch {

Conversation::~Conversation() {
    switch_.counters.subscriptions -= subscriber_.classes().size();
}

void Conversation::leave() {
    // Now, since this connection may last a little longer.
    replace_subscription({});
    switch_.events.deliver();
}

size_t Conversation::serve(Bytes input, Buffer &output) {
    size_t used = 0;
    while ((state_ == State::serving || state_ == State::excused) && output.size() < output_limit) {
        Frame frame;
        const char *reason = nullptr;
        const Parsed parsed = parse_frame(input.subspan(used), frame, &reason);
        if (parsed == Parsed::incomplete) {
            break;
        }
        if (parsed == Parsed::invalid) {
            end_broken(reason);
            break;
        }
        const bool served = serve_frame(frame, output);
        switch_.events.deliver();
        if (!served) {
            break;
        }
        used += frame.size;
    }
    return used;
}

void Conversation::resume() {
    if (state_ == State::held_up) {
        state_ = State::excused;
    }
}

void Conversation::end_broken(const char *reason) {
    state_ = State::broken;
    reason_ = reason;
}

bool Conversation::serve_frame(const Frame &frame, Buffer &output) {
    switch (frame.type) {
    case MTS_FRAME_REQUEST: {
        Request request;
        if (decode_request(frame.body, request)) {
            return serve_request(request, frame.correlation, output);
        }
        end_broken("it sent a malformed request");
        return true;
    }
    case MTS_FRAME_SUBSCRIBE:
        if (subscribe(frame.body)) {
            append_pong(output, frame.correlation);
        } else {
            end_broken("it sent a malformed subscription");
        }
        return true;
    default: // a sign without a body; the parser lets nothing else through
        if (!frame.body.empty()) {
            end_broken("it sent a malformed sign");
        } else if (frame.type == MTS_FRAME_PING || (frame.type == MTS_FRAME_SHARE && !give_memory(frame.correlation))) {
            append_pong(output, frame.correlation);
        }
        return true;
    }
}

bool Conversation::serve_request(const Request &request, uint32_t correlation, Buffer &output) {
    const bool is_excused = state_ == State::excused;
    state_ = State::serving;
    const auto fault = is_excused ? std::nullopt : switch_.faults.take(request);
    if (!fault) {
        answer_request(switch_, request, reply_);
        append_reply(output, correlation, reply_);
        return true;
    }
    if (fault->remaining == 0u) { // it is gone
        switch_.events.note_change();
    }
    switch (fault->action) {
    case FaultAction::delay:
        state_ = State::held_up;
        delay_ = std::chrono::milliseconds(fault->value);
        return false;
    case FaultAction::drop:
        return true;
    case FaultAction::close:
        state_ = State::ended;
        return true;
    case FaultAction::exit:
        spdlog::critical("fault {} ends the daemon", fault->number);
        switch_.crash(fault->value);
        return true;
    default:
        answer_wrongly(request, *fault);
        append_reply(output, correlation, reply_);
        return true;
    }
}

void Conversation::answer_wrongly(const Request &request, const Fault &fault) {
    reply_ = {};
    if (fault.action != FaultAction::status || fault.with_data) {
        answer_request(switch_, request, reply_);
    }
    if (fault.action == FaultAction::status) {
        reply_.status = fault.value;
    } else if (fault.action == FaultAction::no_data) {
        reply_ = {};
    } else {
        reply_.data.resize(std::min<size_t>(reply_.data.size(), fault.value));
    }
}

bool Conversation::give_memory(uint32_t correlation) {
    return memory_giver_ && memory_giver_(correlation);
}

bool Conversation::subscribe(Bytes body) {
    if (body.size() % 4 != 0 || body.size() / 4 > max_subscribed_classes) {
        return false;
    }
    std::set<uint32_t> classes;
    for (size_t at = 0; at < body.size(); at += 4) {
        classes.insert(*load_word(body, at));
    }
    const bool goes_by_client_faults = classes.contains(EVENT_CLIENT_FAULTS);
    replace_subscription(std::move(classes));
    if (goes_by_client_faults) {
        switch_.client_faults.expect_agent();
        switch_.events.publish({EVENT_CLIENT_FAULTS, {}});
    }
    return true;
}

void Conversation::replace_subscription(std::set<uint32_t> classes) {
    switch_.counters.subscriptions += classes.size();
    switch_.counters.subscriptions -= subscriber_.classes().size();
    const bool was_agent = subscriber_.is_agent();
    subscriber_.subscribe(std::move(classes));
    if (subscriber_.is_agent() != was_agent) {
        switch_.events.note_change();
    }
}

} // namespace vswitch
