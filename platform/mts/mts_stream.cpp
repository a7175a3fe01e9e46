// SPDX-License-Identifier: Apache-2.0
#include "mts_stream.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "run_directory.h"

namespace {

constexpr int64_t NANOSECONDS_PER_SECOND = 1000000000;

// Descriptors 0 to 2 may be closed when the agent runs as a daemon. A socket there
// would take in whatever somebody prints.
constexpr int FIRST_FREE_DESCRIPTOR = 3;

int socket_address(struct sockaddr_un &address) {
    address = {};
    address.sun_family = AF_UNIX;
    if (!run_directory_path(MTS_SOCKET_NAME, address.sun_path)) {
        errno = ENAMETOOLONG;
        return -1;
    }
    return 0;
}

int make_socket(void) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd == -1 || fd >= FIRST_FREE_DESCRIPTOR) {
        return fd;
    }
    const int moved = fcntl(fd, F_DUPFD_CLOEXEC, FIRST_FREE_DESCRIPTOR);
    const int reason = errno;
    close(fd);
    errno = reason;
    return moved;
}

// Whether nobody but this user and root can put a socket into the run directory. Where there
// are access control lists, the group's bits say what anybody named in them may at most.
bool has_run_directory_alone(uid_t user) {
    struct statx status; // which has room for the inode's number on 32 bits, too
    if (statx(AT_FDCWD, run_directory(), 0, STATX_UID | STATX_MODE, &status) != 0) {
        return false;
    }
    return status.stx_uid == user && (status.stx_mode & (S_IWGRP | S_IWOTH)) == 0;
}

// Whether the other side may speak for the switch. The kernel knows which user it had
// when it began to listen. Sets errno if not.
bool is_listener_trusted(int fd) {
    struct ucred listener;
    socklen_t length = sizeof listener;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &listener, &length) != 0) {
        return false;
    }
    if (listener.uid == 0 || listener.uid == geteuid() || has_run_directory_alone(listener.uid)) {
        return true;
    }
    errno = EPERM;
    return false;
}

// Connects the socket to the switch, or to nobody.
int connect_to_switch(int fd, const struct sockaddr_un &address) {
    if (connect(fd, reinterpret_cast<const struct sockaddr *>(&address), sizeof address) != 0) {
        // EAGAIN is a full backlog, which cannot be waited for: nobody is accepting.
        errno = errno == EAGAIN ? ETIMEDOUT : errno;
        return -1;
    }
    return is_listener_trusted(fd) ? 0 : -1;
}

// Waits until the socket is ready for `events`, has failed, or the deadline passes.
// A failed socket counts as ready: the next transfer says what is wrong.
mts_io wait_for(int fd, short events, mts_time deadline) {
    for (;;) {
        const mts_time left = deadline - mts_now();
        if (left <= 0) {
            return mts_io::timeout;
        }
        const struct timespec timeout = {static_cast<time_t>(left / NANOSECONDS_PER_SECOND),
                                         static_cast<long>(left % NANOSECONDS_PER_SECOND)};
        struct pollfd watched = {fd, events, 0};
        const int ready = ppoll(&watched, 1, &timeout, nullptr);
        if (ready > 0) {
            return mts_io::done;
        }
        if (ready == -1 && errno != EINTR) {
            return mts_io::lost;
        }
    }
}

// Keeps the descriptor of a control message, the latest one if there are several.
void keep_descriptor(mts_stream &stream, const struct cmsghdr &control) {
    if (control.cmsg_level != SOL_SOCKET || control.cmsg_type != SCM_RIGHTS) {
        return;
    }
    const uint8_t *data = CMSG_DATA(&control);
    for (size_t left = control.cmsg_len - CMSG_LEN(0); left >= sizeof stream.passed; left -= sizeof stream.passed) {
        if (stream.passed != -1) {
            close(stream.passed);
        }
        memcpy(&stream.passed, data, sizeof stream.passed);
        data += sizeof stream.passed;
    }
}

