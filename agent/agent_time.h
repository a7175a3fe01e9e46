// SPDX-License-Identifier: Apache-2.0
// The switch's moments on the agent's clock. The switch says when something was in time of day;
// SNMP counts hundredths of a second from the agent's start. Both clocks take the time of day once
// and count on from there, so that a machine's clock that is set later changes neither.
#ifndef AGENT_TIME_H
#define AGENT_TIME_H

#include <cstdint>

namespace switch_agent {

// Seconds since 1970 and microseconds; both 0 for never.
struct Moment {
    uint32_t seconds;
    uint32_t microseconds;
};

// sysUpTime at a moment, as TimeStamp counts it: 0 for never and for what was before the agent's
// start, and never more than sysUpTime is now.
uint32_t time_stamp(Moment moment);

// Microseconds from one moment of the switch to another; 0 when the other was before it.
uint64_t microseconds_between(Moment first, Moment last);

} // namespace switch_agent

#endif
