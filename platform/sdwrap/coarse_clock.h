// SPDX-License-Identifier: Apache-2.0
// A clock that costs no system call.
#ifndef COARSE_CLOCK_H
#define COARSE_CLOCK_H

#include <cstdint>
#include <ctime>

// Milliseconds since some moment, to the precision of the kernel's tick.
inline int64_t coarse_milliseconds(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

#endif