// recv(2), with the descriptor that came beside the bytes. Where alignment leaves room for a
// second one, the latest is kept; what finds no room the kernel closes.
ssize_t receive_bytes(mts_stream &stream, size_t wanted) {
    struct iovec part = {stream.buffer + stream.end, wanted};
    alignas(struct cmsghdr) uint8_t control[CMSG_SPACE(sizeof(int))];
    struct msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t got = recvmsg(stream.fd, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    if (got >= 0) {
        if (const struct cmsghdr *first = CMSG_FIRSTHDR(&message)) {
            keep_descriptor(stream, *first);
        }
    }
    return got;
}

} // namespace

mts_time mts_now(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<mts_time>(now.tv_sec) * NANOSECONDS_PER_SECOND + now.tv_nsec;
}

int mts_stream_open(mts_stream &stream) {
    struct sockaddr_un address;
    if (socket_address(address) != 0) {
        return -1;
    }
    const int fd = make_socket();
    if (fd == -1) {
        return -1;
    }
    if (connect_to_switch(fd, address) != 0) {
        const int reason = errno;
        close(fd);
        errno = reason;
        return -1;
    }
    stream.is_open = true;
    stream.fd = fd;
    stream.passed = -1;
    stream.owner = getpid();
    stream.begin = stream.end = 0;
    return 0;
}

void mts_stream_close(mts_stream &stream) {
    if (!stream.is_open) {
        return;
    }
    const int reason = errno;
    close(stream.fd);
    if (stream.passed != -1) {
        close(stream.passed);
    }
    errno = reason;
    stream.passed = -1;
    stream.is_open = false;
    stream.begin = stream.end = 0;
}

bool mts_stream_is_inherited(const mts_stream &stream) {
    return stream.is_open && stream.owner != getpid();
}

mts_io mts_stream_send(mts_stream &stream, struct iovec *parts, size_t count, mts_time deadline) {
    while (count > 0) {
        struct msghdr message = {};
        message.msg_iov = parts;
        message.msg_iovlen = count;
        const ssize_t result = sendmsg(stream.fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (result == -1) {
            if (errno == EINTR) {
                continue;
            }
            if (errno != EAGAIN) {
                return mts_io::lost;
            }
            const mts_io waited = wait_for(stream.fd, POLLOUT, deadline);
            if (waited != mts_io::done) {
                return waited;
            }
            continue;
        }
        size_t sent = static_cast<size_t>(result);
        while (count > 0 && sent >= parts->iov_len) {
            sent -= parts->iov_len;
            ++parts;
            --count;
        }
        if (count > 0) {
            parts->iov_base = static_cast<uint8_t *>(parts->iov_base) + sent;
            parts->iov_len -= sent;
        }
    }
    return mts_io::done;
}

mts_io mts_stream_receive(mts_stream &stream, mts_frame &frame, mts_time deadline, bool read_ahead) {
    for (;;) {
        size_t size = 0;
        switch (mts_frame_decode({stream.buffer + stream.begin, stream.end - stream.begin}, frame, size)) {
        case mts_decode::frame:
            stream.begin += size;
            return mts_io::done;
        case mts_decode::bad:
            errno = EPROTO;
            return mts_io::bad;
        case mts_decode::more:
            break;
        }

        if (stream.begin > 0) {
            memmove(stream.buffer, stream.buffer + stream.begin, stream.end - stream.begin);
            stream.end -= stream.begin;
            stream.begin = 0;
        }
        if (deadline != MTS_NO_WAIT) {
            const mts_io waited = wait_for(stream.fd, POLLIN, deadline);
            if (waited != mts_io::done) {
                return waited;
            }
        }
        const size_t wanted = (read_ahead ? sizeof stream.buffer : size) - stream.end;
        const ssize_t got = receive_bytes(stream, wanted);
        if (got > 0) {
            stream.end += static_cast<size_t>(got);
        } else if (got == 0) {
            errno = ECONNRESET;
            return mts_io::lost;
        } else if (errno == EAGAIN) {
            if (deadline == MTS_NO_WAIT) {
                return mts_io::timeout;
            }
        } else if (errno != EINTR) {
            return mts_io::lost;
        }
    }
}

int mts_stream_take_descriptor(mts_stream &stream) {
    const int fd = stream.passed;
    stream.passed = -1;
    return fd;
}

bool mts_stream_is_cut(const mts_stream &stream) {
    struct pollfd watched = {stream.fd, POLLRDHUP, 0};
    return poll(&watched, 1, 0) != 0;
}
