// SPDX-License-Identifier: Apache-2.0
// One client's conversation, without its socket: bytes in, bytes out.
//
//                  a fault delays the next request
//       serving ------------------------------------> held up
//        ^   |                                           | resume()
//        |   |                                           v
//        |   |  the request is served, past its fault  excused
//        +---|-------------------------------------------+
//            |
//            | a frame that no client may send    +-> broken
//            | a fault that closes the connection +-> ended
//
// Frames are served while it is serving or excused; from broken and ended nothing leads back.
#ifndef VSWITCH_CONVERSATION_H
#define VSWITCH_CONVERSATION_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <utility>

#include "network/frames.h"
#include "services/served_switch.h"

namespace vswitch {

class Conversation {
  public:
    // Serving pauses once this many bytes wait for the client.
    static constexpr size_t output_limit = 256u << 10;
    static constexpr size_t max_subscribed_classes = 64;

    // `the_switch` must outlive the conversation.
    explicit Conversation(ServedSwitch &the_switch) : switch_(the_switch), subscriber_(the_switch.events) {}
    ~Conversation();
    Conversation(const Conversation &) = delete;
    Conversation &operator=(const Conversation &) = delete;

    // Serves the complete frames at the start of `input` and appends the answers to
    // `output`; stops early once `output` has reached its limit. Returns the number of
    // bytes used up. After a frame that no client may send, broken() says why, nothing
    // further is served, and the connection must be closed. The operator's faults act
    // here, before a request reaches its manager: one may stop the serving in front of a
    // request, see delay(), or end the conversation, see is_ended().
    size_t serve(Bytes input, Buffer &output);

    // The events that wait for this client. What serve() changes is published when the
    // answer stands in `output`, so that whoever appends events only after serve() sends
    // them behind the answer to the request that caused them.
    Subscriber &subscriber() { return subscriber_; }

    // Has `give` called with the correlation when the client asks for shared memory. It
    // answers and returns true, or returns false when the client gets none.
    void on_share(std::function<bool(uint32_t correlation)> give) { memory_giver_ = std::move(give); }

    // The client has gone: its subscription ends, and others hear of it where that matters to them.
    void leave();

    // Null, or why the conversation cannot go on; a static text.
    const char *broken() const { return state_ == State::broken ? reason_ : nullptr; }

    // How long the request that comes next, and with it all behind it, is held up. Nothing
    // is served until resume().
    std::optional<std::chrono::milliseconds> delay() const {
        return state_ == State::held_up ? std::optional(delay_) : std::nullopt;
    }
    void resume();

    // Whether the connection is to be closed although its client did nothing wrong.
    bool is_ended() const { return state_ == State::ended; }

  private:
    enum class State { serving, held_up, excused, broken, ended };

    void end_broken(const char *reason);

    // False when the frame is held up.
    bool serve_frame(const Frame &frame, Buffer &output);
    bool serve_request(const Request &request, uint32_t correlation, Buffer &output);
    // Leaves in reply_ what a fault makes of the answer.
    void answer_wrongly(const Request &request, const Fault &fault);
    bool give_memory(uint32_t correlation);
    bool subscribe(Bytes body);
    void replace_subscription(std::set<uint32_t> classes);

    ServedSwitch &switch_;
    Reply reply_; // kept for its buffer
    Subscriber subscriber_;
    std::function<bool(uint32_t)> memory_giver_;
    State state_ = State::serving;
    const char *reason_ = nullptr;       // once it is broken; a static text
    std::chrono::milliseconds delay_{0}; // while it is held up
};

} // namespace vswitch

#endif
