// SPDX-License-Identifier: Apache-2.0
// Whatever a client puts into the memory that it shares with the daemon, and sends beside
// it: what the daemon puts there and sends are well-formed frames, or it ends the
// conversation, as it does where something else than one request is posted.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include "contract/frames.h"
#include "fuzz_input.h"
#include "model/configuration.h"
#include "network/connection.h"

using namespace vswitch;

namespace {

ServedSwitch make_switch() {
    return ServedSwitch(parse_configuration(R"({
        "vsans": [{"id": 10, "timers": {"ratov": 20000}}, {"id": 4095, "state": "suspended"}],
        "ports": [{"ifIndex": 1}, {"ifIndex": 16777216, "vsan": 10}, {"ifIndex": 4294967295, "vsan": 4095}]})",
                                            "fuzz"),
                        Roles());
}

// The loop that the connection lives in, which does only what the input says.
class Host final : public ConnectionHost {
  public:
    ServedSwitch &the_switch() override { return target_; }
    asio::io_context &context() override { return context_; }
    bool left(Connection &) override { return std::exchange(connected_, false); }
    void shares_memory(Connection &) override { shares_ = true; }
    uint32_t generation() const override { return 1; }
    void served(bool) override {}
    void watch_stalls() override {}

    bool connected() const { return connected_; }
    bool shares() const { return shares_ && connected_; }

    // Lets what has come be served, without waiting.
    void poll() {
        context_.restart();
        context_.poll();
    }

  private:
    ServedSwitch target_ = make_switch();
    asio::io_context context_{1};
    bool connected_ = true;
    bool shares_ = false;
};

class HostileClient {
  public:
    explicit HostileClient(int socket) : socket_(socket) {}
    ~HostileClient() {
        unmap();
        close(socket_);
    }

