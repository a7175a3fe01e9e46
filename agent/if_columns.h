// SPDX-License-Identifier: Apache-2.0
// The columns of ifTable and ifXTable (RFC 2863) as far as a Fibre Channel port has them.
#ifndef AGENT_IF_COLUMNS_H
#define AGENT_IF_COLUMNS_H

#include "port.h"
#include "value.h"

namespace switch_agent {

// First and last column of each table that is answered, and some of those between.
enum if_column : unsigned {
    IF_INDEX = 1,
    IF_DESCR = 2,
    IF_TYPE = 3,
    IF_MTU = 4,
    IF_SPEED = 5,
    IF_PHYS_ADDRESS = 6,
    IF_ADMIN_STATUS = 7,
    IF_OPER_STATUS = 8,
    IF_LAST_CHANGE = 9,
    IF_IN_OCTETS = 10,
    IF_IN_UCAST_PKTS = 11,
    IF_IN_DISCARDS = 13,
    IF_IN_ERRORS = 14,
    IF_IN_UNKNOWN_PROTOS = 15,
    IF_OUT_OCTETS = 16,
    IF_OUT_UCAST_PKTS = 17,
    IF_OUT_DISCARDS = 19,
    IF_OUT_ERRORS = 20
};

enum if_x_column : unsigned {
    IF_NAME = 1,
    IF_IN_MULTICAST_PKTS = 2,
    IF_IN_BROADCAST_PKTS = 3,
    IF_OUT_MULTICAST_PKTS = 4,
    IF_OUT_BROADCAST_PKTS = 5,
    IF_HC_IN_OCTETS = 6,
    IF_HC_IN_UCAST_PKTS = 7,
    IF_HC_IN_MULTICAST_PKTS = 8,
    IF_HC_IN_BROADCAST_PKTS = 9,
    IF_HC_OUT_OCTETS = 10,
    IF_HC_OUT_UCAST_PKTS = 11,
    IF_HC_OUT_MULTICAST_PKTS = 12,
    IF_HC_OUT_BROADCAST_PKTS = 13,
    IF_LINK_UP_DOWN_TRAP_ENABLE = 14,
    IF_HIGH_SPEED = 15,
    IF_PROMISCUOUS_MODE = 16,
    IF_CONNECTOR_PRESENT = 17,
    IF_ALIAS = 18,
    IF_COUNTER_DISCONTINUITY_TIME = 19
};

// Takes a column's value from a port, which must outlive it.
//
// Returns false for a number that is no column here: the deprecated ones have no values.
bool if_table_value(const Port &port, unsigned column, Value &value);
bool if_x_table_value(const Port &port, unsigned column, Value &value);

} // namespace switch_agent

#endif
