// What a user may see and change: the VSANs of their role.

#include "vsan_mib.h"
#include "vsan_mib_trace.h"

#include "syserr.h"

#include <cstring>

namespace {

// What was refused last, as handed to the agent's log.
snmp_error_record error_record;

// The VSAN number that a GETNEXT starts from. An arc that is negative as the signed number
// that the manager takes it for comes before the first VSAN.
uint32_t asked_vsan(const variable *vp, const oid *name, size_t length) {
    if (length <= vp->namelen || snmp_oid_compare(name, vp->namelen, vp->name, vp->namelen) != 0)
        return 0;
    const auto arc = static_cast<uint32_t>(name[vp->namelen]);
    return arc > INT32_MAX ? 0 : arc;
}

} // namespace

int get_allowed_vsans(allowed_vsan_list &list, const oid *name, size_t length, int pdu_type) {
    list = {};
    list.size = sizeof list.bitmap;
    return snmp_get_allowed_vsans_subtree(&list, name, length, pdu_type);
}

bool find_visible_row(const char *function, const vsan_table &table, const variable *vp, oid *name, size_t *length,
                      int exact) {
    allowed_vsan_list allowed;
    if (get_allowed_vsans(allowed, name, *length, PDU_TYPE_GET) == 0)
        return table.lookup(vp, name, length, exact) == 0;

    if (exact != 0) {
        if (table.lookup(vp, name, length, exact) != 0)
            return false;
        const uint32_t vsan = table.current_vsan();
        const int is_allowed = snmp_is_vsan_allowed_in_list(vsan, allowed);
        VSAN_TRACE(TRACE_EVENT, "%s(%d) vsanIndex:%d , allowed:%d \n", function, __LINE__, static_cast<int>(vsan),
                   is_allowed);
        return is_allowed != 0;
    }

    for (uint32_t asked = asked_vsan(vp, name, *length);;) {
        if (table.lookup(vp, name, length, exact) != 0)
            return false;
        const uint32_t vsan = table.current_vsan();
        if (snmp_is_vsan_allowed_in_list(vsan, allowed) != 0)
            return true;
        // A manager that sends no row, or none after the one asked for, would keep us
        // here for ever.
        if (vsan <= asked)
            return false;

        uint32_t permitted = vsan;
        if (snmp_get_next_allowed_vsan_in_list(&permitted, allowed) == 0) {
            VSAN_TRACE(TRACE_EVENT, "%s(%d) vsan_present:%d \n", function, __LINE__, 0);
            return false;
        }
        VSAN_TRACE(TRACE_EVENT, "%s(%d) vsan_present:%d \n", function, __LINE__, static_cast<int>(permitted));
        // The manager answers with the first VSAN at or after the permitted one, and so
        // skips everything between in one step.
        asked = permitted - 1;
        memcpy(name, vp->name, vp->namelen * sizeof *name);
        name[vp->namelen] = asked;
        *length = static_cast<size_t>(vp->namelen) + 1;
    }
}

void report_restriction(uint32_t status) {
    error_record.code = status;
    snprintf(error_record.text, sizeof error_record.text, "%s", syserr_format(status));
    log_snmp_error(&error_record);
}
