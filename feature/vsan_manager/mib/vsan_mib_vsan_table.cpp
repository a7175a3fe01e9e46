// GET and GETNEXT on the VSAN table: from OID to VSAN number, from VSAN number to row
// through the manager or the one-row cache, and from row to column value.

#include "vsan_mib.h"
#include "vsan_mib_trace.h"

#include <cstring>

vsanEntry vsanEntry_current;
int32_t vsanRowStatus_active;

namespace {

/*
 * The row of the latest successful query. It spares the manager a request for each
 * further column of a row within one PDU; a later PDU has another request id, so it
 * never sees an old row. Its key is what was asked, not what came back.
 */
int32_t last_index = -1; // the VSAN number sent; -1 when the cache is empty
uint32_t last_reqid;
int last_exact;
vsanEntry vsanEntry_cache; // as received

u_char *integer_result(void *value, size_t *var_len) {
    *var_len = sizeof(uint32_t);
    return static_cast<u_char *>(value);
}

uint32_t lookup(const variable *vp, oid *name, size_t *length, int exact) {
    return header_vsanEntry(vp->name, vp->namelen, name, length, exact, &vsanEntry_current);
}

uint32_t current_vsan() {
    return static_cast<uint32_t>(vsanEntry_current.vsanIndex);
}

constexpr vsan_table table = {lookup, current_vsan};

} // namespace

bool resolve_instance(const oid *name, size_t name_len, vsanEntry &entry) {
    return get_vsanEntry_instance(name, VSAN_COLUMN_LENGTH, name, &name_len, 1, &entry) == 0;
}

