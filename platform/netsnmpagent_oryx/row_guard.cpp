// SPDX-License-Identifier: Apache-2.0
#include "row_guard.h"

#include <cstdlib>
#include <cstring>

#include "free_pass.h"

namespace oryx {

RowGuard::RowGuard(const netsnmp_request_info *requests) {
    size_t words = 0;
    for (const netsnmp_request_info *request = requests; request; request = request->next) {
        words += 1 + request->requestvb->name_length;
    }
    names_ = static_cast<oid *>(calloc(words ? words : 1, sizeof(oid)));
    if (!names_) {
        return;
    }
    oid *next = names_;
    for (const netsnmp_request_info *request = requests; request; request = request->next) {
        const netsnmp_variable_list &varbind = *request->requestvb;
        *next++ = static_cast<oid>(varbind.name_length);
        if (varbind.name_length > 0) {
            memcpy(next, varbind.name, varbind.name_length * sizeof(oid));
        }
        next += varbind.name_length;
    }
}

RowGuard::~RowGuard() {
    free(names_);
}

void RowGuard::restore(netsnmp_handler_registration &registration, netsnmp_agent_request_info &request_info,
                       netsnmp_request_info *requests) const {
    const oid *next = names_;
    for (netsnmp_request_info *request = requests; request; request = request->next) {
        const size_t length = static_cast<size_t>(*next++);
        const oid *name = next;
        next += length;
        netsnmp_variable_list &varbind = *request->requestvb;
        if (netsnmp_oid_equals(varbind.name, varbind.name_length, name, length) == 0) {
            continue;
        }
        free_varbind(registration, request_info, *request);
        snmp_set_var_objid(&varbind, name, length);
        netsnmp_set_request_error(&request_info, request, SNMP_ERR_INCONSISTENTNAME);
    }
}

} // namespace oryx
