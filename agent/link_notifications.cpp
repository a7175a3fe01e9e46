// SPDX-License-Identifier: Apache-2.0
#include "link_notifications.h"

#include <cstring>

#include "contract/big_endian.h"
#include "contract/interfaces.h"
#include "if_columns.h"
#include "system_group.h"

namespace switch_agent {
namespace {

const oid LINK_DOWN[] = {1, 3, 6, 1, 6, 3, 1, 1, 5, 3};
const oid LINK_UP[] = {1, 3, 6, 1, 6, 3, 1, 1, 5, 4};
const oid SNMP_TRAP_ENTERPRISE[] = {1, 3, 6, 1, 6, 3, 1, 1, 4, 3, 0};
static_assert(sizeof LINK_DOWN == sizeof LINK_UP);

netsnmp_variable_list *bind(netsnmp_variable_list *list, unsigned column, uint32_t if_index, uint32_t value) {
    const oid name[] = {1, 3, 6, 1, 2, 1, 2, 2, 1, column, if_index};
    const auto number = static_cast<int32_t>(value);
    return build_varbind(list, &number, ASN_INTEGER, sizeof number, name, OID_LENGTH(name));
}

} // namespace

netsnmp_variable_list *notify_of_link(const mts_message *message, oid *trap_oid, size_t *trap_length, int *send) {
    *send = 0;
    const auto *event = message ? static_cast<const uint8_t *>(mts_payload_get(message)) : nullptr;
    if (!event || mts_payload_size(message) != PORT_CHANGED_SIZE) {
        return nullptr;
    }
    const uint32_t if_index = read_be32(event + PORT_CHANGED_IF_INDEX);
    const uint32_t which = read_be32(event + PORT_CHANGED_WHICH);
    const uint32_t oper = read_be32(event + PORT_CHANGED_OPER);
    if ((which & PORT_CHANGE_OPER) == 0 || read_be32(event + PORT_CHANGED_TRAPS) != PORT_TRAPS_ENABLED ||
        (oper != PORT_UP && oper != PORT_DOWN)) {
        return nullptr;
    }
    memcpy(trap_oid, oper == PORT_UP ? LINK_UP : LINK_DOWN, sizeof LINK_UP);
    *trap_length = OID_LENGTH(LINK_UP);
    *send = 1;
    netsnmp_variable_list *bindings = bind(nullptr, IF_INDEX, if_index, if_index);
    bindings = bind(bindings, IF_ADMIN_STATUS, if_index, read_be32(event + PORT_CHANGED_ADMIN));
    bindings = bind(bindings, IF_OPER_STATUS, if_index, oper);
    // Left to itself the agent names its own software here, behind each of the standard notifications.
    return build_varbind(bindings, SYS_OBJECT_ID, ASN_OBJECT_ID, sizeof SYS_OBJECT_ID, SNMP_TRAP_ENTERPRISE,
                         OID_LENGTH(SNMP_TRAP_ENTERPRISE));
}

} // namespace switch_agent
