// SPDX-License-Identifier: Apache-2.0
// The reference platform supervises nobody; it watches that the announcements are
// balanced, because on a switch an agent that never comes back is restarted.
#include "sysmgr.h"

#include <cerrno>
#include <cstdio>

#include "sysmgr_state.h"

namespace {

int depth;
bool imbalance_reported;

void report_imbalance(void) {
    if (imbalance_reported) {
        return;
    }
    imbalance_reported = true;
    const int reason = errno;
    fputs("sysmgr: heartbeat(0) without a heartbeat(1) before it; ignored\n", stderr);
    errno = reason;
}

} // namespace

void sysmgr_heartbeat(int blocking) {
    if (blocking != 0) {
        ++depth;
    } else if (depth > 0) {
        --depth;
    } else {
        report_imbalance();
    }
}

int sysmgr_blocking_depth(void) {
    return depth;
}
