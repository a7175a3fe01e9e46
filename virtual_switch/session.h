/* One client's conversation, without its socket: bytes in, bytes out. */
#ifndef VSWITCH_SESSION_H
#define VSWITCH_SESSION_H

#include <cstddef>
#include <cstdint>
#include <set>

#include "frames.h"
#include "services.h"

namespace vswitch {

class Session {
  public:
    /* Serving pauses once this many bytes wait for the client. */
    static constexpr std::size_t output_limit = 256u << 10;
    static constexpr std::size_t max_subscribed_classes = 64;

    /* `target` must outlive the session. */
    explicit Session(Switch &target) : target_(target) {}
    ~Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    /*
     * Serves the complete frames at the start of `input` and appends the answers to
     * `output`; stops early once `output` has reached its limit. Returns the number of
     * bytes used up. After a frame that no client may send, broken() says why, nothing
     * further is served, and the connection must be closed.
     */
    std::size_t serve(Bytes input, Buffer &output);

    /* Null, or why the conversation cannot go on; a static text. */
    const char *broken() const { return broken_; }

  private:
    void serve_frame(const Frame &frame, Buffer &output);
    bool subscribe(Bytes body);

    Switch &target_;
    Reply reply_; /* kept for its buffer */
    std::set<std::uint32_t> subscribed_;
    const char *broken_ = nullptr;
};

} // namespace vswitch

#endif
