#include "server.h"

#include <algorithm>
#include <array>
#include <asio.hpp>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fmt/format.h>
#include <grp.h>
#include <optional>
#include <set>
#include <spdlog/spdlog.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include "files.h"
#include "mts/mts_wire.h"
#include "session.h"

namespace vswitch {

namespace {

using asio::local::stream_protocol;
using Clock = std::chrono::steady_clock;
using Error = asio::error_code;

constexpr std::chrono::milliseconds accept_pause{250}; /* while the process is out of descriptors */

/* The run directory, its lock and the socket's name in it, for as long as one serves. */
class SocketPlace {
  public:
    explicit SocketPlace(const ServerOptions &options)
        : path_(options.run_directory + "/" MTS_SOCKET_NAME), group_(find_group(options.group)) {
        if (path_.size() >= sizeof(sockaddr_un::sun_path))
            throw Refusal(fmt::format("The socket's path {} is too long: {} bytes where {} are possible; choose a "
                                      "shorter run directory.",
                                      path_, path_.size(), sizeof(sockaddr_un::sun_path) - 1));
        const bool made = ensure_directory(options.run_directory, "run directory");
        lock_.emplace(options.run_directory + "/socket.lock",
                      fmt::format("Another vswitchd serves {}; stop it first or choose another run directory.", path_));
        if (group_)
            admit_group(options.run_directory, made);
        struct stat status {};
        if (lstat(path_.c_str(), &status) == 0) {
            if (!S_ISSOCK(status.st_mode))
                throw Refusal(fmt::format("The file {} is in the socket's place; move it away.", path_));
            remove();
        }
    }

    ~SocketPlace() { remove(); }
    SocketPlace(const SocketPlace &) = delete;
    SocketPlace &operator=(const SocketPlace &) = delete;

    const std::string &path() const { return path_; }
    std::optional<gid_t> group() const { return group_; }

    /* Binding left the socket to the umask; from here on it has its final permissions. */
    void set_permissions() const {
        if ((group_ && chown(path_.c_str(), static_cast<uid_t>(-1), *group_) != 0) ||
            chmod(path_.c_str(), group_ ? 0660 : 0600) != 0)
            throw Refusal(fmt::format("Cannot set the permissions of {}: {}.", path_, std::strerror(errno)));
    }

    void remove() const { unlink(path_.c_str()); }

  private:
    static std::optional<gid_t> find_group(const std::string &name) {
        if (name.empty())
            return std::nullopt;
        const struct group *entry = getgrnam(name.c_str());
        if (!entry)
            throw Refusal(fmt::format("There is no group named {}.", name));
        return entry->gr_gid;
    }

    /* Lets the group enter. A folder that is not ours alone stays as it is: somebody
     * else has already decided who may enter it. */
    void admit_group(const std::string &directory, bool made) const {
        struct stat status {};
        if (stat(directory.c_str(), &status) != 0)
            throw Refusal(fmt::format("Cannot read {}: {}.", directory, std::strerror(errno)));
        if (!made && (status.st_uid != geteuid() || (status.st_mode & 07) != 0))
            return;
        if (chown(directory.c_str(), static_cast<uid_t>(-1), *group_) != 0 || chmod(directory.c_str(), 0750) != 0)
            throw Refusal(fmt::format("Cannot set the permissions of {}: {}.", directory, std::strerror(errno)));
    }

    std::string path_;
    std::optional<gid_t> group_;
    std::optional<FileLock> lock_;
};

/* The supplementary groups of the process at the other end; none when they are not known. */
std::vector<gid_t> groups_of_peer(int descriptor) {
    std::vector<gid_t> groups(64);
    for (;;) {
        auto size = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
        const int result = getsockopt(descriptor, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size);
        if (result != 0 && errno != ERANGE)
            return {};
        groups.resize(size / sizeof(gid_t));
        if (result == 0)
            return groups;
    }
}

/* Whether a process may use the switch: one of root, of the daemon's own user, or of the
 * group that the operator has named. */
bool may_connect(int descriptor, const ucred &peer, std::optional<gid_t> group) {
    if (peer.uid == 0 || peer.uid == geteuid())
        return true;
    if (!group)
        return false;
    if (peer.gid == *group)
        return true;
    const auto groups = groups_of_peer(descriptor);
    return std::find(groups.begin(), groups.end(), *group) != groups.end();
}

} // namespace

class Server::Loop {
  public:
    Loop(Switch &target, ServerOptions options)
        : target_(target), options_(std::move(options)), place_(options_), acceptor_(context_), accept_timer_(context_),
          stall_timer_(context_), signals_(context_, SIGTERM, SIGINT, SIGHUP) {
        Error error;
        const stream_protocol::endpoint endpoint(place_.path());
        acceptor_.open(endpoint.protocol(), error);
        if (!error)
            acceptor_.bind(endpoint, error);
        if (!error) {
            place_.set_permissions();
            acceptor_.listen(asio::socket_base::max_listen_connections, error);
        }
        if (error)
            throw Refusal(fmt::format("Cannot listen on {}: {}.", place_.path(), error.message()));
    }

