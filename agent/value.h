// SPDX-License-Identifier: Apache-2.0
// A value on its way into an answer.
#ifndef AGENT_VALUE_H
#define AGENT_VALUE_H

#include <cstddef>
#include <cstdint>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

namespace switch_agent {

struct Value {
    uint8_t type; // ASN.1
    size_t length;
    // Where it lies: in `room`, or at its owner's, for as long as the answer is made.
    const void *bytes;
    union {
        long number;
        u_long count;
        counter64 wide;
        char text[16];
    } room;

    void set_integer(long number);
    // Gauge32, Counter32 or TimeTicks.
    void set_count(uint8_t asn_type, uint32_t count);
    void set_counter64(uint64_t count);
    void set_bytes(const void *first, size_t count);
    void set_object_id(const oid *name, size_t arcs);

    // Makes it the value of a varbind. False without memory.
    bool give_to(netsnmp_variable_list &varbind) const;
};

} // namespace switch_agent

#endif
