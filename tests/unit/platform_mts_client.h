// SPDX-License-Identifier: Apache-2.0
// One request through the message service's client, with all that came of it.
#ifndef PLATFORM_MTS_CLIENT_H
#define PLATFORM_MTS_CLIENT_H

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <optional>

#include "mts.h"
#include "platform_scripted_manager.h"

struct answer {
    uint32_t status = 0;
    int error = 0;             // errno, where there is no status
    std::optional<bytes> data; // none: the reply pointer stayed null
    uint32_t length = 0;
    std::chrono::milliseconds time{};
};

// A read request with a payload of four bytes unless told otherwise.
inline answer ask(uint32_t wait_class = 4, const bytes &payload = bytes(4)) {
    const auto start = std::chrono::steady_clock::now();
    answer result;
    void *reply = &result;
    result.length = static_cast<uint32_t>(payload.size());
    errno = 0;
    result.status = cmi_req_resp(149, 1, payload.data(), &reply, &result.length, nullptr, 0, MANAGER_SAP_VSAN,
                                 mts_response_q, wait_class);
    result.error = result.status == UINT32_MAX ? errno : 0;
    result.time = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    if (reply != nullptr) {
        const auto *first = static_cast<const uint8_t *>(reply);
        result.data = bytes(first, first + result.length);
    }
    free(reply);
    return result;
}

// The client's socket, which no interface gives away: the one whose other end is
// the manager's.
inline int client_descriptor(const std::string &path) {
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const int fd = std::stoi(entry.path().filename());
        sockaddr_un peer = {};
        socklen_t length = sizeof peer;
        if (getpeername(fd, reinterpret_cast<sockaddr *>(&peer), &length) == 0 && peer.sun_family == AF_UNIX &&
            path == peer.sun_path) {
            return fd;
        }
    }
    return -1;
}

// Lets little more than nothing go out on the client's socket before it is received.
inline void make_send_buffer_small(const scripted_manager &manager) {
    const int smallest = 1;
    if (setsockopt(client_descriptor(manager.path()), SOL_SOCKET, SO_SNDBUF, &smallest, sizeof smallest) != 0) {
        throw std::runtime_error(std::string("cannot make the send buffer small: ") + strerror(errno));
    }
}

#endif
