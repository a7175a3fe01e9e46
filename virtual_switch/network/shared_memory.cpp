// SPDX-License-Identifier: Apache-2.0
#include "network/shared_memory.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <spdlog/spdlog.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace vswitch {

namespace {

using namespace std::chrono_literals;

// A longer pause is no part of a burst; how long the watches are.
constexpr SpinWait::Clock::duration longest_gap = 250us;
constexpr SpinWait::Clock::duration shortest_watch = 20us;

// How slowly a longer gap is forgotten: a client that reads rows in packets of fifty makes
// one such gap for each.
constexpr int memory_of_gaps = 256;

bool send_with_descriptor(int socket, Bytes frame, int descriptor) {
    iovec part{const_cast<uint8_t *>(frame.data()), frame.size()};
    alignas(cmsghdr) uint8_t control[CMSG_SPACE(sizeof descriptor)] = {};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    cmsghdr *header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof descriptor);
    std::memcpy(CMSG_DATA(header), &descriptor, sizeof descriptor);
    return sendmsg(socket, &message, MSG_NOSIGNAL | MSG_DONTWAIT) == static_cast<ssize_t>(frame.size());
}

// New memory that nobody can make smaller: that would turn reading it into a signal.
mts_shared_memory *map_new(int descriptor) {
    if (ftruncate(descriptor, sizeof(mts_shared_memory)) != 0 ||
        fcntl(descriptor, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) != 0) {
        return nullptr;
    }
    void *mapped = mmap(nullptr, sizeof(mts_shared_memory), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    if (mapped == MAP_FAILED) {
        return nullptr;
    }
    return new (mapped) mts_shared_memory{};
}

// Whether the requester knows this layout. Says it once, of the first that does not.
bool is_of_same_version(const mts_shared_memory &shared) {
    const uint32_t version = shared.requester_version.load(std::memory_order_relaxed);
    if (version == MTS_SHARED_VERSION) {
        return true;
    }
    static bool is_reported = false;
    if (!std::exchange(is_reported, true)) {
        spdlog::warn("a requester knows version {} of shared memory, the switch {}; its requests come over the socket",
                     version, MTS_SHARED_VERSION);
    }
    return false;
}

} // namespace

std::unique_ptr<SharedMemory> SharedMemory::send(int socket, Bytes frame, uint32_t generation) {
    const int descriptor = memfd_create("vswitch-requests", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (descriptor == -1) {
        return nullptr;
    }
    std::unique_ptr<SharedMemory> memory;
    if (mts_shared_memory *shared = map_new(descriptor)) {
        memory.reset(new SharedMemory(*shared));
        memory->publish_generation(generation);
    }
    if (memory && !send_with_descriptor(socket, frame, descriptor)) {
        memory.reset();
    }
    close(descriptor);
    return memory;
}

SharedMemory::~SharedMemory() {
    // One that has refused the memory has posted nothing.
    if (shared_.requester_version.load(std::memory_order_relaxed) != 0) {
        is_of_same_version(shared_);
    }
    munmap(&shared_, sizeof shared_);
}

bool SharedMemory::take(Buffer &request) {
    uint32_t expected = MTS_SHARED_POSTED;
    if (!shared_.state.compare_exchange_strong(expected, MTS_SHARED_TAKEN)) {
        return false;
    }
    if (!is_of_same_version(shared_)) {
        // Where the request lies is not known: as if its sender had taken it back.
        shared_.state.store(MTS_SHARED_IDLE, std::memory_order_seq_cst);
        return false;
    }
    const uint32_t announced = *const_cast<const volatile uint32_t *>(&shared_.request_length);
    const size_t length = std::min<size_t>(announced, max_frame);
    request.resize(length);
    mts_shared_read(request.data(), length, shared_.request, shared_.request_blanks);
    return true;
}

bool SharedMemory::answer(Bytes frame) {
    const size_t length = std::min(frame.size(), max_frame);
    shared_.reply_blanks = mts_shared_write(shared_.reply, frame.data(), length);
    shared_.reply_length = static_cast<uint32_t>(length);
    return finish(MTS_SHARED_ANSWERED);
}

bool SharedMemory::answer_elsewhere() {
    return finish(MTS_SHARED_ELSEWHERE);
}

bool SharedMemory::finish(mts_shared_state state) {
    shared_.state.store(state, std::memory_order_seq_cst);
    return shared_.requester_sleeps.load(std::memory_order_seq_cst) != 0;
}

void SpinWait::note_request(Clock::time_point now) {
    const auto gap = now - latest_;
    latest_ = now;
    longest_recent_gap_ -= longest_recent_gap_ / memory_of_gaps;
    if (gap <= longest_gap) {
        longest_recent_gap_ = std::max(longest_recent_gap_, gap);
    }
    if (enabled_) {
        end_ = now + std::max(2 * longest_recent_gap_, shortest_watch);
    }
}

} // namespace vswitch
