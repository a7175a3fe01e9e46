// SPDX-License-Identifier: Apache-2.0
#include "agent_time.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

namespace switch_agent {
namespace {

constexpr int64_t MICROSECONDS = 1000000;
constexpr int64_t MICROSECONDS_OF_TICK = 10000;

int64_t start_of_agent() {
    const auto *start = static_cast<const timeval *>(netsnmp_get_agent_starttime());
    return int64_t{start->tv_sec} * MICROSECONDS + int64_t{start->tv_usec};
}

int64_t microseconds_of(Moment moment) {
    return int64_t{moment.seconds} * MICROSECONDS + int64_t{moment.microseconds};
}

} // namespace

uint32_t time_stamp(Moment moment) {
    const int64_t after_start = microseconds_of(moment) - start_of_agent();
    if (after_start <= 0) {
        return 0;
    }
    const uint64_t ticks = static_cast<uint64_t>(after_start / MICROSECONDS_OF_TICK);
    const uint64_t now = netsnmp_get_agent_runtime();
    return static_cast<uint32_t>(ticks < now ? ticks : now);
}

uint64_t microseconds_between(Moment first, Moment last) {
    const int64_t passed = microseconds_of(last) - microseconds_of(first);
    return passed < 0 ? 0 : static_cast<uint64_t>(passed);
}

} // namespace switch_agent
