// SPDX-License-Identifier: Apache-2.0
#include "value.h"

namespace switch_agent {

void Value::set_integer(long number) {
    type = ASN_INTEGER;
    room.number = number;
    bytes = &room;
    length = sizeof room.number;
}

void Value::set_count(uint8_t asn_type, uint32_t count) {
    type = asn_type;
    room.count = count;
    bytes = &room;
    length = sizeof room.count;
}

void Value::set_counter64(uint64_t count) {
    type = ASN_COUNTER64;
    room.wide.high = static_cast<u_long>(count >> 32);
    room.wide.low = static_cast<u_long>(count & UINT32_MAX);
    bytes = &room;
    length = sizeof room.wide;
}

void Value::set_bytes(const void *first, size_t count) {
    type = ASN_OCTET_STR;
    bytes = first;
    length = count;
}

void Value::set_object_id(const oid *name, size_t arcs) {
    type = ASN_OBJECT_ID;
    bytes = name;
    length = arcs * sizeof(oid);
}

bool Value::give_to(netsnmp_variable_list &varbind) const {
    return snmp_set_var_typed_value(&varbind, type, bytes, length) == 0;
}

} // namespace switch_agent
