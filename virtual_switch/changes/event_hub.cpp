// SPDX-License-Identifier: Apache-2.0
#include "changes/event_hub.h"

#include <algorithm>

#include "contract/frames.h"

namespace vswitch {

namespace {

Buffer event_frame(const Event &event) {
    const size_t body_length = MTS_WIRE_EVENT_FIXED + event.payload.size();
    Buffer frame(MTS_WIRE_HEADER);
    frame.reserve(MTS_WIRE_HEADER + body_length);
    mts_frame_write_header(frame.data(), {MTS_FRAME_EVENT, 0, static_cast<uint32_t>(body_length)});
    append_word(frame, event.event_class);
    frame.insert(frame.end(), event.payload.begin(), event.payload.end());
    return frame;
}

} // namespace

Subscriber::Subscriber(EventHub &hub) : hub_(hub), number_(hub.next_number_++) {
    hub_.subscribers_.push_back(this);
}

Subscriber::~Subscriber() {
    hub_.totals_.dropped += queue_.size();
    std::erase(hub_.subscribers_, this);
}

void Subscriber::subscribe(std::set<uint32_t> classes) {
    classes_ = std::move(classes);
}

void Subscriber::take(Buffer &output, size_t limit) {
    while (!queue_.empty() && output.size() < limit) {
        const Buffer &frame = *queue_.front();
        output.insert(output.end(), frame.begin(), frame.end());
        queued_bytes_ -= frame.size();
        queue_.pop_front();
        ++delivered_;
    }
}

void Subscriber::offer(const Frame &frame) {
    if (queue_.size() >= max_queued_events || queued_bytes_ + frame->size() > max_queued_bytes) {
        ++dropped_;
        ++hub_.totals_.dropped;
        return;
    }
    const bool was_empty = queue_.empty();
    queue_.push_back(frame);
    queued_bytes_ += frame->size();
    if (was_empty && wake_) {
        wake_();
    }
}

EventHub::EventHub() : change_frame_(std::make_shared<const Buffer>(event_frame({EVENT_ANY_CHANGE, {}}))) {}

void EventHub::deliver_change() {
    is_changed_ = false;
    for (Subscriber *subscriber : subscribers_) {
        const bool has_one = !subscriber->queue_.empty() && subscriber->queue_.back() == change_frame_;
        if (!has_one && subscriber->classes_.contains(EVENT_ANY_CHANGE)) {
            subscriber->offer(change_frame_);
        }
    }
}

void EventHub::deliver() {
    if (staged_.empty() && !is_changed_) {
        return;
    }
    const std::deque<Event> events = std::exchange(staged_, {});
    for (const Event &event : events) {
        ++totals_.published;
        Subscriber::Frame frame;
        for (Subscriber *subscriber : subscribers_) {
            if (!subscriber->classes_.contains(event.event_class)) {
                continue;
            }
            if (!frame) {
                frame = std::make_shared<const Buffer>(event_frame(event));
            }
            subscriber->offer(frame);
        }
        if (!frame) {
            ++totals_.missed;
        }
    }
    if (is_changed_) {
        deliver_change();
    }
}

std::vector<const Subscriber *> EventHub::subscribers() const {
    std::vector<const Subscriber *> result;
    for (const Subscriber *subscriber : subscribers_) {
        if (!subscriber->classes_.empty()) {
            result.push_back(subscriber);
        }
    }
    return result;
}

} // namespace vswitch
