/*
 * What the switch publishes, and to whom.
 *
 * Event classes and their payloads, 32-bit words in network byte order:
 *
 * Class 145, a VSAN's configuration or operation has changed (drawn in vsan.h, too):
 *
 *   byte  0  condition: 0, or 1 when the VSAN has been deleted
 *         4  VSAN number
 *         8  1 when the VSAN has just been created, else 0
 *        12  number of attributes, 2
 *        16  attribute 1 (administrative state), value, former value
 *        28  attribute 19 (operational state), value, former value
 *
 *   A VSAN that did not exist before has the former values 0. One that no longer
 *   exists has the values not configured (3) and down.
 *
 * Class 102, an interface has moved to another VSAN:
 *
 *   byte  0  ifIndex
 *         4  former VSAN
 *         8  new VSAN
 *
 * One change publishes the moves of its ports first, by ifIndex, then the VSANs that it
 * affects, by number.
 */
#ifndef VSWITCH_EVENTS_H
#define VSWITCH_EVENTS_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <set>
#include <vector>

#include "records.h"

namespace vswitch {

constexpr std::uint32_t event_port_moved = 102;
constexpr std::uint32_t event_vsan_changed = 145;

struct Event {
    std::uint32_t event_class = 0;
    Buffer payload;

    bool operator==(const Event &) const = default;
};

struct VsanEvent {
    std::uint32_t vsan = 0;
    bool created = false;
    bool deleted = false;
    std::uint32_t admin_state = 0, former_admin_state = 0;
    std::uint32_t oper_state = 0, former_oper_state = 0;
};

Event vsan_event(const VsanEvent &event);
Event port_event(std::uint32_t if_index, std::uint32_t former_vsan, std::uint32_t vsan);

class EventHub;

/*
 * One connection's share of the events: the classes that it subscribes to, and the events
 * that wait for it, as EVENT frames. The queue is bounded, so that a client that does not
 * read cannot make the switch grow; events beyond the bound are dropped and counted.
 */
class Subscriber {
  public:
    static constexpr std::size_t max_queued_events = 16384;
    static constexpr std::size_t max_queued_bytes = 4u << 20;

    /* `hub` must outlive the subscriber. */
    explicit Subscriber(EventHub &hub);
    ~Subscriber();
    Subscriber(const Subscriber &) = delete;
    Subscriber &operator=(const Subscriber &) = delete;

    /* Replaces the former classes. Events that already wait remain. */
    void subscribe(std::set<std::uint32_t> classes);
    const std::set<std::uint32_t> &classes() const { return classes_; }

    /* Calls `wake` whenever events have come to a queue that was empty. It must not take
     * events itself. */
    void on_events(std::function<void()> wake) { wake_ = std::move(wake); }

    /* Moves waiting events to the end of `output` until that holds `limit` bytes. */
    void take(Buffer &output, std::size_t limit);

    std::size_t queued() const { return queue_.size(); }
    std::uint64_t delivered() const { return delivered_; }
    std::uint64_t dropped() const { return dropped_; }
    std::uint64_t number() const { return number_; }

  private:
    friend class EventHub;
    using Frame = std::shared_ptr<const Buffer>; /* shared with the other subscribers */

    void offer(const Frame &frame);

    EventHub &hub_;
    std::uint64_t number_;
    std::set<std::uint32_t> classes_;
    std::deque<Frame> queue_;
    std::size_t queued_bytes_ = 0;
    std::uint64_t delivered_ = 0;
    std::uint64_t dropped_ = 0;
    std::function<void()> wake_;
};

class EventHub {
  public:
    struct Totals {
        std::uint64_t published = 0;
        std::uint64_t missed = 0;  /* nobody had subscribed to the event's class */
        std::uint64_t dropped = 0; /* for a subscriber whose queue was full or who left them
                                    * behind; counted for each subscriber */
    };

    EventHub() = default;
    EventHub(const EventHub &) = delete;
    EventHub &operator=(const EventHub &) = delete;

    /* Keeps an event until deliver(). */
    void publish(Event event) { staged_.push_back(std::move(event)); }

    /* Hands the events published since the last call to their subscribers. Whoever serves
     * a request calls it once the answer is on its way. */
    void deliver();

    const Totals &totals() const { return totals_; }

    /* The connections that have subscribed to something, in the order in which they came. */
    std::vector<const Subscriber *> subscribers() const;

    /* Events published and not yet delivered. */
    const std::deque<Event> &staged() const { return staged_; }

  private:
    friend class Subscriber;

    std::deque<Event> staged_;
    std::vector<Subscriber *> subscribers_;
    std::uint64_t next_number_ = 1;
    Totals totals_;
};

} // namespace vswitch

#endif
