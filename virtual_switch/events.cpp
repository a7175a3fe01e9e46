#include "events.h"

#include <algorithm>
#include <utility>

#include "mts/mts_wire.h"

namespace vswitch {

namespace {

constexpr std::uint32_t key_admin_state = 1;
constexpr std::uint32_t key_oper_state = 19;

Buffer event_frame(const Event &event) {
    Buffer frame;
    frame.reserve(MTS_WIRE_HEADER + MTS_WIRE_EVENT_FIXED + event.payload.size());
    append_word(frame, MTS_WIRE_MAGIC);
    append_word(frame, MTS_FRAME_EVENT);
    append_word(frame, 0);
    append_word(frame, static_cast<std::uint32_t>(MTS_WIRE_EVENT_FIXED + event.payload.size()));
    append_word(frame, event.event_class);
    frame.insert(frame.end(), event.payload.begin(), event.payload.end());
    return frame;
}

} // namespace

Event vsan_event(const VsanEvent &event) {
    Event result{event_vsan_changed, {}};
    for (const std::uint32_t word :
         {event.deleted ? 1u : 0u, event.vsan, event.created ? 1u : 0u, 2u, key_admin_state, event.admin_state,
          event.former_admin_state, key_oper_state, event.oper_state, event.former_oper_state})
        append_word(result.payload, word);
    return result;
}

Event port_event(std::uint32_t if_index, std::uint32_t former_vsan, std::uint32_t vsan) {
    Event result{event_port_moved, {}};
    for (const std::uint32_t word : {if_index, former_vsan, vsan})
        append_word(result.payload, word);
    return result;
}

Subscriber::Subscriber(EventHub &hub) : hub_(hub), number_(hub.next_number_++) {
    hub_.subscribers_.push_back(this);
}

Subscriber::~Subscriber() {
    hub_.totals_.dropped += queue_.size();
    std::erase(hub_.subscribers_, this);
}

void Subscriber::subscribe(std::set<std::uint32_t> classes) {
    classes_ = std::move(classes);
}

void Subscriber::take(Buffer &output, std::size_t limit) {
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
    if (was_empty && wake_)
        wake_();
}

void EventHub::deliver() {
    if (staged_.empty())
        return;
    const std::deque<Event> events = std::exchange(staged_, {});
    for (const Event &event : events) {
        ++totals_.published;
        Subscriber::Frame frame;
        for (Subscriber *subscriber : subscribers_) {
            if (!subscriber->classes_.contains(event.event_class))
                continue;
            if (!frame)
                frame = std::make_shared<const Buffer>(event_frame(event));
            subscriber->offer(frame);
        }
        if (!frame)
            ++totals_.missed;
    }
}

std::vector<const Subscriber *> EventHub::subscribers() const {
    std::vector<const Subscriber *> result;
    for (const Subscriber *subscriber : subscribers_)
        if (!subscriber->classes_.empty())
            result.push_back(subscriber);
    return result;
}

} // namespace vswitch
