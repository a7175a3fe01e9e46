// SPDX-License-Identifier: Apache-2.0
#include "network/server.h"

#include <algorithm>
#include <asio.hpp>
#include <csignal>
#include <fmt/format.h>
#include <optional>
#include <set>
#include <spdlog/spdlog.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "network/connection.h"
#include "network/socket_place.h"

namespace vswitch {

namespace {

using asio::local::stream_protocol;
using Clock = std::chrono::steady_clock;
using Error = asio::error_code;

constexpr std::chrono::milliseconds accept_pause{250}; // while the process is out of descriptors

// How often the sockets are looked after while the switch watches shared memory.
constexpr std::chrono::microseconds socket_interval{50};

// The generation of what libraries of the agent keep of the switch, in the memory of all
// connections. While there are faults, nothing may be kept: faults are for requests, and
// requests that are not made meet none.
class SettingsPublisher {
  public:
    // Whether the generation has changed since the last call, because the switch has.
    bool update(const ServedSwitch &the_switch) {
        const Kept present{the_switch.roles.version(), the_switch.model.settings().tdx_enabled,
                           the_switch.model.settings().tdx_show_run, !the_switch.faults.list().empty()};
        if (count_ != 0 && present == kept_) {
            return false;
        }
        kept_ = present;
        count_ = count_ == UINT32_MAX ? 1 : count_ + 1;
        return true;
    }

    uint32_t generation() const { return kept_.faults ? 0 : count_; }

  private:
    struct Kept {
        uint64_t roles_version = 0;
        bool tdx_enabled = false;
        bool tdx_show_run = false;
        bool faults = false;

        bool operator==(const Kept &) const = default;
    };

    Kept kept_;
    uint32_t count_ = 0;
};

} // namespace

class Server::Loop final : private ConnectionHost {
  public:
    Loop(ServedSwitch &the_switch, ServerOptions options)
        : switch_(the_switch), options_(std::move(options)), place_(options_.run_directory, options_.group),
          acceptor_(context_), accept_timer_(context_), stall_timer_(context_),
          signals_(context_, SIGTERM, SIGINT, SIGHUP), spin_wait_(sysconf(_SC_NPROCESSORS_ONLN) > 1) {
        Error error;
        const stream_protocol::endpoint endpoint(place_.path());
        acceptor_.open(endpoint.protocol(), error);
        if (!error) {
            acceptor_.bind(endpoint, error);
        }
        if (!error) {
            place_.set_permissions();
            acceptor_.listen(asio::socket_base::max_listen_connections, error);
        }
        if (error) {
            throw Refusal(fmt::format("Cannot listen on {}: {}.", place_.path(), error.message()));
        }
    }

    void run(const std::function<void()> &reload);
    void stop() {
        asio::post(context_, [this] { shut_down(); });
    }
    const std::string &socket_path() const { return place_.path(); }

  private:
    ServedSwitch &the_switch() override { return switch_; }
    asio::io_context &context() override { return context_; }
    bool left(Connection &connection) override;
    void shares_memory(Connection &connection) override { sharing_.push_back(&connection); }
    uint32_t generation() const override { return settings_.generation(); }
    void served(bool by_memory) override;
    void watch_stalls() override;

    void accept();
    void accepted(stream_protocol::socket socket);
    bool admits(int descriptor);

    // Closes a connection that its client does not use: of those without a subscription, else
    // of all, the one that has been silent for longest. False when there is none. Who needs
    // it again connects again; a subscriber would miss events meanwhile.
    bool give_up_an_idle_one();
    void await_signal(const std::function<void()> &reload);
    void shut_down();

    void drop_stalled();

    // Shared memory: whether a request waits in any, serving those that wait, and looking
    // for them for as long as that pays.
    bool is_posted() const;
    void serve_memories();
    void watch_memories();
    void announce_sleep(bool sleeping);

    // Must have happened before a change is answered.
    void publish_settings();

    ServedSwitch &switch_;
    ServerOptions options_;
    SocketPlace place_;
    asio::io_context context_{1};
    stream_protocol::acceptor acceptor_;
    asio::steady_timer accept_timer_;
    asio::steady_timer stall_timer_;
    asio::signal_set signals_;
    std::set<std::shared_ptr<Connection>> connections_;
    std::vector<Connection *> sharing_; // those with shared memory
    SpinWait spin_wait_;
    SettingsPublisher settings_;
    bool watching_stalls_ = false;
    bool out_of_descriptors_ = false;
    bool full_ = false;
    std::optional<uid_t> last_stranger_;
};

void Server::Loop::accept() {
    acceptor_.async_accept([this](Error error, stream_protocol::socket socket) {
        if (error == asio::error::operation_aborted || !acceptor_.is_open()) {
            return;
        }
        if (!error) {
            out_of_descriptors_ = false;
            accepted(std::move(socket));
            return accept();
        }
        // Out of descriptors or memory: the client stays in the queue of the kernel,
        // which would report it again at once.
        if (!out_of_descriptors_) {
            spdlog::warn("cannot accept connections for now: {}", error.message());
        }
        out_of_descriptors_ = true;
        accept_timer_.expires_after(accept_pause);
        accept_timer_.async_wait([this](Error timer_error) {
            if (!timer_error && acceptor_.is_open()) {
                accept();
            }
        });
    });
}

bool Server::Loop::admits(int descriptor) {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && place_.may_connect(descriptor, peer)) {
        last_stranger_.reset();
        return true;
    }
    ++switch_.counters.refused_connections;
    if (last_stranger_ != peer.uid) {
        spdlog::warn("refused a connection of process {}: user {} may not use this switch", peer.pid, peer.uid);
    }
    last_stranger_ = peer.uid;
    return false;
}

