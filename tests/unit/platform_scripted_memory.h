// SPDX-License-Identifier: Apache-2.0
// The manager's side of memory that it shares with the client, for the scripted manager.
#ifndef PLATFORM_SCRIPTED_MEMORY_H
#define PLATFORM_SCRIPTED_MEMORY_H

#include <sys/mman.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "mts/mts_shared.h"
#include "platform_scripted_manager.h"

inline constexpr int MEMORY_SEALS = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL;

// A descriptor of memory, as a switch passes it unless told otherwise.
class memory_descriptor {
  public:
    explicit memory_descriptor(size_t size = sizeof(mts_shared_memory), int seals = MEMORY_SEALS)
        : fd_(memfd_create("scripted-memory", MFD_CLOEXEC | MFD_ALLOW_SEALING)) {
        if (fd_ == -1 || ftruncate(fd_, static_cast<off_t>(size)) != 0 || fcntl(fd_, F_ADD_SEALS, seals) != 0) {
            throw std::runtime_error("no memory to share");
        }
    }
    ~memory_descriptor() { close(fd_); }
    memory_descriptor(const memory_descriptor &) = delete;
    memory_descriptor &operator=(const memory_descriptor &) = delete;

    int get() const { return fd_; }

  private:
    int fd_;
};

// This manager sleeps unless a test says that it watches, so that the client knocks at
// every request.
class manager_memory {
  public:
    explicit manager_memory(uint32_t generation = 1)
        : mapped_(mmap(nullptr, sizeof(mts_shared_memory), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor_.get(), 0)) {
        if (mapped_ == MAP_FAILED) {
            throw std::runtime_error("cannot map memory");
        }
        (*this)->version = MTS_SHARED_VERSION;
        (*this)->generation = generation;
        (*this)->switch_sleeps = 1;
    }
    ~manager_memory() { munmap(mapped_, sizeof(mts_shared_memory)); }
    manager_memory(const manager_memory &) = delete;
    manager_memory &operator=(const manager_memory &) = delete;

    mts_shared_memory *operator->() const { return static_cast<mts_shared_memory *>(mapped_); }
    int descriptor() const { return descriptor_.get(); }
    uint32_t state() const { return (*this)->state; }

    bytes request() const {
        bytes frame((*this)->request_length);
        mts_shared_read(frame.data(), frame.size(), (*this)->request, (*this)->request_blanks);
        return frame;
    }

    // Takes the posted request.
    wire_frame take() const {
        uint32_t posted = MTS_SHARED_POSTED;
        if (!(*this)->state.compare_exchange_strong(posted, MTS_SHARED_TAKEN)) {
            throw std::runtime_error("no request is posted");
        }
        const bytes frame = request();
        return {read_be32(frame.data() + 4), read_be32(frame.data() + 8),
                bytes(frame.begin() + MTS_WIRE_HEADER, frame.end())};
    }

    void put(const bytes &frame) const {
        std::copy(frame.begin(), frame.end(), (*this)->reply);
        (*this)->reply_length = static_cast<uint32_t>(frame.size());
    }

    // Returns whether the client has to be woken.
    bool finish(uint32_t state) const {
        (*this)->state = state;
        return (*this)->requester_sleeps != 0;
    }

    // There is nothing but the memory that tells.
    template <class Condition> static void await(Condition condition) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!condition()) {
            if (std::chrono::steady_clock::now() > end) {
                throw std::runtime_error("the client has not done what was expected");
            }
            std::this_thread::yield();
        }
    }
    void await_post() const {
        await([this] { return state() == MTS_SHARED_POSTED; });
    }
    void await_sleeping_client() const {
        await([this] { return (*this)->requester_sleeps == 1; });
    }

  private:
    memory_descriptor descriptor_;
    void *mapped_;
};

// Answers the client's SHARE, which comes next.
inline void give_memory(manager_connection &connection, const manager_memory &memory) {
    const wire_frame share = connection.receive_any();
    if (share.type != MTS_FRAME_SHARE || !share.body.empty()) {
        throw std::runtime_error("the client has not asked for memory");
    }
    connection.send(frame_bytes(MTS_FRAME_SHARED, share.correlation, {}), {memory.descriptor()});
}

inline bytes knock_bytes() {
    return frame_bytes(MTS_FRAME_KNOCK, 0, {});
}

#endif
