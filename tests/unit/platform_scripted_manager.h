// SPDX-License-Identifier: Apache-2.0
// A manager process as the tests need it: it listens on the message socket of a
// run directory of its own, and does what a test tells it, one frame at a time.
// Every wait of it is bounded and ends in an exception.
#ifndef PLATFORM_SCRIPTED_MANAGER_H
#define PLATFORM_SCRIPTED_MANAGER_H

#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "contract/big_endian.h"
#include "contract/frames.h"
#include "contract/run_directory.h"
#include "contract/services.h"

using bytes = std::vector<uint8_t>;

inline bytes words(std::initializer_list<uint32_t> values) {
    bytes result(values.size() * 4);
    size_t at = 0;
    for (const uint32_t value : values) {
        write_be32(result.data() + at, value);
        at += 4;
    }
    return result;
}

inline bytes operator+(bytes left, const bytes &right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

struct wire_frame {
    uint32_t type = 0;
    uint32_t correlation = 0;
    bytes body;

    uint32_t word(size_t position) const { return read_be32(body.data() + position); }
};

inline bytes frame_bytes(uint32_t type, uint32_t correlation, const bytes &body) {
    return words({MTS_WIRE_MAGIC, type, correlation, static_cast<uint32_t>(body.size())}) + body;
}

inline bytes reply_bytes(uint32_t correlation, uint32_t status) {
    return frame_bytes(MTS_FRAME_REPLY, correlation, words({status, 0}));
}

inline bytes reply_bytes(uint32_t correlation, uint32_t status, const bytes &data) {
    return frame_bytes(MTS_FRAME_REPLY, correlation, words({status, 1}) + data);
}

inline bytes pong_bytes(uint32_t correlation) {
    return frame_bytes(MTS_FRAME_PONG, correlation, {});
}

// A temporary directory that the platform libraries take for the run directory.
class temporary_run_directory {
  public:
    temporary_run_directory() {
        path_ = std::filesystem::temp_directory_path() / "platform-test-XXXXXX";
        if (mkdtemp(path_.data()) == nullptr) {
            throw std::runtime_error("cannot make a temporary directory");
        }
        setenv(RUN_DIRECTORY_VARIABLE, path_.c_str(), 1);
    }
    ~temporary_run_directory() { std::filesystem::remove_all(path_); }
    temporary_run_directory(const temporary_run_directory &) = delete;
    temporary_run_directory &operator=(const temporary_run_directory &) = delete;

    const std::string &path() const { return path_; }
    std::string file(const std::string &name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};

// The manager's end of one connection.
class manager_connection {
  public:
    explicit manager_connection(int fd) : fd_(fd) {}
    manager_connection(manager_connection &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    manager_connection &operator=(manager_connection &&) = delete;
    ~manager_connection() { close(); }

    void close() {
        if (fd_ != -1) {
            ::close(std::exchange(fd_, -1));
        }
    }

    // The next frame that is no SHARE: this manager gives no memory.
    wire_frame receive() {
        wire_frame frame = receive_any();
        while (frame.type == MTS_FRAME_SHARE) {
            send(pong_bytes(frame.correlation));
            frame = receive_any();
        }
        return frame;
    }

    wire_frame receive_any() {
        const bytes header = receive_bytes(MTS_WIRE_HEADER);
        if (read_be32(header.data()) != MTS_WIRE_MAGIC) {
            throw std::runtime_error("the client sent no frame");
        }
        return {read_be32(header.data() + 4), read_be32(header.data() + 8),
                receive_bytes(read_be32(header.data() + 12))};
    }

    void send(const bytes &what) {
        for (size_t sent = 0; sent < what.size();) {
            const ssize_t n = ::send(fd_, what.data() + sent, what.size() - sent, MSG_NOSIGNAL);
            if (n <= 0) {
                throw std::runtime_error(std::string("send: ") + strerror(errno));
            }
            sent += static_cast<size_t>(n);
        }
    }

    // Sends bytes with descriptors beside them.
    void send(const bytes &what, const std::vector<int> &descriptors) {
        iovec part = {const_cast<uint8_t *>(what.data()), what.size()};
        const size_t size = descriptors.size() * sizeof(int);
        std::vector<uint8_t> control(CMSG_SPACE(size));
        msghdr message = {};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        cmsghdr *header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(size);
        memcpy(CMSG_DATA(header), descriptors.data(), size);
        if (sendmsg(fd_, &message, MSG_NOSIGNAL) != static_cast<ssize_t>(what.size())) {
            throw std::runtime_error(std::string("sendmsg: ") + strerror(errno));
        }
    }

    // Serves one request with status 0 and no data.
    wire_frame serve() {
        const wire_frame request = receive();
        send(reply_bytes(request.correlation, 0));
        return request;
    }

    // Whether the client has closed its end; waits for it.
    bool is_closed_by_client() {
        uint8_t byte;
        await(fd_);
        return recv(fd_, &byte, 1, 0) <= 0;
    }

    // Whether the client has sent something that was not received.
    bool has_input() const {
        pollfd poller = {fd_, POLLIN, 0};
        return poll(&poller, 1, 0) == 1;
    }

    int descriptor() const { return fd_; }

    static void await(int fd) {
        pollfd poller = {fd, POLLIN, 0};
        if (poll(&poller, 1, 10000) != 1) {
            throw std::runtime_error("nothing came from the client");
        }
    }

  private:
    bytes receive_bytes(size_t length) {
        bytes result(length);
        for (size_t got = 0; got < length;) {
            await(fd_);
            const ssize_t n = recv(fd_, result.data() + got, length - got, 0);
            if (n <= 0) {
                throw std::runtime_error("the client closed the connection");
            }
            got += static_cast<size_t>(n);
        }
        return result;
    }

    int fd_;
};

class scripted_manager {
  public:
    explicit scripted_manager(const std::string &run_directory, int backlog = 16)
        : path_(run_directory + "/" + MTS_SOCKET_NAME), fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const sockaddr_un address = socket_address(path_);
        unlink(path_.c_str());
        if (bind(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 || listen(fd_, backlog) != 0) {
            throw std::runtime_error(std::string("cannot listen: ") + strerror(errno));
        }
    }
    ~scripted_manager() { stop(); }
    scripted_manager(const scripted_manager &) = delete;
    scripted_manager &operator=(const scripted_manager &) = delete;

    // From here on the kernel takes the calling user for the one who listens.
    void listen_again() {
        if (listen(fd_, 16) != 0) {
            throw std::runtime_error(std::string("cannot listen: ") + strerror(errno));
        }
    }

    // Stops listening; the socket file stays behind, as after a kill.
    void stop() {
        if (fd_ != -1) {
            close(std::exchange(fd_, -1));
        }
    }

    manager_connection accept() {
        manager_connection::await(fd_);
        return manager_connection(accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC));
    }

    // Whether a client has connected that was not accepted.
    bool has_visitor() const {
        pollfd poller = {fd_, POLLIN, 0};
        return poll(&poller, 1, 0) == 1;
    }

    static sockaddr_un socket_address(const std::string &path) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        if (path.size() >= sizeof address.sun_path) {
            throw std::runtime_error("socket path too long");
        }
        memcpy(address.sun_path, path.c_str(), path.size());
        return address;
    }

    const std::string &path() const { return path_; }

  private:
    std::string path_;
    int fd_;
};

// So many visitors at a manager's socket, none of whom is accepted, that no other can connect.
class full_backlog {
  public:
    explicit full_backlog(const scripted_manager &manager) {
        const sockaddr_un address = scripted_manager::socket_address(manager.path());
        int result = 0;
        while (result == 0) {
            visitors_.push_back(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
            result = connect(visitors_.back(), reinterpret_cast<const sockaddr *>(&address), sizeof address);
        }
        if (errno != EAGAIN) {
            throw std::runtime_error(std::string("cannot fill the backlog: ") + strerror(errno));
        }
    }
    ~full_backlog() {
        for (const int fd : visitors_) {
            close(fd);
        }
    }
    full_backlog(const full_backlog &) = delete;
    full_backlog &operator=(const full_backlog &) = delete;

  private:
    std::vector<int> visitors_;
};

#endif
