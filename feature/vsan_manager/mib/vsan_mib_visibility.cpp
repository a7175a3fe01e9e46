// SPDX-License-Identifier: Apache-2.0
// What a user may see and change: the VSANs of their role.

#include "vsan_mib_visibility.h"
#include "vsan_mib_names.h"
#include "vsan_mib_trace.h"

#include "netsnmpagent_oryx.h"
#include "syserr.h"

#include <cstring>

// Both are measured below, so they are arrays: a pointer in a platform's header would be
// measured, too.
static_assert(sizeof allowed_vsan_list::bitmap == 512);
static_assert(sizeof snmp_error_record::text == 200);

namespace {

// What was refused last, as handed to the agent's log.
snmp_error_record error_record;

} // namespace

int get_allowed_vsans(allowed_vsan_list &list, const oid *name, size_t length, int pdu_type) {
    list = {};
    list.size = sizeof list.bitmap;
    return snmp_get_allowed_vsans_subtree(&list, name, length, pdu_type);
}

namespace {

// The GETNEXT of a restricted user.
bool find_next_visible(const char *function, int line, row_lookup lookup, const allowed_vsan_list &allowed,
                       const variable *vp, oid *name, size_t *length) {
    uint32_t vsan;
    for (uint32_t asked = next_vsan(column_name(vp), name, *length);;) {
        if (lookup(vp, name, length, 0, vsan) != 0) {
            return false;
        }
        if (snmp_is_vsan_allowed_in_list(vsan, allowed) != 0) {
            return true;
        }
        // A manager that sends no row, or none after the one asked for, would keep us
        // here for ever.
        if (vsan <= asked) {
            return false;
        }

        uint32_t permitted = vsan;
        if (snmp_get_next_allowed_vsan_in_list(&permitted, allowed) == 0) {
            VSAN_TRACE(TRACE_EVENT, "%s(%d) vsan_present:%d \n", function, line, 0);
            return false;
        }
        VSAN_TRACE(TRACE_EVENT, "%s(%d) vsan_present:%d \n", function, line, static_cast<int>(permitted));
        // The manager answers with the first VSAN at or after the permitted one, and so
        // skips everything between in one step.
        asked = permitted - 1;
        name_row(column_name(vp), name, length, asked);
    }
}

} // namespace

bool find_visible_row(const char *function, int line, row_lookup lookup, const variable *vp, oid *name, size_t *length,
                      int exact) {
    uint32_t vsan;
    allowed_vsan_list allowed;
    if (get_allowed_vsans(allowed, name, *length, PDU_TYPE_GET) == 0) {
        return lookup(vp, name, length, exact, vsan) == 0;
    }

    if (exact != 0) {
        if (lookup(vp, name, length, exact, vsan) != 0) {
            return false;
        }
        const int is_allowed = snmp_is_vsan_allowed_in_list(vsan, allowed);
        VSAN_TRACE(TRACE_EVENT, "%s(%d) vsanIndex:%d , allowed:%d \n", function, line, static_cast<int>(vsan),
                   is_allowed);
        return is_allowed != 0;
    }

    return find_next_visible(function, line, lookup, allowed, vp, name, length);
}

void report_restriction(uint32_t status) {
    error_record.code = status;
    snprintf(error_record.text, sizeof error_record.text, "%s", syserr_format(status));
    log_snmp_error(&error_record);
}
