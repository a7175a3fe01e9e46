// Whatever a switch puts into the memory that it shares, or sends instead: a request ends
// with an answer that is one, or fails, and the next request of a sound switch is served.
#include <fcntl.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "fuzz_input.h"
#include "mts.h"
#include "mts/big_endian.h"
#include "mts/mts_settings.h"
#include "mts/mts_shared.h"
#include "mts/mts_wire.h"

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

// The switch: sound but for the answer to the next request in its memory.
class hostile_switch {
  public:
    hostile_switch() {
        std::string directory = std::filesystem::temp_directory_path() / "fuzz-mts-client-XXXXXX";
        require(mkdtemp(directory.data()) != nullptr);
        setenv(MTS_RUN_DIR_VARIABLE, directory.c_str(), 1);
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

    // Says how the next request in the memory is answered: elsewhere with `answer`, or there.
    void prepare(bool elsewhere, uint32_t length_beyond, bytes answer) {
        elsewhere_ = elsewhere;
        length_beyond_ = length_beyond;
        answer_ = std::move(answer);
        is_hostile_ = true; // seen by the switch once it is asked
    }

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
        shared_->switch_sleeps = 1;
        shared_->generation = 1;
        bytes shared = frame(MTS_FRAME_SHARED, correlation);
        alignas(cmsghdr) uint8_t control[CMSG_SPACE(sizeof fd)] = {};
        iovec part = {shared.data(), shared.size()};
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
        const bool is_sent = sendmsg(client_, &message, MSG_NOSIGNAL) == static_cast<ssize_t>(shared.size());
        close(fd);
        return is_sent;
    }

    bool serve_memory() {
        uint32_t posted = MTS_SHARED_POSTED;
        if (!shared_->state.compare_exchange_strong(posted, MTS_SHARED_TAKEN)) {
            return true; // the client has given up
        }
        const uint32_t correlation = read_be32(shared_->request + 8);
        bytes answer = frame(MTS_FRAME_REPLY, correlation, bytes(MTS_WIRE_REPLY_FIXED));
        const bool is_hostile = is_hostile_.exchange(false);
        const bool elsewhere = is_hostile && elsewhere_;
        uint32_t beyond = 0;
        if (is_hostile) {
            answer = answer_;
            beyond = elsewhere ? 0 : length_beyond_;
            // Where the fuzzer has hit upon a frame, it is about this request.
            if (answer.size() >= MTS_WIRE_HEADER && read_be32(answer.data() + 8) == 0) {
                write_be32(answer.data() + 8, correlation);
            }
        }
        if (!elsewhere) {
            memcpy(shared_->reply, answer.data(), answer.size());
            shared_->reply_length = static_cast<uint32_t>(answer.size()) + beyond;
        }
        shared_->state = elsewhere ? MTS_SHARED_ELSEWHERE : MTS_SHARED_ANSWERED;
        const bool is_sent = shared_->requester_sleeps == 0 || send(frame(MTS_FRAME_KNOCK, 0));
        if (elsewhere) {
            send(answer);
            return false; // nothing more is to be waited for
        }
        return is_sent;
    }

    int listener_ = -1;
    int client_ = -1;
    mts_shared_memory *shared_ = nullptr;
    std::atomic<bool> is_hostile_ = false;
    bool elsewhere_ = false;
    uint32_t length_beyond_ = 0;
    bytes answer_;
};

volatile unsigned sink;

struct result {
    uint32_t status;
    uint32_t length;
    unsigned sum; // of all bytes, so that each of them is read
};

result ask(void) {
    const uint8_t payload[4] = {1, 2, 3, 4};
    void *reply = nullptr;
    result got = {0, sizeof payload, 0};
    got.status = cmi_req_resp(149, 1, payload, &reply, &got.length, nullptr, 0, MANAGER_SAP_VSAN, mts_response_q, 20);
    for (uint32_t i = 0; i < got.length; ++i) {
        got.sum += static_cast<const uint8_t *>(reply)[i];
    }
    free(reply);
    return got;
}

// Once more over a new connection at most, and then through its memory.
void make_sound(void) {
    ask();
    require(ask().status == 0);
    require(mts_settings_generation() != 0);
}

} // namespace

// Byte 0: bit 0 the answer comes over the socket; bits 1 to 7 by how much its length in the
// memory is overstated, in steps that reach beyond the memory. The rest is the answer.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static hostile_switch &other_side = *new hostile_switch; // its thread does not end
    if (size == 0 || size - 1 > MTS_SHARED_MAX_FRAME) {
        return 0;
    }
    make_sound();
    other_side.prepare((data[0] & 1) != 0, static_cast<uint32_t>(data[0] >> 1) * 0x02010101u,
                       bytes(data + 1, data + size));
    const result got = ask();
    require(got.length <= MTS_WIRE_MAX_BODY);
    sink = got.sum;
    make_sound();
    return 0;
}
