// SPDX-License-Identifier: Apache-2.0
#include "if_columns.h"

#include <cstddef>
#include <cstdio>

namespace switch_agent {
namespace {

constexpr long FIBRE_CHANNEL = 56; // IANAifType
// The largest data field of a Fibre Channel frame.
constexpr long MTU = 2112;
// What ifSpeed shows where ifHighSpeed has to be read (RFC 2863, 3.1.9).
constexpr uint32_t FASTEST_GAUGE = UINT32_MAX;
constexpr uint32_t BITS_OF_MEGABIT = 1000000;

constexpr long TRUTH_TRUE = 1, TRUTH_FALSE = 2;

void set_name(const Port &port, Value &value) {
    const int length = snprintf(value.room.text, sizeof value.room.text, "fc%u", port.number);
    value.set_bytes(value.room.text, static_cast<size_t>(length));
}

// A column that counts.
struct Counting {
    unsigned column;
    port_counter counter;
};

// No frame of the simulated traffic has more than one receiver, or a protocol that is unknown.
constexpr port_counter NOTHING = PORT_COUNTER_COUNT;

constexpr Counting IF_COUNTERS[] = {
    {IF_IN_OCTETS, PORT_COUNTER_IN_OCTETS},
    {IF_IN_UCAST_PKTS, PORT_COUNTER_IN_FRAMES},
    {IF_IN_DISCARDS, PORT_COUNTER_IN_DISCARDS},
    {IF_IN_ERRORS, PORT_COUNTER_IN_ERRORS},
    {IF_IN_UNKNOWN_PROTOS, NOTHING},
    {IF_OUT_OCTETS, PORT_COUNTER_OUT_OCTETS},
    {IF_OUT_UCAST_PKTS, PORT_COUNTER_OUT_FRAMES},
    {IF_OUT_DISCARDS, PORT_COUNTER_OUT_DISCARDS},
    {IF_OUT_ERRORS, PORT_COUNTER_OUT_ERRORS},
};

constexpr Counting IF_X_COUNTERS[] = {
    {IF_IN_MULTICAST_PKTS, NOTHING},
    {IF_IN_BROADCAST_PKTS, NOTHING},
    {IF_OUT_MULTICAST_PKTS, NOTHING},
    {IF_OUT_BROADCAST_PKTS, NOTHING},
};

constexpr Counting IF_HC_COUNTERS[] = {
    {IF_HC_IN_OCTETS, PORT_COUNTER_IN_OCTETS},   {IF_HC_IN_UCAST_PKTS, PORT_COUNTER_IN_FRAMES},
    {IF_HC_IN_MULTICAST_PKTS, NOTHING},          {IF_HC_IN_BROADCAST_PKTS, NOTHING},
    {IF_HC_OUT_OCTETS, PORT_COUNTER_OUT_OCTETS}, {IF_HC_OUT_UCAST_PKTS, PORT_COUNTER_OUT_FRAMES},
    {IF_HC_OUT_MULTICAST_PKTS, NOTHING},         {IF_HC_OUT_BROADCAST_PKTS, NOTHING},
};

// Finds a column among those that count; null when it is none of them.
template <size_t Count> const Counting *find_counting(const Counting (&columns)[Count], unsigned column) {
    for (const Counting &counting : columns) {
        if (counting.column == column) {
            return &counting;
        }
    }
    return nullptr;
}

uint64_t count_of(const Port &port, const Counting &counting) {
    return counting.counter == NOTHING ? 0 : port_counter_value(port, counting.counter);
}

uint32_t if_speed(const Port &port) {
    return port.speed > FASTEST_GAUGE / BITS_OF_MEGABIT ? FASTEST_GAUGE : port.speed * BITS_OF_MEGABIT;
}

} // namespace

bool if_table_value(const Port &port, unsigned column, Value &value) {
    if (const Counting *counting = find_counting(IF_COUNTERS, column)) {
        value.set_count(ASN_COUNTER, static_cast<uint32_t>(count_of(port, *counting)));
        return true;
    }
    switch (column) {
    case IF_INDEX:
        value.set_integer(static_cast<int32_t>(port.if_index));
        return true;
    case IF_DESCR:
        set_name(port, value);
        return true;
    case IF_TYPE:
        value.set_integer(FIBRE_CHANNEL);
        return true;
    case IF_MTU:
        value.set_integer(MTU);
        return true;
    case IF_SPEED:
        value.set_count(ASN_GAUGE, if_speed(port));
        return true;
    case IF_PHYS_ADDRESS:
        value.set_bytes(port.wwn, sizeof port.wwn);
        return true;
    case IF_ADMIN_STATUS:
        value.set_integer(static_cast<long>(port.admin));
        return true;
    case IF_OPER_STATUS:
        value.set_integer(static_cast<long>(port.oper));
        return true;
    case IF_LAST_CHANGE:
        value.set_count(ASN_TIMETICKS, time_stamp(port.last_change));
        return true;
    default:
        return false;
    }
}

bool if_x_table_value(const Port &port, unsigned column, Value &value) {
    if (const Counting *counting = find_counting(IF_X_COUNTERS, column)) {
        value.set_count(ASN_COUNTER, static_cast<uint32_t>(count_of(port, *counting)));
        return true;
    }
    if (const Counting *counting = find_counting(IF_HC_COUNTERS, column)) {
        value.set_counter64(count_of(port, *counting));
        return true;
    }
    switch (column) {
    case IF_NAME:
        set_name(port, value);
        return true;
    case IF_LINK_UP_DOWN_TRAP_ENABLE:
        value.set_integer(static_cast<long>(port.traps));
        return true;
    case IF_HIGH_SPEED:
        value.set_count(ASN_GAUGE, port.speed);
        return true;
    case IF_PROMISCUOUS_MODE:
        value.set_integer(TRUTH_FALSE);
        return true;
    case IF_CONNECTOR_PRESENT:
        value.set_integer(TRUTH_TRUE);
        return true;
    case IF_ALIAS:
        value.set_bytes(port.alias, port.alias_length);
        return true;
    case IF_COUNTER_DISCONTINUITY_TIME:
        value.set_count(ASN_TIMETICKS, time_stamp(port.discontinuity));
        return true;
    default:
        return false;
    }
}

} // namespace switch_agent