void Server::Loop::accepted(stream_protocol::socket socket) {
    if (!admits(socket.native_handle())) {
        return;
    }
    const bool full = connections_.size() >= options_.max_connections;
    if (full && !std::exchange(full_, true)) {
        spdlog::warn("{} connections are open: those that are idle make room for others", connections_.size());
    }
    full_ = full;
    if (full && !give_up_an_idle_one()) {
        ++switch_.counters.dropped_connections;
        return;
    }
    const auto connection = std::make_shared<Connection>(static_cast<ConnectionHost &>(*this), std::move(socket));
    connections_.insert(connection);
    ++switch_.counters.connections;
    connection->start();
    spdlog::debug("a client has connected, {} are open", connections_.size());
}

bool Server::Loop::give_up_an_idle_one() {
    const auto latest = Clock::now() - options_.idle_time;
    const std::shared_ptr<Connection> *idlest = nullptr;
    const auto rank = [](const auto &one) { return std::pair(one->has_subscribed(), one->heard_at()); };
    for (const auto &connection : connections_) {
        if (connection->heard_at() <= latest && (!idlest || rank(connection) < rank(*idlest))) {
            idlest = &connection;
        }
    }
    if (!idlest) {
        return false;
    }
    ++switch_.counters.dropped_connections;
    (*idlest)->give_up();
    return true;
}

void Server::Loop::watch_stalls() {
    // What is cut off in the end is not waited for: a timer would keep the loop alive.
    if (watching_stalls_ || !acceptor_.is_open()) {
        return;
    }
    watching_stalls_ = true;
    stall_timer_.expires_after(options_.stall_timeout / 4);
    stall_timer_.async_wait([this](Error error) {
        watching_stalls_ = false;
        if (!error) {
            drop_stalled();
        }
    });
}

void Server::Loop::drop_stalled() {
    const auto latest = Clock::now() - options_.stall_timeout;
    bool waiting = false;
    const auto connections = connections_; // dropping changes the set
    for (const auto &connection : connections) {
        const auto since = connection->stalled_since();
        if (since && *since <= latest) {
            connection->drop("its client left a frame unfinished or its answers unread for too long");
        } else {
            waiting = waiting || since;
        }
    }
    if (waiting) {
        watch_stalls();
    }
}

void Server::Loop::await_signal(const std::function<void()> &reload) {
    signals_.async_wait([this, &reload](Error error, int signal) {
        if (error) {
            return;
        }
        if (signal != SIGHUP) {
            return shut_down();
        }
        reload();
        publish_settings();
        await_signal(reload);
    });
}

void Server::Loop::shut_down() {
    Error ignored;
    acceptor_.close(ignored);
    place_.remove();
    accept_timer_.cancel();
    stall_timer_.cancel();
    signals_.cancel(ignored);
    for (const auto &connection : connections_) {
        connection->close();
    }
    switch_.counters.connections -= connections_.size();
    sharing_.clear();
    connections_.clear();
}

bool Server::Loop::is_posted() const {
    return std::ranges::any_of(sharing_, [](Connection *connection) { return connection->memory().is_posted(); });
}

void Server::Loop::serve_memories() {
    // Serving may end a connection, which then is no longer in the list.
    for (size_t i = 0; i < sharing_.size(); ++i) {
        const auto connection = sharing_[i]->shared_from_this();
        connection->serve_memory();
    }
}

void Server::Loop::watch_memories() {
    auto socket_time = SpinWait::Clock::now() + socket_interval;
    while (!context_.stopped() && !sharing_.empty() && SpinWait::Clock::now() < spin_wait_.end()) {
        if (SpinWait::until([this] { return is_posted(); }, std::min(spin_wait_.end(), socket_time))) {
            serve_memories();
        }
        if (SpinWait::Clock::now() >= socket_time) {
            context_.poll();
            socket_time = SpinWait::Clock::now() + socket_interval;
        }
    }
}

void Server::Loop::announce_sleep(bool sleeping) {
    for (Connection *connection : sharing_) {
        connection->memory().announce_sleep(sleeping);
    }
}

void Server::Loop::publish_settings() {
    if (settings_.update(switch_)) {
        for (Connection *connection : sharing_) {
            connection->memory().publish_generation(settings_.generation());
        }
    }
}

void Server::Loop::served(bool by_memory) {
    publish_settings();
    if (by_memory) {
        spin_wait_.note_request(SpinWait::Clock::now());
    }
}

bool Server::Loop::left(Connection &connection) {
    if (connections_.erase(connection.shared_from_this()) == 0) {
        return false;
    }
    std::erase(sharing_, &connection);
    --switch_.counters.connections;
    spdlog::debug("a client is gone, {} remain", connections_.size());
    return true;
}

void Server::Loop::run(const std::function<void()> &reload) {
    publish_settings();
    await_signal(reload);
    accept();
    do {
        watch_memories();
        announce_sleep(true);
        if (is_posted()) {
            context_.poll();
        } else {
            context_.run_one();
        }
        announce_sleep(false);
        serve_memories();
    } while (!context_.stopped());
}

Server::Server(ServedSwitch &the_switch, ServerOptions options)
    : loop_(std::make_unique<Loop>(the_switch, std::move(options))) {}
Server::~Server() = default;
void Server::run(const std::function<void()> &reload) {
    loop_->run(reload);
}
void Server::stop() {
    loop_->stop();
}
const std::string &Server::socket_path() const {
    return loop_->socket_path();
}

} // namespace vswitch
