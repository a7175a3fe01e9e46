// SPDX-License-Identifier: Apache-2.0
// One fault that clients meet (contract/client_faults.h): which messages it is for, and when it applies.
#ifndef AGENT_CLIENT_FAULT_H
#define AGENT_CLIENT_FAULT_H

#include <cstddef>
#include <cstdint>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include "contract/client_faults.h"

namespace switch_agent {

// An IPv4 address, also where IPv6 carries it, or an IPv6 address, as it lies in packets, and a
// port where there is one.
struct Address {
    uint32_t length; // 4 or 16; 0: none
    uint8_t bytes[16];
    uint16_t port;

    bool operator==(const Address &) const = default;
};

// The address of an agent's socket address, as UDP transports keep it; none for any other.
Address address_in(const void *socket_address, int size);

// A request that has come or a notification that is about to leave, as faults are chosen by it.
struct Message {
    const netsnmp_pdu *pdu;
    uint32_t type; // a client_fault_pdu; 0: anything else, which no fault is for
    Address address;

    // `address` is where the request came from or the notification goes to. The PDU must outlive it.
    Message(const netsnmp_pdu &of, const Address &peer);
};

struct Fault {
    uint32_t number;
    client_fault_action action;
    client_fault_about about;
    uint32_t value;
    uint32_t detail;
    uint32_t pdus;
    uint32_t times;
    uint32_t after;
    uint32_t percent;
    bool is_of_user;
    uint32_t user_length;
    uint8_t user[CLIENT_FAULT_USER_MAX];
    Address address;
    uint32_t address_bits;
    uint32_t oid_length;
    uint32_t oid[CLIENT_FAULT_ARCS_MAX];

    // What has happened so far.
    uint32_t passed; // messages that agreed and were let pass because of `after`
    uint32_t applied;
    uint64_t random; // state of the generator

    bool is_used_up() const { return times != 0 && applied >= times; }
};

// Reads a record of the list.
//
// Returns false when a field has a value that no fault has; `fault` counts for nothing then.
bool fault_decode(const uint8_t *record, Fault &fault);

// Whether a message agrees with all that the fault asks for.
bool fault_agrees(const Fault &fault, const Message &message);

// Whether the fault applies to a message that agrees; counted. The same seed gives the same
// answers to the same number of calls.
bool fault_applies(Fault &fault);

// How long a message is kept back, in milliseconds.
uint32_t fault_delay(Fault &fault);

} // namespace switch_agent

#endif
