// SPDX-License-Identifier: Apache-2.0
// The subtree that the module serves.
#ifndef NETSNMPAGENT_ORYX_ROOT_H
#define NETSNMPAGENT_ORYX_ROOT_H

#include <cstddef>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

namespace oryx {

inline constexpr oid ROOT[] = {1, 3, 6, 1, 4, 1, static_cast<oid>(VENDOR_PEN), 9, 282};

// Whether a name of `length` arcs is the root or lies under it.
inline bool is_under_root(const oid *name, size_t length) {
    return length >= OID_LENGTH(ROOT) && netsnmp_oid_equals(name, OID_LENGTH(ROOT), ROOT, OID_LENGTH(ROOT)) == 0;
}

} // namespace oryx

#endif
