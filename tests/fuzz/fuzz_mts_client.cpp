// SPDX-License-Identifier: Apache-2.0
// Whatever a switch puts into the memory that it shares, or sends instead: a request ends
// with exactly the reply that was sent, or fails, and the next request of a sound switch is
// served. No descriptor stays open.
#include <cstdlib>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "contract/big_endian.h"
#include "contract/frames.h"
#include "contract/run_directory.h"
#include "fuzz_input.h"
#include "mts.h"
#include "mts/mts_settings.h"
#include "mts/mts_shared.h"

namespace {

using bytes = std::vector<uint8_t>;

bytes frame(uint32_t type, uint32_t correlation, const bytes &body = {}) {
    bytes result(MTS_WIRE_HEADER);
    write_be32(result.data(), MTS_WIRE_MAGIC);
    write_be32(result.data() + 4, type);
    write_be32(result.data() + 8, correlation);
    write_be32(result.data() + 12, static_cast<uint32_t>(body.size()));
    result.insert(result.end(), body.begin(), body.end());
    return result;
}

// How the next request in the memory is answered.
struct hostile_answer {
    bool is_elsewhere;      // over the socket instead of there
    bool brings_descriptor; // elsewhere only
    uint32_t length_beyond; // by how much its length in the memory is overstated
    mts_shared_blanks blanks;
    bytes frames;
};

// The switch: sound but for the answer to the next request in its memory.
class hostile_switch {
  public:
    hostile_switch() {
        std::string directory = std::filesystem::temp_directory_path() / "fuzz-mts-client-XXXXXX";
        require(mkdtemp(directory.data()) != nullptr);
        setenv(RUN_DIRECTORY_VARIABLE, directory.c_str(), 1);
        const std::string path = directory + "/" + MTS_SOCKET_NAME;
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        memcpy(address.sun_path, path.c_str(), path.size());
        listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        require(bind(listener_, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0);
        require(listen(listener_, 16) == 0);
        // Both are there for as long as the process; clean_up leaves nothing behind.
        static std::string file, folder;
        file = path;
        folder = directory;
        atexit([] {
            unlink(file.c_str());
            rmdir(folder.c_str());
        });
        std::thread([this] { run(); }).detach();
    }

    void prepare(hostile_answer answer) {
        hostile_ = std::move(answer);
        is_hostile_ = true; // seen by the switch once it is asked
    }

    // Whether a whole frame is the reply that the client had to make out in the hostile
    // answer. Only for a client that has got one.
    bool has_answered(const bytes &reply) const {
        if (!hostile_.is_elsewhere) {
            return reply == readable_;
        }
        for (bytes rest = hostile_.frames; rest.size() >= MTS_WIRE_HEADER;) {
            const size_t size = MTS_WIRE_HEADER + read_be32(rest.data() + 12);
            require(size <= rest.size());
            if (std::equal(rest.begin() + 4, rest.begin() + 12, reply.begin() + 4)) {
                return bytes(rest.begin(), rest.begin() + static_cast<ptrdiff_t>(size)) == reply;
            }
            rest.erase(rest.begin(), rest.begin() + static_cast<ptrdiff_t>(size));
        }
        return false;
    }

    // The correlation of the request that was answered so.
    uint32_t correlation() const { return correlation_; }

  private:
    void run() {
        for (;;) {
            client_ = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
            require(client_ != -1);
            while (serve()) {
            }
            close(client_);
        }
    }

    bool receive(bytes &what, size_t size) {
        what.resize(size);
        return size == 0 || recv(client_, what.data(), size, MSG_WAITALL) == static_cast<ssize_t>(size);
    }

    bool send(const bytes &what) {
        return ::send(client_, what.data(), what.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(what.size());
    }

    bool send_with_descriptor(bytes what, int fd) {
        alignas(cmsghdr) uint8_t control[CMSG_SPACE(sizeof fd)] = {};
        iovec part = {what.data(), what.size()};
        msghdr message = {};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        cmsghdr *first = CMSG_FIRSTHDR(&message);
        first->cmsg_level = SOL_SOCKET;
        first->cmsg_type = SCM_RIGHTS;
        first->cmsg_len = CMSG_LEN(sizeof fd);
        memcpy(CMSG_DATA(first), &fd, sizeof fd);
        return sendmsg(client_, &message, MSG_NOSIGNAL) == static_cast<ssize_t>(what.size());
    }

    // Serves one frame; false at the end of the connection.
    bool serve() {
        bytes header, body;
        if (!receive(header, MTS_WIRE_HEADER) || !receive(body, read_be32(header.data() + 12))) {
            return false;
        }
        const uint32_t correlation = read_be32(header.data() + 8);
        switch (read_be32(header.data() + 4)) {
        case MTS_FRAME_SHARE:
            return share(correlation);
        case MTS_FRAME_PING:
            return send(frame(MTS_FRAME_PONG, correlation));
        case MTS_FRAME_REQUEST:
            return send(frame(MTS_FRAME_REPLY, correlation, bytes(MTS_WIRE_REPLY_FIXED)));
        default:
            return serve_memory();
        }
    }

    bool share(uint32_t correlation) {
        if (shared_ != nullptr) {
            munmap(shared_, sizeof *shared_);
        }
        const int fd = memfd_create("fuzz", MFD_CLOEXEC | MFD_ALLOW_SEALING);
        require(ftruncate(fd, sizeof *shared_) == 0 && fcntl(fd, F_ADD_SEALS, F_SEAL_SHRINK) == 0);
        void *mapped = mmap(nullptr, sizeof *shared_, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        require(mapped != MAP_FAILED);
        shared_ = static_cast<mts_shared_memory *>(mapped);
        shared_->version = MTS_SHARED_VERSION;
        shared_->switch_sleeps = 1;
        shared_->generation = 1;
        const bool is_sent = send_with_descriptor(frame(MTS_FRAME_SHARED, correlation), fd);
        close(fd);
        return is_sent;
    }

    bool serve_memory() {
        uint32_t posted = MTS_SHARED_POSTED;
        if (!shared_->state.compare_exchange_strong(posted, MTS_SHARED_TAKEN)) {
            return true; // the client has given up
        }
        const uint32_t correlation = read_be32(shared_->request + 8);
        return is_hostile_.exchange(false) ? answer_hostilely(correlation) : answer_soundly(correlation);
    }

    bool answer_soundly(uint32_t correlation) {
        const bytes answer = frame(MTS_FRAME_REPLY, correlation, bytes(MTS_WIRE_REPLY_FIXED));
        shared_->reply_blanks = mts_shared_write(shared_->reply, answer.data(), answer.size());
        shared_->reply_length = static_cast<uint32_t>(answer.size());
        return finish(MTS_SHARED_ANSWERED);
    }

    bool answer_hostilely(uint32_t correlation) {
        bytes &frames = hostile_.frames;
        // Where the fuzzer has hit upon a frame, it is about this request.
        if (frames.size() >= MTS_WIRE_HEADER && read_be32(frames.data() + 8) == 0) {
            write_be32(frames.data() + 8, correlation);
        }
        correlation_ = correlation;
        if (hostile_.is_elsewhere) {
            finish(MTS_SHARED_ELSEWHERE);
            hostile_.brings_descriptor ? send_with_descriptor(frames, listener_) : send(frames);
            return false; // nothing more is to be waited for
        }
        if (!frames.empty()) {
            memcpy(shared_->reply, frames.data(), frames.size());
        }
        shared_->reply_length = static_cast<uint32_t>(frames.size()) + hostile_.length_beyond;
        shared_->reply_blanks = hostile_.blanks;
        // What is left out is zero, and what does not fit is nothing.
        readable_.resize(shared_->reply_length > MTS_SHARED_MAX_FRAME ? 0 : shared_->reply_length);
        for (size_t i = 0; i < readable_.size(); ++i) {
            const size_t line = i / MTS_SHARED_LINE;
            const bool is_whole = (line + 1) * MTS_SHARED_LINE <= readable_.size();
            const bool is_blank = is_whole && (hostile_.blanks.words[line / 32] >> line % 32 & 1) != 0;
            readable_[i] = is_blank ? uint8_t{0} : shared_->reply[i];
        }
        return finish(MTS_SHARED_ANSWERED);
    }

    // Says that the request is done, and wakes a client that sleeps.
    bool finish(mts_shared_state state) {
        shared_->state = state;
        return shared_->requester_sleeps == 0 || send(frame(MTS_FRAME_KNOCK, 0));
    }

    int listener_ = -1;
    int client_ = -1;
    mts_shared_memory *shared_ = nullptr;
    std::atomic<bool> is_hostile_ = false;
    hostile_answer hostile_ = {};
    uint32_t correlation_ = 0; // of the request that the hostile answer was about
    bytes readable_;           // what that says to a client, where it is in the memory
};

// What the client has made of an answer.
struct outcome {
    uint32_t status;
    std::optional<bytes> data;
};

outcome ask(void) {
    const uint8_t payload[4] = {1, 2, 3, 4};
    void *reply = nullptr;
    uint32_t length = sizeof payload;
    outcome got = {};
    got.status = cmi_req_resp(149, 1, payload, &reply, &length, nullptr, 0, MANAGER_SAP_VSAN, mts_response_q, 20);
    require(reply != nullptr || length == 0);
    if (reply != nullptr) {
        const auto *first = static_cast<const uint8_t *>(reply);
        got.data = bytes(first, first + length);
    }
    free(reply);
    return got;
}

// The frame that says just this.
bytes reply_of(uint32_t correlation, const outcome &got) {
    bytes body(MTS_WIRE_REPLY_FIXED);
    write_be32(body.data(), got.status);
    write_be32(body.data() + 4, got.data.has_value());
    if (got.data) {
        body.insert(body.end(), got.data->begin(), got.data->end());
    }
    return frame(MTS_FRAME_REPLY, correlation, body);
}

// Once more over a new connection at most, and then through its memory.
void make_sound(void) {
    ask();
    require(ask().status == 0);
    require(mts_settings_generation() != 0);
}

} // namespace

// Byte 0: bit 0 the answer comes over the socket; bits 1 to 7 whether a descriptor comes with
// it there, or else by how much its length in the memory is overstated, in steps that reach
// beyond the memory. Bytes 1 to 8: which lines in the memory are said to be blank. The rest is
// the answer.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static hostile_switch &other_side = *new hostile_switch; // its thread does not end
    constexpr size_t fixed = 9;
    if (size < fixed || size - fixed > MTS_SHARED_MAX_FRAME) {
        return 0;
    }
    make_sound();
    const ptrdiff_t descriptors = open_descriptors();
    const uint32_t more = data[0] >> 1;
    other_side.prepare({.is_elsewhere = (data[0] & 1) != 0,
                        .brings_descriptor = more != 0,
                        .length_beyond = more * 0x02010101u,
                        .blanks = {{read_be32(data + 1), read_be32(data + 5)}},
                        .frames = bytes(data + fixed, data + size)});
    const outcome got = ask();
    if (got.status == UINT32_MAX) {
        require(!got.data);
    } else {
        require(other_side.has_answered(reply_of(other_side.correlation(), got)), "the reply is not what was sent");
    }
    make_sound();
    require(open_descriptors() == descriptors, "descriptors are left open");
    return 0;
}
