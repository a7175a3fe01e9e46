// SPDX-License-Identifier: Apache-2.0
// One client's socket: what comes over it, and over the memory shared with the client, goes
// through a Conversation, and the answers go back the way the requests came.
#ifndef VSWITCH_CONNECTION_H
#define VSWITCH_CONNECTION_H

#include <array>
#include <asio.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "network/conversation.h"
#include "network/shared_memory.h"

namespace vswitch {

class Connection;

// What a connection needs of the loop that it lives in, and tells it.
class ConnectionHost {
  public:
    virtual ServedSwitch &the_switch() = 0;
    virtual asio::io_context &context() = 0;

    // The connection is gone. False when that has been said before.
    virtual bool left(Connection &connection) = 0;

    // The connection has shared memory from now on.
    virtual void shares_memory(Connection &connection) = 0;

    // What to publish in new memory; see SettingsPublisher.
    virtual uint32_t generation() const = 0;

    // Requests have been served, but not answered yet: by memory, or over a socket.
    virtual void served(bool by_memory) = 0;

    // The client holds something up; somebody has to look at stalled_since() later.
    virtual void watch_stalls() = 0;

  protected:
    ~ConnectionHost() = default;
};

// Reading and writing run side by side; reading stops while the client leaves more than
// Conversation::output_limit bytes of answers unread, so that neither direction grows without
// bound. How what comes in is treated:
//
//            too much is unread            a fault delays a request
//    open --------------------> paused    open, paused ----------> held up
//         <--------------------                open   <----------
//            it has been sent                         the delay is over
//
//    any --- the client has said its last ---> ended: what is on its way is still sent
//
// A request that comes through the shared memory (mts/mts_shared.h) is taken and then goes one
// of two ways, the same that the memory's state tells the client:
//
//    posted -> taken -> answered    nothing was waiting, and the answer fits the memory
//                    -> elsewhere   it waits in its turn behind what came over the socket, and is
//                                   answered there
class Connection : public std::enable_shared_from_this<Connection> {
  public:
    using Socket = asio::local::stream_protocol::socket;
    using Clock = std::chrono::steady_clock;

    // `host` must outlive the connection.
    Connection(ConnectionHost &host, Socket socket);

    void start();
    void close();

    // The memory shared with the client; only once it has been given some.
    SharedMemory &memory() { return *memory_; }

    // Serves the request that waits in the memory, if one does. What cannot be answered
    // there at once goes the way of those that come over the socket.
    void serve_memory();

    // Since when the client has left something half done, if it has.
    std::optional<Clock::time_point> stalled_since() const { return stalled_since_; }

    // When the client said something last, or came.
    Clock::time_point heard_at() const { return heard_at_; }

    // Whether it waits for events, and so has nothing to say.
    bool has_subscribed() { return !conversation_.subscriber().classes().empty(); }

    // Closes the connection, whose place somebody else needs.
    void give_up() { leave(); }

    // Closes the connection because of what its client did.
    void drop(const char *reason);

  private:
    using Error = asio::error_code;
    enum class Intake { open, paused, held_up, ended };

    void read();
    void received(Error error);
    void serve();

    // The two ways of a request from the memory, of which `used` bytes have been served.
    bool answer_in_memory(size_t &used);
    void answer_over_socket(size_t used, size_t waiting);

    // Serves the rest later. Nothing more is read meanwhile, so that what the client sends
    // waits in its turn.
    void hold_up(std::chrono::milliseconds delay);

    // Gives the client memory, if the answer can go out at once: the memory's descriptor
    // must neither overtake nor fall behind the frame that announces it.
    bool share_memory(uint32_t correlation);

    // Wakes the client, which sleeps on its socket.
    void knock();

    void send_events();
    bool writing() const { return !written_.empty(); }
    void write();
    void sent(Error error);

    // Notes whether the client holds something up; `progress` says that it did not stand
    // still just now.
    void update_stall(bool progress);

    // Closes the socket and leaves the loop; false when that has happened before.
    bool leave();

    ConnectionHost &host_;
    Socket socket_;
    asio::steady_timer delay_timer_; // while the conversation holds a request up
    Conversation conversation_;
    std::array<uint8_t, 16384> chunk_; // what is being received
    Buffer input_;                     // what has been received and not yet served
    Buffer written_;                   // what is being sent
    Buffer pending_;                   // what is sent next
    Buffer request_;                   // what came through the memory
    std::unique_ptr<SharedMemory> memory_;
    Clock::time_point heard_at_ = Clock::now();
    std::optional<Clock::time_point> stalled_since_;
    Intake intake_ = Intake::open;
    bool is_reading_ = false; // a read is under way, whatever the intake is meanwhile
};

} // namespace vswitch

#endif
