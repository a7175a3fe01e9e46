// SPDX-License-Identifier: Apache-2.0
// What the agent makes of the records of a switch that lies: of a port, and of a fault that clients
// are to meet, which is then held against a message of anybody's.
#include <cstring>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include "agent/channel.h"
#include "agent/client_fault.h"
#include "agent/port.h"
#include "fuzz_input.h"
#include "netsnmpagent_oryx.h"

// Nobody is asked here.
uint32_t switch_agent::exchange(const Request &, void *, size_t) {
    return UINT32_MAX;
}
extern "C" uint32_t get_pdu_reqid(void) {
    return 1;
}
extern "C" int snmp_get_allowed_vsans_subtree(allowed_vsan_list *, const oid *, size_t, int) {
    return 0;
}
extern "C" int intf_chk_vsan_role_allowed(uint32_t, int, allowed_vsan_list) {
    return 0;
}

namespace {

using switch_agent::Address;
using switch_agent::Fault;
using switch_agent::Message;
using switch_agent::Port;

template <size_t size> void fill(fuzz_input &input, uint8_t (&bytes)[size]) {
    for (uint8_t &byte : bytes) {
        byte = input.byte();
    }
}

void read_port(fuzz_input &input) {
    uint8_t record[PORT_RECORD_SIZE];
    fill(input, record);
    Port port;
    if (!port_decode(record, port)) {
        return;
    }
    require(port.alias_length <= PORT_ALIAS_MAX, "an alias that fits");
    require(port.admin == PORT_UP || port.admin == PORT_DOWN, "an administrative state");
    for (int counter = 0; counter < PORT_COUNTER_COUNT; ++counter) {
        port_counter_value(port, static_cast<port_counter>(counter));
    }
}

// A PDU of any kind, with a name, a value that may be a name, and who sent it.
struct AnyPdu {
    oid name[MAX_OID_LEN];
    oid value[MAX_OID_LEN];
    char text[CLIENT_FAULT_USER_MAX + 1];
    netsnmp_variable_list varbind{};
    netsnmp_pdu pdu{};

    explicit AnyPdu(fuzz_input &input) {
        for (size_t at = 0; at < MAX_OID_LEN; ++at) {
            name[at] = input.byte();
            value[at] = input.byte();
        }
        memset(text, 'a', sizeof text);
        varbind.name = name;
        varbind.name_length = input.byte() % (MAX_OID_LEN + 1);
        varbind.type = input.byte() % 2 == 0 ? ASN_OBJECT_ID : ASN_INTEGER;
        varbind.val.objid = value;
        varbind.val_len = input.byte() % (MAX_OID_LEN + 1) * sizeof(oid);
        pdu.command = input.byte() | ASN_CONTEXT | ASN_CONSTRUCTOR;
        pdu.version = input.byte() % 4;
        pdu.trap_type = input.byte();
        pdu.specific_type = input.byte();
        pdu.enterprise = name;
        pdu.enterprise_length = varbind.name_length;
        pdu.securityName = text;
        pdu.securityNameLen = input.byte() % sizeof text;
        pdu.community = reinterpret_cast<u_char *>(text);
        pdu.community_len = pdu.securityNameLen;
        pdu.variables = &varbind;
    }
};

void meet_fault(fuzz_input &input) {
    uint8_t record[CLIENT_FAULT_RECORD_SIZE];
    fill(input, record);
    Fault fault;
    if (!fault_decode(record, fault)) {
        return;
    }
    require(fault.user_length <= CLIENT_FAULT_USER_MAX && fault.oid_length <= CLIENT_FAULT_ARCS_MAX, "what fits");
    uint8_t socket_address[32];
    fill(input, socket_address);
    const Address address = switch_agent::address_in(socket_address, input.byte() % (int{sizeof socket_address} + 1));
    require(address.length == 0 || address.length == 4 || address.length == 16, "an address");
    const AnyPdu any(input);
    fault_agrees(fault, Message(any.pdu, address));
    const bool applies = fault_applies(fault);
    require(fault.applied == (applies ? 1u : 0u), "that what applies is counted");
    fault_delay(fault);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_input input(data, size);
    if (input.byte() % 2 == 0) {
        read_port(input);
    } else {
        meet_fault(input);
    }
    return 0;
}
