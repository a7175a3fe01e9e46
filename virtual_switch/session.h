/* One client's conversation, without its socket: bytes in, bytes out. */
#ifndef VSWITCH_SESSION_H
#define VSWITCH_SESSION_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <utility>

#include "frames.h"
#include "services.h"

namespace vswitch {

class Session {
  public:
    /* Serving pauses once this many bytes wait for the client. */
    static constexpr std::size_t output_limit = 256u << 10;
    static constexpr std::size_t max_subscribed_classes = 64;

    /* `target` must outlive the session. */
    explicit Session(Switch &target) : target_(target), subscriber_(target.events) {}
    ~Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    /*
     * Serves the complete frames at the start of `input` and appends the answers to
     * `output`; stops early once `output` has reached its limit. Returns the number of
     * bytes used up. After a frame that no client may send, broken() says why, nothing
     * further is served, and the connection must be closed. The operator's faults act
     * here, before a request reaches its manager: one may stop the serving in front of a
     * request, see delay(), or end the conversation, see is_ended().
     */
    std::size_t serve(Bytes input, Buffer &output);

    /*
     * The events that wait for this client. What serve() changes is published when the
     * answer stands in `output`, so that whoever appends events only after serve() sends
     * them behind the answer to the request that caused them.
     */
    Subscriber &subscriber() { return subscriber_; }

    /* Has `give` called with the correlation when the client asks for shared memory. It
     * answers and returns true, or returns false when the client gets none. */
    void on_share(std::function<bool(std::uint32_t correlation)> give) { memory_giver_ = std::move(give); }

    /* Null, or why the conversation cannot go on; a static text. */
    const char *broken() const { return broken_; }

    /* How long the request that comes next, and with it all behind it, is held up. Nothing
     * is served until resume(). */
    std::optional<std::chrono::milliseconds> delay() const { return delay_; }
    void resume();

    /* Whether the connection is to be closed although its client did nothing wrong. */
    bool is_ended() const { return is_ended_; }

  private:
    /* False when the frame is held up. */
    bool serve_frame(const Frame &frame, Buffer &output);
    bool serve_request(const Request &request, std::uint32_t correlation, Buffer &output);
    bool give_memory(std::uint32_t correlation);
    bool subscribe(Bytes body);

    Switch &target_;
    Reply reply_; /* kept for its buffer */
    Subscriber subscriber_;
    std::function<bool(std::uint32_t)> memory_giver_;
    const char *broken_ = nullptr;
    std::optional<std::chrono::milliseconds> delay_;
    bool was_delayed_ = false; /* the next request has met its fault */
    bool is_ended_ = false;
};

} // namespace vswitch

#endif
