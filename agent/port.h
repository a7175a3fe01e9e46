// SPDX-License-Identifier: Apache-2.0
// The switch's ports, as the port manager describes them (contract/interfaces.h).
#ifndef AGENT_PORT_H
#define AGENT_PORT_H

#include <cstddef>
#include <cstdint>

#include "agent_time.h"
#include "contract/interfaces.h"

namespace switch_agent {

constexpr size_t WWN_SIZE = 8;

struct Port {
    uint32_t if_index;
    uint32_t number; // n of its name "fcn"
    uint32_t admin;  // ifAdminStatus, up or down
    uint32_t oper;   // ifOperStatus, up or down
    uint32_t speed;  // Mbit/s
    uint32_t traps;  // ifLinkUpDownTrapEnable
    Moment last_change;
    Moment discontinuity;
    uint8_t wwn[WWN_SIZE];
    uint32_t alias_length; // bytes, at most PORT_ALIAS_MAX
    char alias[PORT_ALIAS_MAX];
    Moment since;
    Moment now; // when the switch said all this
    struct {
        uint64_t base;
        uint64_t rate; // a second
    } counters[PORT_COUNTER_COUNT];
};

// Reads a port record.
//
// Returns false when a field has a value that no port has; `port` counts for nothing then.
bool port_decode(const uint8_t (&record)[PORT_RECORD_SIZE], Port &port);

// A counter of a port as it is now.
uint64_t port_counter_value(const Port &port, port_counter counter);

enum class Lookup {
    found,
    absent, // the switch has no such port, or the requester may not see it
    failed  // the switch did not say
};

// Looks up the port of an ifIndex, or the one that follows an ifIndex among those that the
// requester may see. All lookups of one PDU for one row cost one request.
//
// Sets *port when it is found, to a copy that is valid until the next lookup.
Lookup port_at(uint32_t if_index, const Port *&port);
Lookup port_after(uint32_t if_index, const Port *&port);

// Makes the next lookup ask the switch again: something was changed.
void forget_port();

// Whether the requester's role bars a port for reading, or for being changed.
enum class Purpose { change = 1, read = 3 };
bool is_barred(uint32_t if_index, Purpose purpose);

} // namespace switch_agent

#endif
