// SPDX-License-Identifier: Apache-2.0
// What the virtual switch's tests share: requests by hand, folders that go away, a
// client that never waits for ever.
#ifndef VSWITCH_TEST_SUPPORT_H
#define VSWITCH_TEST_SUPPORT_H

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <poll.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "contract/attributes.h"
#include "contract/frames.h"
#include "contract/run_directory.h"
#include "contract/status_codes.h"
#include "model/configuration.h"
#include "model/refusal.h"
#include "mts.h"
#include "network/frames.h"
#include "services/records.h"
#include "services/services.h"

namespace vswitch_test {

using vswitch::Buffer;
using vswitch::Bytes;

inline Buffer words(std::initializer_list<uint32_t> values) {
    Buffer buffer;
    for (const uint32_t value : values) {
        vswitch::append_word(buffer, value);
    }
    return buffer;
}

inline uint32_t word(Bytes bytes, size_t offset) {
    return vswitch::load_word(bytes, offset).value();
}

inline Buffer vsan_block(uint32_t id) {
    Buffer block(VSAN_BLOCK_SIZE);
    vswitch::store_word(block, VSAN_RECORD_AT, id);
    return block;
}

inline Buffer timer_record(uint32_t key, uint8_t per_vsan, uint32_t vsan, uint32_t value = 0, uint8_t force = 0) {
    Buffer record;
    vswitch::append_timer_record(record, {key, value, per_vsan, force, vsan, 0});
    return record;
}

inline Buffer text_bytes(const std::string &text) {
    return Buffer(text.begin(), text.end());
}

// A REQUEST frame. `length` is the length word where it is not the payload's size.
inline Buffer request_frame(uint32_t correlation, uint32_t service, uint32_t opcode, uint32_t kind,
                            const Buffer &payload, std::optional<uint32_t> length = std::nullopt,
                            const std::string &user = "") {
    const auto size = static_cast<uint32_t>(payload.size());
    const auto user_size = static_cast<uint32_t>(user.size());
    Buffer frame = words({MTS_WIRE_MAGIC, MTS_FRAME_REQUEST, correlation, MTS_WIRE_REQUEST_FIXED + size + user_size,
                          service, opcode, kind, length.value_or(size), 0, size, user_size});
    frame.insert(frame.end(), payload.begin(), payload.end());
    frame.insert(frame.end(), user.begin(), user.end());
    return frame;
}

// The sentence of the Refusal that `action` throws, or "" when it throws none.
template <typename Action> std::string refusal_of(Action action) {
    try {
        action();
    } catch (const vswitch::Refusal &refusal) {
        return refusal.what();
    }
    return "";
}

inline bool contains(const std::string &text, const std::string &part) {
    return text.find(part) != std::string::npos;
}

class TemporaryFolder {
  public:
    TemporaryFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "vswitch_test.XXXXXX").string();
        if (!mkdtemp(name.data())) {
            throw std::runtime_error("no temporary folder");
        }
        path_ = name;
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder &) = delete;
    TemporaryFolder &operator=(const TemporaryFolder &) = delete;

    const std::string &path() const { return path_; }
    std::string operator/(const std::string &name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};

inline std::string file_content(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

inline void write_file(const std::string &path, const std::string &content) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content;
    file.close();
    ASSERT_TRUE(file) << path;
}

// All files of a folder with their content.
inline std::map<std::string, std::string> folder_content(const std::string &path) {
    std::map<std::string, std::string> content;
    for (const auto &entry : std::filesystem::directory_iterator(path)) {
        if (entry.is_regular_file()) {
            content[entry.path().filename().string()] = file_content(entry.path().string());
        }
    }
    return content;
}

// A client of the daemon's socket. No call waits longer than `patience`.
class Client {
  public:
    static constexpr int patience = 10000; // milliseconds

