// SPDX-License-Identifier: Apache-2.0
// Names of SNMP objects and notifications, for operators who have no MIB at hand.
#ifndef VSWITCHCTL_OBJECT_NAMES_H
#define VSWITCHCTL_OBJECT_NAMES_H

#include <optional>
#include <string>
#include <string_view>

namespace vswitchctl {

// The OID that a text means, as numbers with dots between: such numbers, with or without a dot in
// front, or the name of one of the switch's objects, tables or notifications, alone or with
// numbers behind it (vsanName.10). Nothing when it is neither.
std::optional<std::string> oid_of(std::string_view text);

// The other way round: the name of the object that an OID is or begins with, with the numbers behind
// it, or the OID itself when it has no name here.
std::string name_of(const std::string &oid);

} // namespace vswitchctl

#endif
