/* The switch's run directory and a cheap clock. */
#ifndef RUN_DIRECTORY_H
#define RUN_DIRECTORY_H

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include "mts/mts_wire.h"

#define RUN_PATH_SIZE 512

/* Puts the path of `component` in the run directory into `path`. False when it does
 * not fit. */
inline bool run_directory_path(const char *component, char (&path)[RUN_PATH_SIZE]) {
    const char *directory = getenv(MTS_RUN_DIR_VARIABLE);
    if (directory == nullptr || *directory == '\0') {
        directory = MTS_DEFAULT_RUN_DIR;
    }
    const int length = snprintf(path, sizeof path, "%s/%s", directory, component);
    return length > 0 && static_cast<size_t>(length) < sizeof path;
}

/* Milliseconds since some moment, to the precision of the kernel's tick. Costs no
 * system call. */
inline int64_t coarse_milliseconds(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

#endif
