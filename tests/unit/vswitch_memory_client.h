// SPDX-License-Identifier: Apache-2.0
// Clients that share memory with the daemon, whose loop is in this process.
#ifndef VSWITCH_MEMORY_CLIENT_H
#define VSWITCH_MEMORY_CLIENT_H

#include <algorithm>
#include <chrono>
#include <fcntl.h>
#include <memory>
#include <sys/mman.h>
#include <thread>

#include "mts/mts_shared.h"
#include "vswitch_server_fixture.h"

namespace vswitch_test {

inline Buffer sign(uint32_t type, uint32_t correlation = 0) {
    return words({MTS_WIRE_MAGIC, type, correlation, 0});
}

inline Buffer operator+(Buffer left, const Buffer &right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

class MemoryClient {
  public:
    explicit MemoryClient(const std::string &socket_path) : socket(socket_path) { share(); }
    ~MemoryClient() {
        munmap(shared_, sizeof *shared_);
        close(descriptor_);
    }
    MemoryClient(const MemoryClient &) = delete;
    MemoryClient &operator=(const MemoryClient &) = delete;

    mts_shared_memory *operator->() const { return shared_; }
    int descriptor() const { return descriptor_; }

    // Asks for memory and forgets the former.
    void share() {
        socket.send(sign(MTS_FRAME_SHARE, ++correlation_));
        uint8_t frame[MTS_WIRE_HEADER];
        alignas(cmsghdr) uint8_t control[CMSG_SPACE(sizeof(int))];
        iovec part{frame, sizeof frame};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        if (recvmsg(socket.descriptor(), &message, MSG_CMSG_CLOEXEC) != sizeof frame || !CMSG_FIRSTHDR(&message) ||
            Buffer(frame, frame + sizeof frame) != sign(MTS_FRAME_SHARED, correlation_)) {
            throw std::runtime_error("the daemon gives no memory");
        }
        if (shared_) {
            munmap(shared_, sizeof *shared_);
            close(descriptor_);
        }
        std::memcpy(&descriptor_, CMSG_DATA(CMSG_FIRSTHDR(&message)), sizeof descriptor_);
        void *mapped = mmap(nullptr, sizeof *shared_, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor_, 0);
        if (mapped == MAP_FAILED) {
            throw std::runtime_error("the daemon's memory cannot be mapped");
        }
        shared_ = static_cast<mts_shared_memory *>(mapped);
        shared_->requester_version = MTS_SHARED_VERSION;
    }

    // Puts bytes where the daemon sees them, and wakes it; false when it has closed the
    // connection.
    bool post(const Buffer &bytes) {
        shared_->request_blanks = mts_shared_write(shared_->request, bytes.data(), bytes.size());
        shared_->request_length = static_cast<uint32_t>(bytes.size());
        return post_again();
    }
    bool post_again() {
        shared_->state = MTS_SHARED_POSTED;
        return shared_->switch_sleeps == 0 || socket.send(sign(MTS_FRAME_KNOCK));
    }

    // The state that the daemon leaves the request in.
    uint32_t await_end() const {
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(Client::patience);
        while (shared_->state == MTS_SHARED_POSTED || shared_->state == MTS_SHARED_TAKEN) {
            if (std::chrono::steady_clock::now() > end) {
                throw std::runtime_error("the daemon does not serve the memory");
            }
            std::this_thread::yield();
        }
        return shared_->state;
    }

    Buffer reply() const {
        Buffer frame(shared_->reply_length);
        mts_shared_read(frame.data(), frame.size(), shared_->reply, shared_->reply_blanks);
        return frame;
    }

    Client::Answer receive_answer() {
        if (await_end() == MTS_SHARED_ANSWERED) {
            return Client::answer_in(reply());
        }
        return socket.receive_answer();
    }

    Client::Answer request(uint32_t service, uint32_t opcode, uint32_t kind, const Buffer &payload,
                           std::optional<uint32_t> length = std::nullopt) {
        post(request_frame(++correlation_, service, opcode, kind, payload, length));
        return receive_answer();
    }

    uint32_t vsan_count() { return word(request(MANAGER_SAP_VSAN, 125, 1, {}, 4).data, 0); }

    Client socket;

  private:
    mts_shared_memory *shared_ = nullptr;
    int descriptor_ = -1;
    uint32_t correlation_ = 1000;
};

class MemoryTest : public ServerTest {
  protected:
    std::unique_ptr<MemoryClient> share() { return std::make_unique<MemoryClient>(folder_ / MTS_SOCKET_NAME); }

    // What the operator's tool says, on a connection of its own.
    void command(const std::string &json) {
        const auto answer = connect()->request(MTS_SERVICE_SWITCH, MTS_OP_SWITCH_COMMAND, 3, text_bytes(json));
        ASSERT_EQ(answer.status, STATUS_SUCCESS) << std::string(answer.data.begin(), answer.data.end());
    }
};

} // namespace vswitch_test

#endif