    void send(Bytes bytes) { (void)!::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT); }

    // Receives what the daemon has sent, its memory among it.
    void receive(std::vector<uint8_t> &received) {
        for (;;) {
            std::array<uint8_t, 65536> chunk;
            alignas(cmsghdr) uint8_t control[CMSG_SPACE(sizeof(int))];
            iovec part{chunk.data(), chunk.size()};
            msghdr message{};
            message.msg_iov = &part;
            message.msg_iovlen = 1;
            message.msg_control = control;
            message.msg_controllen = sizeof control;
            const ssize_t got = recvmsg(socket_, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
            if (got <= 0) {
                return;
            }
            received.insert(received.end(), chunk.begin(), chunk.begin() + got);
            if (const cmsghdr *first = CMSG_FIRSTHDR(&message)) {
                map(first);
            }
        }
    }

    mts_shared_memory *shared() { return shared_; }

  private:
    void map(const cmsghdr *control) {
        int descriptor = -1;
        std::memcpy(&descriptor, CMSG_DATA(control), sizeof descriptor);
        unmap();
        void *mapped = mmap(nullptr, sizeof *shared_, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
        require(mapped != MAP_FAILED);
        shared_ = static_cast<mts_shared_memory *>(mapped);
        shared_->requester_version = MTS_SHARED_VERSION;
        close(descriptor);
    }

    void unmap() {
        if (shared_) {
            munmap(shared_, sizeof *shared_);
        }
        shared_ = nullptr;
    }

    int socket_;
    mts_shared_memory *shared_ = nullptr;
};

// Takes the whole frames at the start of `bytes`, which must be such as a daemon sends.
void check(std::vector<uint8_t> &bytes) {
    size_t used = 0;
    while (bytes.size() - used >= MTS_WIRE_HEADER) {
        const Bytes rest = Bytes(bytes).subspan(used);
        const uint32_t type = load_word(rest, 4).value();
        const uint32_t size = load_word(rest, 12).value();
        require(load_word(rest, 0) == MTS_WIRE_MAGIC && size <= MTS_WIRE_MAX_BODY);
        const bool is_sign = type == MTS_FRAME_PONG || type == MTS_FRAME_SHARED || type == MTS_FRAME_KNOCK;
        require((type == MTS_FRAME_REPLY && size >= MTS_WIRE_REPLY_FIXED) ||
                (type == MTS_FRAME_EVENT && size >= MTS_WIRE_EVENT_FIXED) || (is_sign && size == 0));
        if (rest.size() < size_t{MTS_WIRE_HEADER} + size) {
            break;
        }
        used += size_t{MTS_WIRE_HEADER} + size;
    }
    bytes.erase(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(used));
}

// Posts a request of which some lines are said to be blank: two words, and the bytes that
// are there. Its length may be more than is true.
void post(mts_shared_memory &shared, Bytes input, uint32_t length_beyond) {
    shared.request_blanks = {{load_word(input, 0).value_or(0), load_word(input, 4).value_or(0)}};
    const Bytes bytes = input.subspan(std::min<size_t>(input.size(), sizeof shared.request_blanks));
    std::ranges::copy(bytes.first(std::min<size_t>(bytes.size(), MTS_SHARED_MAX_FRAME)), shared.request);
    shared.request_length = static_cast<uint32_t>(bytes.size()) + length_beyond;
    shared.state = MTS_SHARED_POSTED;
}

// What a daemon sees of it.
std::vector<uint8_t> request_in(const mts_shared_memory &shared) {
    std::vector<uint8_t> request(std::min(shared.request_length, MTS_SHARED_MAX_FRAME));
    mts_shared_read(request.data(), request.size(), shared.request, shared.request_blanks);
    return request;
}

// Whether the bytes are one REQUEST frame, whatever its body is.
bool is_one_request(Bytes bytes) {
    return load_word(bytes, 0) == MTS_WIRE_MAGIC && load_word(bytes, 4) == MTS_FRAME_REQUEST &&
           load_word(bytes, 12) == bytes.size() - MTS_WIRE_HEADER;
}

// Whether the answer in the memory is one frame, exactly, and that to the request.
void check_answer(const mts_shared_memory &shared, Bytes request) {
    require(shared.reply_length <= MTS_SHARED_MAX_FRAME);
    std::vector<uint8_t> answer(shared.reply_length);
    mts_shared_read(answer.data(), answer.size(), shared.reply, shared.reply_blanks);
    require(load_word(answer, 4) == MTS_FRAME_REPLY && load_word(answer, 8) == load_word(request, 8));
    check(answer);
    require(answer.empty());
}

// Whether a daemon that has been at a request has done what it had to.
void check_served(const mts_shared_memory &shared, bool connected) {
    const std::vector<uint8_t> request = request_in(shared);
    const bool is_taken = shared.state != MTS_SHARED_POSTED; // not where the daemon has given other memory since
    if (is_taken && !is_one_request(request)) {
        require(!connected, "a client that posts no request stays connected");
    }
    if (shared.state == MTS_SHARED_ANSWERED) {
        check_answer(shared, request);
    }
}

// Steps, each one of: byte 0 what, bytes 1 and 2 a length, then that many bytes.
void converse(Bytes input) {
    int ends[2];
    require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0);
    Host host;
    HostileClient client(ends[0]);
    std::vector<uint8_t> received;
    {
        const auto connection = std::make_shared<Connection>(
            host, asio::local::stream_protocol::socket(host.context(), asio::local::stream_protocol(), ends[1]));
        connection->start();
        while (input.size() >= 3 && host.connected()) {
            const uint8_t step = input[0];
            const size_t length = std::min<size_t>(size_t{input[1]} << 8 | input[2], input.size() - 3);
            const Bytes bytes = input.subspan(3, length);
            input = input.subspan(3 + length);
            mts_shared_memory *shared = client.shared();
            bool posts = false;
            switch (step % 4) {
            case 0:
                client.send(bytes);
                break;
            case 1:
                if (!shared) {
                    break;
                }
                shared->requester_sleeps = step >> 2 & 1;
                post(*shared, bytes, (step >> 4) * 0x11110000u);
                posts = true;
                break;
            case 2: // words that are the daemon's
                if (!shared) {
                    break;
                }
                shared->state = step >> 2 & 7;
                shared->generation = step;
                shared->reply_length = step * 0x01010101u;
                break;
            default: // an answer is not read
                break;
            }
            if (host.shares()) {
                connection->serve_memory();
            }
            if (posts) {
                check_served(*shared, host.connected());
            }
            host.poll();
            if (step % 4 != 3) {
                client.receive(received);
            }
            check(received);
        }
        if (host.connected()) {
            connection->drop("the input ends");
        }
    }
    host.poll(); // what was under way lets the connection go
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const ptrdiff_t descriptors = open_descriptors();
    converse(Bytes(data, size));
    require(open_descriptors() == descriptors, "descriptors are left open");
    return 0;
}
