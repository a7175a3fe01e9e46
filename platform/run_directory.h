// SPDX-License-Identifier: Apache-2.0
// Where the switch's run directory is, for those who look for something in it.
#ifndef RUN_DIRECTORY_H
#define RUN_DIRECTORY_H

#include <cstddef>
#include <cstdio>
#include <cstdlib>

#include "contract/run_directory.h"

constexpr size_t RUN_PATH_SIZE = 512;

// The run directory of this process. Valid as long as the environment stays as it is.
inline const char *run_directory(void) {
    const char *directory = getenv(RUN_DIRECTORY_VARIABLE);
    return directory == nullptr || *directory == '\0' ? RUN_DIRECTORY_DEFAULT : directory;
}

// Puts the path of `component` in the run directory into `path`. False when it does not
// fit.
template <size_t size> inline bool run_directory_path(const char *component, char (&path)[size]) {
    const int length = snprintf(path, size, "%s/%s", run_directory(), component);
    return length > 0 && static_cast<size_t>(length) < size;
}

#endif
