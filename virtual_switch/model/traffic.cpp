// SPDX-License-Identifier: Apache-2.0
#include "model/traffic.h"

namespace vswitch {

namespace {

constexpr uint32_t second = 1000000; // microseconds

// Units that have passed in whole. The fraction of a second stands apart: a rate has 32 bits, so that
// nothing is lost.
uint64_t grown(uint32_t rate, Timestamp since, Timestamp now) {
    uint64_t seconds = now.seconds - since.seconds;
    uint64_t microseconds = uint64_t{now.microseconds} + second - since.microseconds;
    if (microseconds >= second) {
        microseconds -= second;
    } else {
        --seconds;
    }
    return rate * seconds + rate * microseconds / second;
}

} // namespace

PortCount Traffic::of(uint32_t if_index, const Port &port) const {
    const auto settled = settled_.find(if_index);
    PortCount count = settled == settled_.end() ? PortCount{{}, start_} : settled->second;
    if (!port.is_up()) {
        count.since = {};
    }
    return count;
}

void Traffic::settle(uint32_t if_index, const Port &former, Timestamp now) {
    PortCount count = of(if_index, former);
    if (former.is_up()) {
        for (size_t counter = 0; counter < count.base.size(); ++counter) {
            count.base[counter] += grown(former.traffic[counter], count.since, now);
        }
    }
    count.since = now;
    settled_[if_index] = count;
}

} // namespace vswitch
