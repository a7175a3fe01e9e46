// SPDX-License-Identifier: Apache-2.0
// What the ports count. There are no frames: a counter follows from the port's rate, for as long as the
// port is up. It lives in memory only, so that a switch that starts counts from 0.
#ifndef VSWITCH_TRAFFIC_H
#define VSWITCH_TRAFFIC_H

#include <array>
#include <cstdint>
#include <map>

#include "model/switch_data.h"

namespace vswitch {

// A port's counters as they were at `since`; from then on they grow by the port's rates. They have
// 64 bits and begin again at 0 behind the last. While the port is down, `since` is 0 and they stand.
struct PortCount {
    std::array<uint64_t, PORT_COUNTER_COUNT> base{};
    Timestamp since;
};

class Traffic {
  public:
    // Every port counts from `start`, from 0.
    explicit Traffic(Timestamp start) : start_(start) {}

    // When the counters last began anew.
    Timestamp start() const { return start_; }

    PortCount of(uint32_t if_index, const Port &port) const;

    // Adds up what `former`, the port until now, has counted. REQUIRES: `now` is not earlier than
    // any time before.
    void settle(uint32_t if_index, const Port &former, Timestamp now);

  private:
    Timestamp start_;
    std::map<uint32_t, PortCount> settled_; // `since` is when that was, up or down
};

} // namespace vswitch

#endif