    void run(const std::function<void()> &reload);
    void stop() {
        asio::post(context_, [this] { shut_down(); });
    }
    const std::string &socket_path() const { return place_.path(); }

  private:
    class Connection;

    void accept();
    void accepted(stream_protocol::socket socket);
    bool admits(int descriptor);
    void await_signal(const std::function<void()> &reload);
    void shut_down();

    /* A connection has work that its client holds up; looks after it until it is done. */
    void watch_stalls();
    void drop_stalled();

    Switch &target_;
    ServerOptions options_;
    SocketPlace place_;
    asio::io_context context_{1};
    stream_protocol::acceptor acceptor_;
    asio::steady_timer accept_timer_;
    asio::steady_timer stall_timer_;
    asio::signal_set signals_;
    std::set<std::shared_ptr<Connection>> connections_;
    bool watching_stalls_ = false;
    bool out_of_descriptors_ = false;
    bool full_ = false;
    std::optional<uid_t> last_stranger_;
};

/*
 * One client. Reading and writing run side by side; reading stops while the client
 * leaves more than Session::output_limit bytes of answers unread, so that neither
 * direction grows without bound.
 */
class Server::Loop::Connection : public std::enable_shared_from_this<Connection> {
  public:
    Connection(Loop &loop, stream_protocol::socket socket)
        : loop_(loop), socket_(std::move(socket)), delay_timer_(loop.context_), session_(loop.target_) {}

    void start() {
        /* Events come while another connection is served; they are sent in their turn. */
        session_.subscriber().on_events(
            [this] { asio::post(loop_.context_, [self = shared_from_this()] { self->send_events(); }); });
        read();
    }

    void close() {
        Error ignored;
        socket_.close(ignored);
        delay_timer_.cancel();
    }

    /* Since when the client has left something half done, if it has. */
    std::optional<Clock::time_point> stalled_since() const { return stalled_since_; }

    /* Closes the connection because of what its client did. */
    void drop(const char *reason) {
        if (!leave())
            return;
        ++loop_.target_.counters.dropped_connections;
        spdlog::warn("dropped a connection: {}", reason);
    }

  private:
    void read() {
        socket_.async_read_some(asio::buffer(chunk_), [self = shared_from_this()](Error error, std::size_t size) {
            self->input_.insert(self->input_.end(), self->chunk_.begin(),
                                self->chunk_.begin() + static_cast<std::ptrdiff_t>(size));
            self->received(error);
        });
    }

    void received(Error error) {
        if (!error)
            return serve();
        if (error == asio::error::operation_aborted)
            return;
        /* The client has said its last; it still gets the answers that are on their way. */
        input_ended_ = true;
        if (!writing())
            leave();
    }

    void serve() {
        std::size_t used = 0;
        std::size_t total = 0;
        do {
            used = session_.serve(Bytes(input_).subspan(total), pending_);
            total += used;
            if (!writing())
                write();
            if (session_.broken())
                return drop(session_.broken());
            if (session_.is_ended()) {
                spdlog::info("closed a connection because of a fault");
                leave();
                return;
            }
        } while (used > 0 && pending_.size() < Session::output_limit);
        input_.erase(input_.begin(), input_.begin() + static_cast<std::ptrdiff_t>(total));
        update_stall(total > 0);
        if (session_.delay())
            hold_up(*session_.delay());
        else if (pending_.size() < Session::output_limit)
            read();
        else
            reading_paused_ = true;
    }

    /* Serves the rest later. Nothing is read meanwhile, so that what the client sends waits
     * in its turn. */
    void hold_up(std::chrono::milliseconds delay) {
        delay_timer_.expires_after(delay);
        delay_timer_.async_wait([self = shared_from_this()](Error error) {
            if (error || !self->socket_.is_open())
                return;
            self->session_.resume();
            self->serve();
        });
    }

    bool writing() const { return !written_.empty(); }

    void send_events() {
        if (!socket_.is_open())
            return;
        session_.subscriber().take(pending_, Session::output_limit);
        if (writing())
            return;
        write();
        update_stall(true);
    }

    void write() {
        if (pending_.empty())
            return;
        std::swap(written_, pending_);
        asio::async_write(socket_, asio::buffer(written_), [self = shared_from_this()](Error error, std::size_t) {
            self->written_.clear();
            self->sent(error);
        });
    }

