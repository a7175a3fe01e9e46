// SPDX-License-Identifier: Apache-2.0
#include "client_fault.h"

#include <cstring>

#include <netinet/in.h>

#include "contract/big_endian.h"

namespace switch_agent {
namespace {

const oid SNMP_TRAP_OID[] = {1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};
// Under this the generic traps of SNMPv1 are (RFC 3584), one higher than SNMPv1 numbers them.
const oid GENERIC_TRAPS[] = {1, 3, 6, 1, 6, 3, 1, 1, 5};
constexpr long ENTERPRISE_SPECIFIC = 6;

struct Action {
    uint32_t number;
    client_fault_about about;
};
#define ACTION_ROW(number, name, word, about, value) {number, about},
constexpr Action ACTIONS[] = {CLIENT_FAULT_ACTIONS(ACTION_ROW)};
#undef ACTION_ROW

const Action *find_action(uint32_t number) {
    for (const Action &action : ACTIONS) {
        if (action.number == number) {
            return &action;
        }
    }
    return nullptr;
}

uint32_t type_of(int command) {
    switch (command) {
    case SNMP_MSG_GET:
        return CLIENT_FAULT_GET;
    case SNMP_MSG_GETNEXT:
        return CLIENT_FAULT_GET_NEXT;
    case SNMP_MSG_GETBULK:
        return CLIENT_FAULT_GET_BULK;
    case SNMP_MSG_SET:
        return CLIENT_FAULT_SET;
    case SNMP_MSG_TRAP:
    case SNMP_MSG_TRAP2:
        return CLIENT_FAULT_TRAP;
    case SNMP_MSG_INFORM:
        return CLIENT_FAULT_INFORM;
    default:
        return 0;
    }
}

bool begins_with(const oid *name, size_t length, const Fault &fault) {
    if (length < fault.oid_length) {
        return false;
    }
    for (uint32_t i = 0; i < fault.oid_length; ++i) {
        if (name[i] != fault.oid[i]) {
            return false;
        }
    }
    return true;
}

// The name of a notification of SNMPv1 as later versions have it.
bool v1_trap_agrees(const Fault &fault, const netsnmp_pdu &pdu) {
    oid name[MAX_OID_LEN];
    size_t length = 0;
    const auto add = [&](const oid *arcs, size_t count) {
        for (size_t i = 0; i < count && length < MAX_OID_LEN; ++i) {
            name[length++] = arcs[i];
        }
    };
    if (pdu.trap_type == ENTERPRISE_SPECIFIC) {
        const oid specific[] = {0, static_cast<oid>(pdu.specific_type)};
        add(pdu.enterprise, pdu.enterprise_length);
        add(specific, OID_LENGTH(specific));
    } else {
        const oid generic = static_cast<oid>(pdu.trap_type) + 1;
        add(GENERIC_TRAPS, OID_LENGTH(GENERIC_TRAPS));
        add(&generic, 1);
    }
    return begins_with(name, length, fault);
}

bool names_agree(const Fault &fault, const netsnmp_pdu &pdu) {
    if (fault.oid_length == 0 || (pdu.command == SNMP_MSG_TRAP && v1_trap_agrees(fault, pdu))) {
        return true;
    }
    for (const netsnmp_variable_list *varbind = pdu.variables; varbind; varbind = varbind->next_variable) {
        if (begins_with(varbind->name, varbind->name_length, fault)) {
            return true;
        }
        if (varbind->type == ASN_OBJECT_ID &&
            netsnmp_oid_equals(varbind->name, varbind->name_length, SNMP_TRAP_OID, OID_LENGTH(SNMP_TRAP_OID)) == 0 &&
            begins_with(varbind->val.objid, varbind->val_len / sizeof(oid), fault)) {
            return true;
        }
    }
    return false;
}

bool user_agrees(const Fault &fault, const netsnmp_pdu &pdu) {
    if (!fault.is_of_user) {
        return true;
    }
    const bool is_v3 = pdu.version == SNMP_VERSION_3;
    const void *name = is_v3 ? static_cast<const void *>(pdu.securityName) : pdu.community;
    const size_t length = is_v3 ? pdu.securityNameLen : pdu.community_len;
    return length == fault.user_length && (length == 0 || (name && memcmp(name, fault.user, length) == 0));
}

bool address_agrees(const Fault &fault, const Address &address) {
    if (fault.address.length == 0) {
        return true;
    }
    if (fault.address.length != address.length) {
        return false;
    }
    const uint32_t whole = fault.address_bits / 8;
    const uint32_t rest = fault.address_bits % 8;
    if (memcmp(fault.address.bytes, address.bytes, whole) != 0) {
        return false;
    }
    return rest == 0 || ((fault.address.bytes[whole] ^ address.bytes[whole]) >> (8 - rest)) == 0;
}

// SplitMix64: short, and good enough to be fair.
uint64_t draw(Fault &fault) {
    fault.random += 0x9e3779b97f4a7c15u;
    uint64_t value = fault.random;
    value = (value ^ value >> 30) * 0xbf58476d1ce4e5b9u;
    value = (value ^ value >> 27) * 0x94d049bb133111ebu;
    return value ^ value >> 31;
}

} // namespace

Address address_in(const void *socket_address, int size) {
    Address address = {};
    sockaddr_storage storage = {};
    if (!socket_address || size < static_cast<int>(sizeof(sockaddr_in))) {
        return address;
    }
    const auto length = static_cast<size_t>(size);
    memcpy(&storage, socket_address, length < sizeof storage ? length : sizeof storage);
    if (storage.ss_family == AF_INET) {
        sockaddr_in v4;
        memcpy(&v4, &storage, sizeof v4);
        address.length = sizeof v4.sin_addr;
        memcpy(address.bytes, &v4.sin_addr, sizeof v4.sin_addr);
        address.port = ntohs(v4.sin_port);
    } else if (storage.ss_family == AF_INET6 && length >= sizeof(sockaddr_in6)) {
        sockaddr_in6 v6;
        memcpy(&v6, &storage, sizeof v6);
        const bool is_mapped = IN6_IS_ADDR_V4MAPPED(&v6.sin6_addr);
        address.length = is_mapped ? 4 : 16;
        memcpy(address.bytes, v6.sin6_addr.s6_addr + (is_mapped ? 12 : 0), address.length);
        address.port = ntohs(v6.sin6_port);
    }
    return address;
}

Message::Message(const netsnmp_pdu &of, const Address &peer) : pdu(&of), type(type_of(of.command)), address(peer) {}

bool fault_decode(const uint8_t *record, Fault &fault) {
    const auto word = [&](client_fault_record_at field) { return read_be32(record + field); };
    fault = {};
    const Action *action = find_action(word(CLIENT_FAULT_ACTION));
    if (!action) {
        return false;
    }
    fault.number = word(CLIENT_FAULT_NUMBER);
    fault.action = static_cast<client_fault_action>(action->number);
    fault.about = action->about;
    fault.value = word(CLIENT_FAULT_VALUE);
    fault.detail = word(CLIENT_FAULT_DETAIL);
    fault.pdus = word(CLIENT_FAULT_PDU);
    fault.times = word(CLIENT_FAULT_TIMES);
    fault.after = word(CLIENT_FAULT_AFTER);
    fault.percent = word(CLIENT_FAULT_PERCENT);
    fault.random = word(CLIENT_FAULT_SEED);
    fault.is_of_user = word(CLIENT_FAULT_OF_USER) != 0;
    fault.user_length = word(CLIENT_FAULT_USER_LENGTH);
    memcpy(fault.user, record + CLIENT_FAULT_USER, sizeof fault.user);
    fault.address.length = word(CLIENT_FAULT_ADDRESS_LENGTH);
    memcpy(fault.address.bytes, record + CLIENT_FAULT_ADDRESS, sizeof fault.address.bytes);
    fault.address_bits = word(CLIENT_FAULT_ADDRESS_BITS);
    fault.oid_length = word(CLIENT_FAULT_OID_LENGTH);
    const bool is_possible =
        fault.number != 0 && fault.percent >= 1 && fault.percent <= 100 && fault.user_length <= CLIENT_FAULT_USER_MAX &&
        (fault.address.length == 0 || fault.address.length == 4 || fault.address.length == 16) &&
        fault.address_bits <= 8 * fault.address.length && fault.oid_length <= CLIENT_FAULT_ARCS_MAX &&
        fault.value <= CLIENT_FAULT_ERROR_MAX && fault.detail <= CLIENT_FAULT_ERROR_MAX;
    for (uint32_t i = 0; is_possible && i < fault.oid_length; ++i) {
        const size_t place = CLIENT_FAULT_OID + size_t{4} * i;
        fault.oid[i] = read_be32(record + place);
    }
    return is_possible;
}

bool fault_agrees(const Fault &fault, const Message &message) {
    return (fault.pdus & message.type) != 0 &&
           (fault.about != ABOUT_V3_REQUESTS || message.pdu->version == SNMP_VERSION_3) &&
           user_agrees(fault, *message.pdu) && address_agrees(fault, message.address) &&
           names_agree(fault, *message.pdu);
}

bool fault_applies(Fault &fault) {
    if (fault.passed < fault.after) {
        ++fault.passed;
        return false;
    }
    if (fault.percent < 100 && draw(fault) % 100 >= fault.percent) {
        return false;
    }
    ++fault.applied;
    return true;
}

uint32_t fault_delay(Fault &fault) {
    if (fault.detail == 0) {
        return fault.value;
    }
    const uint64_t span = 2 * uint64_t{fault.detail} + 1;
    return static_cast<uint32_t>(fault.value - fault.detail + draw(fault) % span);
}

} // namespace switch_agent