    explicit Client(const std::string &socket_path) : socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, socket_path.c_str(), sizeof address.sun_path - 1);
        if (connect(socket_, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
            throw std::runtime_error("cannot connect to " + socket_path + ": " + std::strerror(errno));
        }
    }
    ~Client() { close(socket_); }
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    // False when the daemon has closed the connection.
    bool send(const Buffer &bytes) {
        size_t sent = 0;
        while (sent < bytes.size()) {
            const ssize_t result = ::send(socket_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
            if (result <= 0) {
                return false;
            }
            sent += static_cast<size_t>(result);
        }
        return true;
    }

    // How many bytes the daemon takes before it has stopped reading for `quiet` milliseconds.
    size_t send_until_blocked(const Buffer &bytes, size_t limit, int quiet) {
        size_t total = 0;
        size_t offset = 0;
        pollfd state{socket_, POLLOUT, 0};
        while (total < limit && poll(&state, 1, quiet) == 1) {
            const ssize_t result =
                ::send(socket_, bytes.data() + offset, bytes.size() - offset, MSG_NOSIGNAL | MSG_DONTWAIT);
            if (result <= 0) {
                break;
            }
            total += static_cast<size_t>(result);
            offset = (offset + static_cast<size_t>(result)) % bytes.size();
        }
        return total;
    }

    void finish_sending() { shutdown(socket_, SHUT_WR); }

    int descriptor() const { return socket_; }

    // Whether something has come that was not received.
    bool has_input() const {
        pollfd state{socket_, POLLIN, 0};
        return poll(&state, 1, 0) == 1;
    }

    // How many bytes have come that were not received.
    size_t waiting_bytes() const {
        int bytes = 0;
        ioctl(socket_, FIONREAD, &bytes);
        return static_cast<size_t>(bytes);
    }

    // Up to `size` bytes; fewer when the daemon closed the connection.
    Buffer receive(size_t size) {
        Buffer bytes;
        while (bytes.size() < size) {
            pollfd state{socket_, POLLIN, 0};
            if (poll(&state, 1, patience) != 1) {
                throw std::runtime_error("the daemon does not answer");
            }
            uint8_t chunk[65536];
            const ssize_t result = recv(socket_, chunk, std::min(sizeof chunk, size - bytes.size()), 0);
            if (result <= 0) {
                break;
            }
            bytes.insert(bytes.end(), chunk, chunk + result);
        }
        return bytes;
    }

    // Whether the daemon closes the connection although its answers were not read.
    bool hung_up() {
        pollfd state{socket_, 0, 0};
        return poll(&state, 1, patience) == 1 && (state.revents & POLLHUP) != 0;
    }

    bool closed_by_daemon() { return receive(1).empty(); }

    struct Answer {
        uint32_t type = 0, correlation = 0, status = 0, event_class = 0;
        bool has_data = false;
        Buffer data;

        bool operator==(const Answer &) const = default;
    };

    Answer receive_answer() {
        Buffer frame = receive(MTS_WIRE_HEADER);
        if (frame.size() < MTS_WIRE_HEADER) {
            throw std::runtime_error("the daemon closed the connection");
        }
        const Buffer body = receive(word(frame, 12));
        frame.insert(frame.end(), body.begin(), body.end());
        return answer_in(frame);
    }

    // What a whole frame says.
    static Answer answer_in(Bytes frame) {
        Answer answer;
        answer.type = word(frame, 4);
        answer.correlation = word(frame, 8);
        const Bytes body = frame.subspan(MTS_WIRE_HEADER);
        if (answer.type == MTS_FRAME_REPLY) {
            answer.status = word(body, 0);
            answer.has_data = word(body, 4) == 1;
            answer.data.assign(body.begin() + MTS_WIRE_REPLY_FIXED, body.end());
        } else if (answer.type == MTS_FRAME_EVENT) {
            answer.event_class = word(body, 0);
            answer.data.assign(body.begin() + MTS_WIRE_EVENT_FIXED, body.end());
        }
        return answer;
    }

    Answer request(uint32_t service, uint32_t opcode, uint32_t kind, const Buffer &payload,
                   std::optional<uint32_t> length = std::nullopt) {
        if (!send(request_frame(++correlation_, service, opcode, kind, payload, length))) {
            throw std::runtime_error("the daemon closed the connection");
        }
        return receive_answer();
    }

    // Subscribes to event classes and waits for the confirmation.
    void subscribe(std::initializer_list<uint32_t> classes) {
        Buffer frame =
            words({MTS_WIRE_MAGIC, MTS_FRAME_SUBSCRIBE, ++correlation_, static_cast<uint32_t>(4 * classes.size())});
        const Buffer body = words(classes);
        frame.insert(frame.end(), body.begin(), body.end());
        if (!send(frame)) {
            throw std::runtime_error("the daemon closed the connection");
        }
        receive_answer();
    }

    // The number of VSANs; the smallest proof that the daemon serves.
    uint32_t vsan_count() { return word(request(MANAGER_SAP_VSAN, 125, 1, {}, 4).data, 0); }

  private:
    int socket_;
    uint32_t correlation_ = 0;
};

} // namespace vswitch_test

#endif
