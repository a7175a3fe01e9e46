// SPDX-License-Identifier: Apache-2.0
// To whom events go.
#ifndef VSWITCH_EVENT_HUB_H
#define VSWITCH_EVENT_HUB_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "changes/events.h"

namespace vswitch {

class EventHub;

// One connection's share of the events: the classes that it subscribes to, and the events
// that wait for it, as EVENT frames. The queue is bounded, so that a client that does not
// read cannot make the switch grow; events beyond the bound are dropped and counted.
class Subscriber {
  public:
    static constexpr size_t max_queued_events = 16384;
    static constexpr size_t max_queued_bytes = 4u << 20;

    // `hub` must outlive the subscriber.
    explicit Subscriber(EventHub &hub);
    ~Subscriber();
    Subscriber(const Subscriber &) = delete;
    Subscriber &operator=(const Subscriber &) = delete;

    // Replaces the former classes. Events that already wait remain.
    void subscribe(std::set<uint32_t> classes);
    const std::set<uint32_t> &classes() const { return classes_; }

    // Whether it is an agent's: who waits for EVENT_ANY_CHANGE is an operator's tool.
    bool is_agent() const { return !classes_.empty() && !classes_.contains(EVENT_ANY_CHANGE); }

    // Calls `wake` whenever events have come to a queue that was empty. It must not take
    // events itself.
    void on_events(std::function<void()> wake) { wake_ = std::move(wake); }

    // Moves waiting events to the end of `output` until that holds `limit` bytes.
    void take(Buffer &output, size_t limit);

    size_t queued() const { return queue_.size(); }
    uint64_t delivered() const { return delivered_; }
    uint64_t dropped() const { return dropped_; }
    uint64_t number() const { return number_; }

  private:
    friend class EventHub;
    using Frame = std::shared_ptr<const Buffer>; // shared with the other subscribers

    void offer(const Frame &frame);

    EventHub &hub_;
    uint64_t number_;
    std::set<uint32_t> classes_;
    std::deque<Frame> queue_;
    size_t queued_bytes_ = 0;
    uint64_t delivered_ = 0;
    uint64_t dropped_ = 0;
    std::function<void()> wake_;
};

class EventHub {
  public:
    struct Totals {
        uint64_t published = 0;
        uint64_t missed = 0;  // nobody had subscribed to the event's class
        uint64_t dropped = 0; // for a subscriber whose queue was full or who left them
                              // behind; counted for each subscriber
    };

    EventHub();
    EventHub(const EventHub &) = delete;
    EventHub &operator=(const EventHub &) = delete;

    // Keeps an event until deliver().
    void publish(Event event) { staged_.push_back(std::move(event)); }

    // Something that can be asked for is different: EVENT_ANY_CHANGE is due. It is not counted among
    // the published ones.
    void note_change() { is_changed_ = true; }

    // Hands the events published since the last call to their subscribers. Whoever serves
    // a request calls it once the answer is on its way.
    void deliver();

    const Totals &totals() const { return totals_; }

    // The connections that have subscribed to something, in the order in which they came.
    std::vector<const Subscriber *> subscribers() const;

    // Events published and not yet delivered.
    const std::deque<Event> &staged() const { return staged_; }

  private:
    friend class Subscriber;

    void deliver_change();

    const Subscriber::Frame change_frame_; // an EVENT_ANY_CHANGE, always the same
    std::deque<Event> staged_;
    bool is_changed_ = false; // since the last deliver()
    std::vector<Subscriber *> subscribers_;
    uint64_t next_number_ = 1;
    Totals totals_;
};

} // namespace vswitch

#endif
