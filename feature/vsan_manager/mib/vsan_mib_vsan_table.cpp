// SPDX-License-Identifier: Apache-2.0
// GET and GETNEXT on the VSAN table: from OID to VSAN number, from VSAN number to row
// through the manager or the one-row cache, and from row to column value.

#include "vsan_mib_channel.h"
#include "vsan_mib_exports.h"
#include "vsan_mib_names.h"
#include "vsan_mib_objects.h"
#include "vsan_mib_state.h"
#include "vsan_mib_trace.h"
#include "vsan_mib_visibility.h"

#include "netsnmpagent_oryx.h"

#include <cstring>

vsanEntry vsanEntry_current;
int32_t vsanRowStatus_active;

namespace {

// The row of the latest successful query. It spares the manager a request for each
// further column of a row within one PDU; a later PDU has another request id, so it
// never sees an old row. Its key is what was asked, not what came back.
int32_t last_index = -1; // the VSAN number sent; -1 when the cache is empty
uint32_t last_reqid;
int last_exact;
vsanEntry vsanEntry_cache; // as received

uint32_t lookup(const variable *vp, oid *name, size_t *length, int exact, uint32_t &vsan) {
    const uint32_t status = header_vsanEntry(vp->name, vp->namelen, name, length, exact, &vsanEntry_current);
    vsan = static_cast<uint32_t>(vsanEntry_current.vsanIndex);
    return status;
}

// Whether the row that the key in `entry` asks for is in the cache; it is given then.
bool is_cached(const char *function, vsanEntry &entry, int exact) {
    const int32_t index = entry.vsanIndex;
    if (last_index == -1 || get_pdu_reqid() != last_reqid || exact != last_exact || index != last_index) {
        return false;
    }
    VSAN_TRACE(TRACE_EVENT,
               "%s : %s(%d) found the entry for vsan %d in the cache (last_index %d last_exact %d cache_index %d "
               "returning from cache\n",
               function, function, __LINE__, index, last_index, last_exact, vsanEntry_cache.vsanIndex);
    entry = vsanEntry_cache;
    return true;
}

// Asks the manager for the row that the key in `entry` asks for, and keeps it in the cache.
// Returns whether there is one; else the status of the lookup, with the key unchanged.
bool query_row(const char *function, vsanEntry &entry, int exact, uint32_t &status) {
    const char *word = exact != 0 ? "GET " : "GETNEXT";
    const int32_t index = entry.vsanIndex;
    // The key changes before the request goes out: whatever comes back belongs to it.
    last_reqid = get_pdu_reqid();
    last_exact = exact;
    VSAN_TRACE(TRACE_EVENT, "%s(%d) : Sending %s request to VSAN mgr with payload (size = %d) vsanIndex = %d\n",
               function, __LINE__, word, static_cast<int>(sizeof(vsanEntry_block)), index);
    vsanEntry_answer answer;
    status = query_vsanEntry(exact != 0 ? GET_REQ : GETNEXT_REQ, entry, entry, answer);
    if (answer != vsanEntry_answer::record) {
        // Before the trace, which may set errno itself.
        const char *reason = manager_error_text(status);
        VSAN_TRACE(TRACE_FAILURE, "%s(%d) : %s request FAILED for vsanIndex = %d with error : %s\n", function, __LINE__,
                   word, index, reason);
        last_index = -1;
        return false;
    }
    last_index = index;
    vsanEntry_cache = entry;
    VSAN_TRACE(TRACE_EVENT,
               "%s(%d) : Received  %s response from VSAN mgr with payload (size = %d) Index = %d MediaType = %d, "
               "State=%d, Mtu=%d, IODelivery = %d, vsanInteropMode=%d, LoadBalancingType=%d, rowStatus=%d, "
               "OperationalState =%d, Name=%s nwlatency %d\n",
               function, __LINE__, word, static_cast<int>(sizeof(vsanEntry_block)), entry.vsanIndex,
               entry.vsanMediaType, entry.vsanAdminState, entry.vsanMtu, entry.vsanInorderDelivery,
               entry.vsanInterOperMode, entry.vsanLoadBalancingType, entry.vsanRowStatus, entry.vsanOperState,
               vsan_name_text(entry).text, static_cast<int>(entry.vsanNetworkDropLatency));
    return true;
}

void select_writer(const vsan_object *column, WriteMethod **write_method) {
    if (column != nullptr && column->writer != nullptr) {
        VSAN_TRACE(TRACE_EVENT, column->selected.text, "set_table_set_methods", column->selected.line);
        *write_method = column->writer;
    }
}

// The value of a column of vsanEntry_current, for the agent.
u_char *column_value(const char *function, const vsan_object &column, size_t *var_len) {
    vsanEntry &row = vsanEntry_current;
    *var_len = sizeof(uint32_t);
    switch (column.place.form) {
    case value_form::name:
        *var_len = strnlen(row.vsanName, sizeof row.vsanName);
        break;
    case value_form::row_status:
        vsanRowStatus_active = SNMP_ROW_ACTIVE;
        return reinterpret_cast<u_char *>(&vsanRowStatus_active);
    case value_form::interop_mode:
        // Only the row handed out changes; the cache keeps the manager's number.
        if (row.vsanInterOperMode == INTEROP_MODE_DEFAULT) {
            row.vsanInterOperMode = 0;
        }
        VSAN_TRACE(TRACE_EVENT, "%s(%d) *var_len:%d interopmode:%d \n", function, __LINE__, static_cast<int>(*var_len),
                   row.vsanInterOperMode);
        break;
    default:
        break;
    }
    return reinterpret_cast<u_char *>(&row) + column.place.at;
}

} // namespace