extern "C" {

/*
 * Takes the VSAN number from a request OID.
 *
 * vp_name, vp_namelen  the column
 * name, length         the request OID; not changed
 * exact                nonzero for GET
 * entry                cleared, then given the number; 0 stands for "before the first"
 *
 * Returns 0, or ENTRY_NO_INSTANCE for a GETNEXT from beyond the table. A GET takes a
 * number only from an OID of exactly one arc more than the column, and whatever it is.
 */
uint32_t get_vsanEntry_instance(const oid *vp_name, size_t vp_namelen, const oid *name, const size_t *length, int exact,
                                vsanEntry *entry) {
    *entry = {};
    if (*length <= vp_namelen)
        return 0;

    if (exact != 0) {
        if (*length == vp_namelen + 1)
            entry->vsanIndex = static_cast<int32_t>(static_cast<uint32_t>(name[vp_namelen]));
        return 0;
    }

    if (snmp_oid_compare(name, vp_namelen, vp_name, vp_namelen) == 0)
        entry->vsanIndex = static_cast<int32_t>(static_cast<uint32_t>(name[vp_namelen]));
    if (static_cast<uint32_t>(entry->vsanIndex) > VSAN_GETNEXT_LIMIT) {
        VSAN_TRACE(TRACE_EVENT, "%s(%d)*** vsanIndex:%d *** \n", __func__, __LINE__, entry->vsanIndex);
        return ENTRY_NO_INSTANCE;
    }
    return 0;
}

/*
 * Looks up the row that a request OID names (GET) or that follows it (GETNEXT).
 *
 * vp_name, vp_namelen  the column
 * name, length         the request OID; on success the column and the row's number.
 *                      Room for MAX_OID_LEN arcs.
 * exact                nonzero for GET
 * entry                receives the row, host order
 *
 * Returns 0 or a failure status, and then leaves the OID as it was. A manager that
 * answers status 0 without any data leaves the OID too: the row then has the number
 * asked for and zeroes, and the status is 0.
 */
uint32_t header_vsanEntry(const oid *vp_name, size_t vp_namelen, oid *name, size_t *length, int exact,
                          vsanEntry *entry) {
    if (get_vsanEntry_instance(vp_name, vp_namelen, name, length, exact, entry) != 0) {
        VSAN_TRACE(TRACE_EVENT, "%s(%d) *** get_entry instance NO_ENTRY! ***\n", __func__, __LINE__);
        return ENTRY_NO_INSTANCE;
    }

    const int32_t index = entry->vsanIndex;
    if (last_index != -1 && get_pdu_reqid() == last_reqid && exact == last_exact && index == last_index) {
        VSAN_TRACE(TRACE_EVENT,
                   "%s : %s(%d) found the entry for vsan %d in the cache (last_index %d last_exact %d cache_index %d "
                   "returning from cache\n",
                   __func__, __func__, __LINE__, index, last_index, last_exact, vsanEntry_cache.vsanIndex);
        *entry = vsanEntry_cache;
    } else {
        // The key changes before the request goes out: whatever comes back belongs to it.
        last_reqid = get_pdu_reqid();
        last_exact = exact;

        VSAN_TRACE(TRACE_EVENT, "%s(%d) : Sending %s request to VSAN mgr with payload (size = %d) vsanIndex = %d\n",
                   __func__, __LINE__, exact != 0 ? "GET " : "GETNEXT", static_cast<int>(sizeof(vsanEntry_block)),
                   index);
        vsanEntry_answer answer;
        const uint32_t status = query_vsanEntry(exact != 0 ? GET_REQ : GETNEXT_REQ, *entry, *entry, answer);
        if (answer != vsanEntry_answer::record) {
            // Before the trace, which may set errno itself.
            const char *reason = manager_error_text(status);
            VSAN_TRACE(TRACE_FAILURE, "%s(%d) : %s request FAILED for vsanIndex = %d with error : %s\n", __func__,
                       __LINE__, exact != 0 ? "GET " : "GETNEXT", index, reason);
            last_index = -1;
            return status;
        }
        last_index = index;
        vsanEntry_cache = *entry;
        VSAN_TRACE(TRACE_EVENT,
                   "%s(%d) : Received  %s response from VSAN mgr with payload (size = %d) Index = %d MediaType = %d, "
                   "State=%d, Mtu=%d, IODelivery = %d, vsanInteropMode=%d, LoadBalancingType=%d, rowStatus=%d, "
                   "OperationalState =%d, Name=%s nwlatency %d\n",
                   __func__, __LINE__, exact != 0 ? "GET " : "GETNEXT", static_cast<int>(sizeof(vsanEntry_block)),
                   entry->vsanIndex, entry->vsanMediaType, entry->vsanAdminState, entry->vsanMtu,
                   entry->vsanInorderDelivery, entry->vsanInterOperMode, entry->vsanLoadBalancingType,
                   entry->vsanRowStatus, entry->vsanOperState, vsan_name_text(*entry).text,
                   static_cast<int>(entry->vsanNetworkDropLatency));
    }

    memcpy(name, vp_name, vp_namelen * sizeof *name);
    name[vp_namelen] = static_cast<uint32_t>(entry->vsanIndex);
    *length = vp_namelen + 1;
    return 0;
}

/*
 * The read handler of the VSAN table, called by the agent. Returns the column's value
 * in static storage, or null when there is no row or the user may not see it. The
 * permission asked for is always that of the VSAN that the manager returned.
 */
u_char *get_vsanEntry(variable *vp, oid *name, size_t *length, int exact, size_t *var_len, WriteMethod **write_method) {
    VSAN_TRACE(TRACE_EVENT, "%s(%d) Magic:%d  \n", __func__, __LINE__, vp->magic);

    // First of all, and for rows that do not exist too: they may be about to be created.
    set_table_set_methods(vp->magic, write_method);
    if (!find_visible_row(__func__, table, vp, name, length, exact))
        return nullptr;

    VSAN_TRACE(TRACE_EVENT, "%s(%d) Request type:%d \n", __func__, __LINE__, vp->magic);
    vsanEntry &row = vsanEntry_current;
    switch (vp->magic) {
    case VSANNAME:
        *var_len = strnlen(row.vsanName, sizeof row.vsanName);
        return reinterpret_cast<u_char *>(row.vsanName);
    case VSANMEDIATYPE:
        VSAN_TRACE(TRACE_EVENT, "%s(%d) VSANMEDIATYPE \n", __func__, __LINE__);
        return integer_result(&row.vsanMediaType, var_len);
    case VSANADMINSTATE:
        VSAN_TRACE(TRACE_EVENT, "%s(%d) VSANADMINSTATE \n", __func__, __LINE__);
        return integer_result(&row.vsanAdminState, var_len);
    case VSANMTU:
        return integer_result(&row.vsanMtu, var_len);
    case VSANLOADBALANCINGTYPE:
        return integer_result(&row.vsanLoadBalancingType, var_len);
    case VSANOPERSTATE:
        VSAN_TRACE(TRACE_EVENT, "%s(%d) VSANOPERSTATE  \n", __func__, __LINE__);
        return integer_result(&row.vsanOperState, var_len);
    case VSANROWSTATUS:
        // A row that can be read is active, whatever the manager keeps in its record.
        vsanRowStatus_active = SNMP_ROW_ACTIVE;
        return integer_result(&vsanRowStatus_active, var_len);
    case VSANINTEROPERTYPE:
        // Only the row handed out changes; the cache keeps the manager's number.
        if (row.vsanInterOperMode == INTEROP_MODE_DEFAULT)
            row.vsanInterOperMode = 0;
        *var_len = sizeof row.vsanInterOperMode;
        VSAN_TRACE(TRACE_EVENT, "%s(%d) *var_len:%d interopmode:%d \n", __func__, __LINE__, static_cast<int>(*var_len),
                   row.vsanInterOperMode);
        return reinterpret_cast<u_char *>(&row.vsanInterOperMode);
    case VSANINORDERDELIVERY:
        return integer_result(&row.vsanInorderDelivery, var_len);
    case VSANNETWORKDROPLATENCY:
        return integer_result(&row.vsanNetworkDropLatency, var_len);
    default:
        snmp_set_detail("BAD THING HAPPENED");
        return nullptr;
    }
}

} // extern "C"
