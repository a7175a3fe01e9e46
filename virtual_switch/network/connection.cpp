// SPDX-License-Identifier: Apache-2.0
#include "network/connection.h"

#include <algorithm>
#include <linux/sockios.h>
#include <spdlog/spdlog.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <utility>

#include "contract/frames.h"

namespace vswitch {

namespace {

// More than any client sends that leaves off when nothing is read from it.
constexpr size_t max_input = 256u << 10;

// Whether the client has not read all that was sent to it. Memory on its way to a client that
// reads nothing is nobody's, and would add up.
bool has_unread(int socket) {
    int bytes = 0;
    return ioctl(socket, SIOCOUTQ, &bytes) == 0 && bytes > 0;
}

} // namespace

Connection::Connection(ConnectionHost &host, Socket socket)
    : host_(host), socket_(std::move(socket)), delay_timer_(host.context()), conversation_(host.the_switch()) {}

void Connection::start() {
    // Events come while another connection is served; they are sent in their turn.
    conversation_.subscriber().on_events(
        [this] { asio::post(host_.context(), [self = shared_from_this()] { self->send_events(); }); });
    conversation_.on_share([this](uint32_t correlation) { return share_memory(correlation); });
    read();
}

void Connection::serve_memory() {
    if (!memory_->take(request_)) {
        return;
    }
    heard_at_ = Clock::now();
    Frame frame;
    const char *reason = nullptr;
    if (parse_frame(request_, frame, &reason) != Parsed::complete || frame.type != MTS_FRAME_REQUEST ||
        frame.size != request_.size()) {
        return drop("it put something else than one request into the shared memory");
    }
    const size_t waiting = pending_.size();
    size_t used = 0;
    if (!answer_in_memory(used)) {
        answer_over_socket(used, waiting);
    }
}

bool Connection::answer_in_memory(size_t &used) {
    if (!input_.empty() || !pending_.empty() || writing()) {
        return false;
    }
    used = conversation_.serve(request_, pending_);
    host_.served(true);
    if (used != request_.size() || pending_.empty() || pending_.size() > SharedMemory::max_frame ||
        conversation_.broken()) {
        return false;
    }
    const bool wake = memory_->answer(pending_);
    pending_.clear();
    if (wake) {
        knock();
    }
    return true;
}

void Connection::answer_over_socket(size_t used, size_t waiting) {
    input_.insert(input_.end(), request_.begin() + static_cast<ptrdiff_t>(used), request_.end());
    if (input_.size() > max_input) {
        return drop("it put requests into the shared memory without waiting for their answers");
    }
    // The client must know where the answer comes before it does.
    if (memory_->answer_elsewhere()) {
        Buffer knock;
        append_knock(knock);
        pending_.insert(pending_.begin() + static_cast<ptrdiff_t>(waiting), knock.begin(), knock.end());
    }
    serve();
}

void Connection::close() {
    Error ignored;
    socket_.close(ignored);
    delay_timer_.cancel();
}

void Connection::drop(const char *reason) {
    if (!leave()) {
        return;
    }
    ++host_.the_switch().counters.dropped_connections;
    spdlog::warn("dropped a connection: {}", reason);
}

void Connection::read() {
    is_reading_ = true;
    socket_.async_read_some(asio::buffer(chunk_), [self = shared_from_this()](Error error, size_t size) {
        self->input_.insert(self->input_.end(), self->chunk_.begin(),
                            self->chunk_.begin() + static_cast<ptrdiff_t>(size));
        self->received(error);
    });
}

void Connection::received(Error error) {
    is_reading_ = false;
    heard_at_ = Clock::now();
    if (!error) {
        return serve();
    }
    if (error == asio::error::operation_aborted) {
        return;
    }
    // The client has said its last; it still gets the answers that are on their way.
    intake_ = Intake::ended;
    if (!writing()) {
        leave();
    }
}

void Connection::serve() {
    size_t used = 0;
    size_t total = 0;
    do {
        used = conversation_.serve(Bytes(input_).subspan(total), pending_);
        total += used;
        host_.served(false);
        if (!writing()) {
            write();
        }
        if (conversation_.broken()) {
            return drop(conversation_.broken());
        }
        if (conversation_.is_ended()) {
            spdlog::info("closed a connection because of a fault");
            leave();
            return;
        }
    } while (used > 0 && pending_.size() < Conversation::output_limit);
    input_.erase(input_.begin(), input_.begin() + static_cast<ptrdiff_t>(total));
    update_stall(total > 0);
    if (conversation_.delay()) {
        hold_up(*conversation_.delay());
    } else if (intake_ == Intake::ended) {
        return;
    } else if (pending_.size() >= Conversation::output_limit) {
        intake_ = Intake::paused;
    } else if (!is_reading_) {
        read();
    }
}

void Connection::hold_up(std::chrono::milliseconds delay) {
    if (intake_ == Intake::held_up) {
        return;
    }
    if (intake_ != Intake::ended) {
        intake_ = Intake::held_up;
    }
    delay_timer_.expires_after(delay);
    delay_timer_.async_wait([self = shared_from_this()](Error error) {
        if (error || !self->socket_.is_open()) {
            return;
        }
        if (self->intake_ == Intake::held_up) {
            self->intake_ = Intake::open;
        }
        self->conversation_.resume();
        self->serve();
    });
}

bool Connection::share_memory(uint32_t correlation) {
    Buffer frame;
    append_shared(frame, correlation);
    if (!pending_.empty() || writing() || has_unread(socket_.native_handle())) {
        return false;
    }
    auto memory = SharedMemory::send(socket_.native_handle(), frame, host_.generation());
    if (!memory) {
        return false;
    }
    const bool is_first = !memory_;
    memory_ = std::move(memory);
    if (is_first) {
        host_.shares_memory(*this);
    }
    return true;
}

void Connection::knock() {
    append_knock(pending_);
    // At once: while the socket is written to, no request can be answered in the memory.
    const ssize_t result = send(socket_.native_handle(), pending_.data(), pending_.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    pending_.erase(pending_.begin(), pending_.begin() + std::max<ssize_t>(result, 0));
    write();
}

void Connection::send_events() {
    if (!socket_.is_open()) {
        return;
    }
    conversation_.subscriber().take(pending_, Conversation::output_limit);
    if (writing()) {
        return;
    }
    write();
    update_stall(true);
}

void Connection::write() {
    if (pending_.empty()) {
        return;
    }
    std::swap(written_, pending_);
    // Called for each part that goes out: a client that reads slowly does read.
    const auto part_sent = [this](const Error &error, size_t) {
        update_stall(true);
        return error ? 0 : written_.size();
    };
    asio::async_write(socket_, asio::buffer(written_), part_sent, [self = shared_from_this()](Error error, size_t) {
        self->written_.clear();
        self->sent(error);
    });
}

void Connection::sent(Error error) {
    if (error == asio::error::operation_aborted) {
        return;
    }
    if (error) {
        leave();
        return;
    }
    conversation_.subscriber().take(pending_, Conversation::output_limit);
    write();
    update_stall(true);
    if (intake_ == Intake::ended) {
        if (!writing()) {
            leave();
        }
    } else if (intake_ == Intake::paused) {
        intake_ = Intake::open;
        serve();
    }
}

void Connection::update_stall(bool progress) {
    if ((input_.empty() || conversation_.delay()) && !writing()) {
        stalled_since_.reset();
    } else if (progress || !stalled_since_) {
        stalled_since_ = Clock::now();
    }
    if (stalled_since_) {
        host_.watch_stalls();
    }
}

bool Connection::leave() {
    const auto self = shared_from_this();
    if (!host_.left(*this)) {
        return false;
    }
    conversation_.leave();
    close();
    return true;
}

} // namespace vswitch
