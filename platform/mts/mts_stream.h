// SPDX-License-Identifier: Apache-2.0
// One connection to the switch's message socket, and frames going over it. Every
// wait ends at a deadline; no call blocks beyond it, and none raises SIGPIPE.
#ifndef MTS_STREAM_H
#define MTS_STREAM_H

#include <cstddef>
#include <cstdint>
#include <sys/types.h>
#include <sys/uio.h>

#include "mts_frame.h"

// A point of CLOCK_MONOTONIC, in nanoseconds.
using mts_time = int64_t;

inline constexpr mts_time MTS_MILLISECOND = 1000000;

// As a deadline: take what is there already, do not wait.
inline constexpr mts_time MTS_NO_WAIT = 0;

// A connection and what has been received on it. All zero is a closed one, so that
// a static one costs no space in the library's file.
struct mts_stream {
    bool is_open;
    int fd;
    int passed;   // a descriptor that came with the bytes and was not taken yet, or -1
    pid_t owner;  // the process that connected; a forked child must not use the socket
    size_t begin; // received bytes not yet handed out: buffer[begin, end)
    size_t end;
    uint8_t buffer[MTS_WIRE_HEADER + MTS_WIRE_MAX_BODY];
};

enum class mts_io {
    done,
    timeout, // the deadline passed
    lost,    // the connection is gone; errno says why
    bad      // what came is no frame; errno is EPROTO
};

#pragma GCC visibility push(hidden)

mts_time mts_now(void);

// Connects a closed stream to the switch. Does not wait: the other side answers at
// once or is overloaded.
//
// Whoever listens there says what this process shows, and whom it lets do what. So it
// must be a process of root, of this process's own user, or of the user who owns the
// run directory, if no other but root can write in it. Nothing is sent to another.
//
// Returns 0, or -1 with errno: ENOENT or ECONNREFUSED no manager, ETIMEDOUT a
// manager that accepts nobody, EPERM a listener that is not trusted, ENAMETOOLONG,
// EACCES, EMFILE and the like as socket(2) and connect(2) have them.
int mts_stream_open(mts_stream &stream);

// Closes the stream, if it is open, and drops what was received. Keeps errno.
void mts_stream_close(mts_stream &stream);

// Whether the stream was connected by another process, of which this one is a fork.
bool mts_stream_is_inherited(const mts_stream &stream);

// Sends the bytes of `count` parts, whose descriptions are used up.
//
// Any result but `done` means that the frame did not go out whole; part of it may
// have, so that only closing the connection helps.
mts_io mts_stream_send(mts_stream &stream, struct iovec *parts, size_t count, mts_time deadline);

// Receives one frame. Its body lies in the stream's buffer and is valid until the
// next call with this stream. A descriptor that came with it can be taken afterwards.
//
// read_ahead  true to take all that has come from the socket. False to take nothing
//             behind the frame, so that a poll on the socket still tells whether
//             more is there.
mts_io mts_stream_receive(mts_stream &stream, mts_frame &frame, mts_time deadline, bool read_ahead);

// The descriptor that came last, which the caller closes; -1 when there is none.
int mts_stream_take_descriptor(mts_stream &stream);

// Whether the other side has closed the connection, perhaps behind bytes that were not
// received yet.
bool mts_stream_is_cut(const mts_stream &stream);

#pragma GCC visibility pop

#endif