extern "C" {

// Looks up the row that a request OID names (GET) or that follows it (GETNEXT).
//
// vp_name, vp_namelen  the column
// name, length         the request OID; on success the column and the row's number.
//                      Room for MAX_OID_LEN arcs.
// exact                nonzero for GET
// entry                receives the row, host order
//
// Returns 0 or a failure status, and then leaves the OID as it was. A manager that
// answers status 0 without any data leaves the OID too: the row then has the number
// asked for and zeroes, and the status is 0.
uint32_t header_vsanEntry(const oid *vp_name, size_t vp_namelen, oid *name, size_t *length, int exact,
                          vsanEntry *entry) {
    if (get_vsanEntry_instance(vp_name, vp_namelen, name, length, exact, entry) != 0) {
        VSAN_TRACE(TRACE_EVENT, "%s(%d) *** get_entry instance NO_ENTRY! ***\n", __func__, __LINE__);
        return ENTRY_NO_INSTANCE;
    }

    if (!is_cached(__func__, *entry, exact)) {
        uint32_t status;
        if (!query_row(__func__, *entry, exact, status)) {
            return status;
        }
    }
    name_row({vp_name, vp_namelen}, name, length, static_cast<uint32_t>(entry->vsanIndex));
    return 0;
}

// The read handler of the VSAN table, called by the agent. Returns the column's value
// in static storage, or null when there is no row or the user may not see it. The
// permission asked for is always that of the VSAN that the manager returned.
u_char *get_vsanEntry(variable *vp, oid *name, size_t *length, int exact, size_t *var_len, WriteMethod **write_method) {
    VSAN_TRACE(TRACE_EVENT, "%s(%d) Magic:%d  \n", __func__, __LINE__, vp->magic);

    // First of all, and for rows that do not exist too: they may be about to be created.
    const vsan_object *column = find_object(vp->magic, object_table::vsan);
    select_writer(column, write_method);
    if (!find_visible_row(__func__, __LINE__, lookup, vp, name, length, exact)) {
        return nullptr;
    }

    VSAN_TRACE(TRACE_EVENT, "%s(%d) Request type:%d \n", __func__, __LINE__, vp->magic);
    if (column == nullptr) {
        snmp_set_detail("BAD THING HAPPENED");
        return nullptr;
    }
    if (column->reading.text != nullptr) {
        VSAN_TRACE(TRACE_EVENT, column->reading.text, __func__, column->reading.line);
    }
    return column_value(__func__, *column, var_len);
}

// Hands the agent a column's write method. `write_method` stays as it is for a column that has
// none: the operational state (10), and whatever is no column.
void set_table_set_methods(int magic, WriteMethod **write_method) {
    select_writer(find_object(magic, object_table::vsan), write_method);
}

} // extern "C"