    void sent(Error error) {
        if (error == asio::error::operation_aborted)
            return;
        if (error) {
            leave();
            return;
        }
        session_.subscriber().take(pending_, Session::output_limit);
        write();
        update_stall(true);
        if (input_ended_) {
            if (!writing())
                leave();
        } else if (reading_paused_) {
            reading_paused_ = false;
            serve();
        }
    }

    /* Notes whether the client holds something up; `progress` says that it did not stand
     * still just now. */
    void update_stall(bool progress) {
        if ((input_.empty() || session_.delay()) && !writing())
            stalled_since_.reset();
        else if (progress || !stalled_since_)
            stalled_since_ = Clock::now();
        if (stalled_since_)
            loop_.watch_stalls();
    }

    /* Closes the socket and leaves the loop; false when that has happened before. */
    bool leave() {
        if (loop_.connections_.erase(shared_from_this()) == 0)
            return false;
        --loop_.target_.counters.connections;
        close();
        spdlog::debug("a client is gone, {} remain", loop_.connections_.size());
        return true;
    }

    Loop &loop_;
    stream_protocol::socket socket_;
    asio::steady_timer delay_timer_; /* while the session holds a request up */
    Session session_;
    std::array<std::uint8_t, 16384> chunk_; /* what is being received */
    Buffer input_;                          /* what has been received and not yet served */
    Buffer written_;                        /* what is being sent */
    Buffer pending_;                        /* what is sent next */
    std::optional<Clock::time_point> stalled_since_;
    bool reading_paused_ = false;
    bool input_ended_ = false;
};

void Server::Loop::accept() {
    acceptor_.async_accept([this](Error error, stream_protocol::socket socket) {
        if (error == asio::error::operation_aborted || !acceptor_.is_open())
            return;
        if (!error) {
            out_of_descriptors_ = false;
            accepted(std::move(socket));
            return accept();
        }
        /* Out of descriptors or memory: the client stays in the queue of the kernel,
         * which would report it again at once. */
        if (!out_of_descriptors_)
            spdlog::warn("cannot accept connections for now: {}", error.message());
        out_of_descriptors_ = true;
        accept_timer_.expires_after(accept_pause);
        accept_timer_.async_wait([this](Error timer_error) {
            if (!timer_error && acceptor_.is_open())
                accept();
        });
    });
}

bool Server::Loop::admits(int descriptor) {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
        may_connect(descriptor, peer, place_.group())) {
        last_stranger_.reset();
        return true;
    }
    ++target_.counters.refused_connections;
    if (last_stranger_ != peer.uid)
        spdlog::warn("refused a connection of process {}: user {} may not use this switch", peer.pid, peer.uid);
    last_stranger_ = peer.uid;
    return false;
}

void Server::Loop::accepted(stream_protocol::socket socket) {
    if (!admits(socket.native_handle()))
        return;
    if (connections_.size() >= options_.max_connections) {
        ++target_.counters.dropped_connections;
        if (!full_)
            spdlog::warn("refusing further connections: {} are open", connections_.size());
        full_ = true;
        return;
    }
    full_ = false;
    const auto connection = std::make_shared<Connection>(*this, std::move(socket));
    connections_.insert(connection);
    ++target_.counters.connections;
    connection->start();
    spdlog::debug("a client has connected, {} are open", connections_.size());
}

void Server::Loop::watch_stalls() {
    if (watching_stalls_)
        return;
    watching_stalls_ = true;
    stall_timer_.expires_after(options_.stall_timeout / 4);
    stall_timer_.async_wait([this](Error error) {
        watching_stalls_ = false;
        if (!error)
            drop_stalled();
    });
}

void Server::Loop::drop_stalled() {
    const auto latest = Clock::now() - options_.stall_timeout;
    bool waiting = false;
    const auto connections = connections_; /* dropping changes the set */
    for (const auto &connection : connections) {
        const auto since = connection->stalled_since();
        if (since && *since <= latest)
            connection->drop("its client left a frame unfinished or its answers unread for too long");
        else
            waiting = waiting || since;
    }
    if (waiting)
        watch_stalls();
}

void Server::Loop::await_signal(const std::function<void()> &reload) {
    signals_.async_wait([this, &reload](Error error, int signal) {
        if (error)
            return;
        if (signal != SIGHUP)
            return shut_down();
        reload();
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
    for (const auto &connection : connections_)
        connection->close();
    target_.counters.connections -= connections_.size();
    connections_.clear();
}

void Server::Loop::run(const std::function<void()> &reload) {
    await_signal(reload);
    accept();
    context_.run();
}

Server::Server(Switch &target, ServerOptions options) : loop_(std::make_unique<Loop>(target, std::move(options))) {}
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
