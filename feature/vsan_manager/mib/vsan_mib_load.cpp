// SPDX-License-Identifier: Apache-2.0
// What happens when the shared object is loaded and unloaded, whoever does it.

#include "vsan_mib_exports.h"

#include <cstdio>

namespace {

__attribute__((constructor)) void load() {
    printf("DEBUG : In %s \n", "_init");
    init_vsan_mib();
}

__attribute__((destructor)) void unload() {
    printf("DEBUG : In %s \n", "_fini");
    deinit_vsan_mib();
}

} // namespace
