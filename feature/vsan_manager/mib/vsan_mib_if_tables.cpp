// GET and GETNEXT on the interface membership table (one row an interface, from the
// VSAN manager) and on the membership summary (one row a pair of VSAN and interface,
// from the port manager). Neither has a cache.

#include "vsan_mib.h"
#include "vsan_mib_trace.h"

#include "pm.h"

#include <cstdlib>
#include <cstring>

vsanIfEntry vsanIfEntry_current;
alignas(4) vsanMembershipSummary_row vsanMembershipSummary_current;

namespace {

// A restricted user's GET on the summary is decided by this VSAN number, whatever row
// is asked for. Nothing ever sets it, so that is whether VSAN 0 is in the user's list;
// management applications have come to rely on it.
uint32_t summary_get_vsan;

const char *kind_word(uint32_t kind) {
    return kind == GET_REQ ? "GET" : "GETNEXT";
}

// Whether the first arcs of a request OID, all there, are the column's.
bool is_below(const oid *vp_name, size_t vp_namelen, const oid *name, size_t length) {
    return length > vp_namelen && snmp_oid_compare(name, vp_namelen, vp_name, vp_namelen) == 0;
}

/*
 * Finds the pair after `name` whose VSAN is in `allowed`, into
 * vsanMembershipSummary_current. From a pair that is not permitted it jumps to the
 * next permitted VSAN; without an ifIndex arc the lookup starts before that VSAN's first
 * interface. Returns whether there is such a pair.
 */
bool next_allowed_pair(const variable *vp, oid *name, size_t *length, const allowed_vsan_list &allowed) {
    uint32_t asked = 0;
    if (is_below(vp->name, vp->namelen, name, *length))
        asked = static_cast<uint32_t>(name[vp->namelen]);
    for (;;) {
        if (header_vsanMembershipSummaryEntry(vp->name, vp->namelen, name, length, 0, &vsanMembershipSummary_current) !=
            0)
            return false;
        uint32_t vsan = vsanMembershipSummary_current.vsanIndex;
        if (snmp_is_vsan_allowed_in_list(vsan, allowed) != 0)
            return true;
        // A port manager that goes backwards would keep us here for ever.
        if (vsan < asked)
            return false;
        if (snmp_get_next_allowed_vsan_in_list(&vsan, allowed) == 0)
            return false;
        asked = vsan;
        name[vp->namelen] = vsan;
        *length = static_cast<size_t>(vp->namelen) + 1;
    }
}

} // namespace

extern "C" {

/*
 * Looks up the interface that a request OID names (GET) or that follows it (GETNEXT).
 * Arguments and result as for header_vsanEntry; the row's key is the ifIndex.
 */
uint32_t header_vsanIfEntry(const oid *vp_name, size_t vp_namelen, oid *name, size_t *length, int exact,
                            vsanIfEntry *record) {
    *record = {};
    if (exact != 0) {
        if (*length == vp_namelen + 1)
            record->ifIndex = static_cast<int32_t>(static_cast<uint32_t>(name[vp_namelen]));
    } else if (is_below(vp_name, vp_namelen, name, *length)) {
        record->ifIndex = static_cast<int32_t>(static_cast<uint32_t>(name[vp_namelen]));
        // Nothing can follow the largest ifIndex.
        if (static_cast<uint32_t>(record->ifIndex) == UINT32_MAX)
            return ENTRY_NO_INSTANCE;
    }

    const uint32_t kind = exact != 0 ? GET_REQ : GETNEXT_REQ;
    VSAN_TRACE(TRACE_EVENT, "%s : Sending  %s request to VSAN mgr with payload (size = %d) ifIndex = %d\n", __func__,
               kind_word(kind), static_cast<int>(sizeof *record), record->ifIndex);
    vsanIfEntry request = *record;
    vsanIfEntry_hton(&request);
    void *reply = nullptr;
    uint32_t reply_length = sizeof request;
    uint32_t status = cmi_req_resp(OPCODE_IF_MEMBERSHIP, kind, &request, &reply, &reply_length, nullptr, 0,
                                   MANAGER_SAP_VSAN, mts_response_q, WAIT_TABLE);
    if (status == 0 && reply != nullptr && reply_length < sizeof *record)
        status = ENTRY_NO_INSTANCE;
    if (status != 0 || reply == nullptr) {
        // Before the trace, which may set errno itself.
        const char *reason = manager_error_text(status);
        VSAN_TRACE(TRACE_FAILURE, "%s(%d) : %s request failedfor ifIndex = %d with error : %s\n", __func__, __LINE__,
                   kind_word(kind), record->ifIndex, reason);
        free(reply);
        return status;
    }
    memcpy(record, reply, sizeof *record);
    free(reply);
    vsanIfEntry_ntoh(record);
    VSAN_TRACE(TRACE_EVENT,
               "%s(%d) : Received  %s response from VSAN mgr with payload (size = %d) ifIndex = %d vsanIfVsan = %d, "
               "vsanIfDenyList=%d, vsanIfRowStatus=%d\n",
               __func__, __LINE__, kind_word(kind), static_cast<int>(sizeof *record), record->ifIndex,
               record->vsanIfVsan, record->vsanIfDenyList, record->vsanIfRowStatus);

    memcpy(name, vp_name, vp_namelen * sizeof *name);
    name[vp_namelen] = static_cast<uint32_t>(record->ifIndex);
    *length = vp_namelen + 1;
    return 0;
}

/*
 * Says whether the user of the PDU in progress may read (operation 3) or move
 * (operation 1) an interface: 0 when they may. Moving also needs the VSAN it goes to.
 * A refusal for that VSAN's sake is recorded for the agent.
 */
int process_for_vsan_restriction(uint32_t if_index, int operation, uint32_t vsan, const oid *name, size_t length,
                                 int pdu_type) {
    allowed_vsan_list allowed;
    if (get_allowed_vsans(allowed, name, length, pdu_type) != 1)
        return 0;
    const int barred = intf_chk_vsan_role_allowed(if_index, operation, allowed);
    if (barred != 0)
        return barred;
    if (operation != IF_OPERATION_MOVE || snmp_is_vsan_allowed_subtree(vsan, name, length, pdu_type) != 0)
        return 0;
    log_set_error(STATUS_VSAN_RESTRICTED_USER, LOG_NUMBER_RESOURCE);
    return SNMP_ERR_GENERR;
}

/*
 * The read handler of the interface table, called by the agent. Returns the column's
 * value in static storage or null. The write method is handed over for existing rows
 * only. The deny list is shown to everybody.
 */
u_char *get_vsanIfEntry(variable *vp, oid *name, size_t *length, int exact, size_t *var_len,
                        WriteMethod **write_method) {
    vsanIfEntry &row = vsanIfEntry_current;
    if (header_vsanIfEntry(vp->name, vp->namelen, name, length, exact, &row) != 0)
        return nullptr;
    set_if_table_set_methods(vp->magic, write_method);

    switch (vp->magic) {
    case VSANIFVSAN:
        *var_len = sizeof row.vsanIfVsan;
        if (process_for_vsan_restriction(static_cast<uint32_t>(row.ifIndex), IF_OPERATION_READ,
                                         static_cast<uint32_t>(row.vsanIfVsan), name, *length, PDU_TYPE_GET) != 0)
            return nullptr;
        return reinterpret_cast<u_char *>(&row.vsanIfVsan);
    case VSANIFDENYLIST:
        *var_len = sizeof row.vsanIfDenyList;
        return reinterpret_cast<u_char *>(&row.vsanIfDenyList);
    default:
        snmp_set_detail("");
        return nullptr;
    }
}

/*
 * Looks up the pair of VSAN and interface that a request OID names (GET) or that
 * follows it (GETNEXT). Arguments and result as for header_vsanEntry; the row's key is
 * two arcs, VSAN and ifIndex.
 */
uint32_t header_vsanMembershipSummaryEntry(const oid *vp_name, size_t vp_namelen, oid *name, size_t *length, int exact,
                                           vsanMembershipSummary_row *row) {
    *row = {};
    uint32_t vsan = 0;
    uint32_t if_index = 0;
    uint8_t is_static = 0;
    const bool has_both = *length == vp_namelen + 2;
    if (exact != 0 ? has_both : is_below(vp_name, vp_namelen, name, *length)) {
        vsan = static_cast<uint32_t>(name[vp_namelen]);
        if (*length > vp_namelen + 1)
            if_index = static_cast<uint32_t>(name[vp_namelen + 1]);
    }

    const uint32_t kind = exact != 0 ? GET_REQ : GETNEXT_REQ;
    VSAN_TRACE(TRACE_EVENT, "%s : Sending %s req for vsanIndex = %d and ifIndex = %d \n", __func__, kind_word(kind),
               static_cast<int>(vsan), static_cast<int>(if_index));
    const uint32_t status =
        pm_cmi_get_active_vsan_port_membership(mts_response_q, kind, &vsan, &if_index, &is_static, get_snmp_username(0),
                                               get_snmp_sessionid(0), WAIT_MEMBERSHIP);
    row->vsanIndex = vsan;
    row->ifIndex = if_index;
    row->is_static = is_static;
    if (status != 0) {
        // Before the trace, which may set errno itself.
        const char *reason = manager_error_text(status);
        VSAN_TRACE(TRACE_FAILURE, "%s(%d) : %s req FAILED for vsanIndex = %d: ifIndex = %d : %s\n", __func__, __LINE__,
                   kind_word(kind), static_cast<int>(vsan), static_cast<int>(if_index), reason);
        return status;
    }
    VSAN_TRACE(TRACE_EVENT, "%s : Recd resp for %s req for vsanIndex=%d, ifIndex = %d, is_static %d \n", __func__,
               kind_word(kind), static_cast<int>(vsan), static_cast<int>(if_index), is_static);

    memcpy(name, vp_name, vp_namelen * sizeof *name);
    name[vp_namelen] = vsan;
    name[vp_namelen + 1] = if_index;
    *length = vp_namelen + 2;
    return 0;
}

/*
 * The read handler of the membership summary, called by the agent. Returns the
 * column's value in static storage or null.
 */
u_char *get_vsanMembershipSummaryEntry(variable *vp, oid *name, size_t *length, int exact, size_t *var_len,
                                       WriteMethod **) {
    vsanMembershipSummary_row &row = vsanMembershipSummary_current;
    allowed_vsan_list allowed;
    const bool is_restricted = get_allowed_vsans(allowed, name, *length, PDU_TYPE_GET) != 0;
    if (is_restricted && exact == 0) {
        if (!next_allowed_pair(vp, name, length, allowed))
            return nullptr;
    } else {
        if (header_vsanMembershipSummaryEntry(vp->name, vp->namelen, name, length, exact, &row) != 0)
            return nullptr;
        if (is_restricted && snmp_is_vsan_allowed_in_list(summary_get_vsan, allowed) == 0)
            return nullptr;
    }

    if (vp->magic != VSANMEMBERSHIPSUMMARYIFINDEX) {
        snmp_set_detail("");
        return nullptr;
    }
    *var_len = sizeof row.ifIndex;
    return reinterpret_cast<u_char *>(&row) + offsetof(vsanMembershipSummary_row, ifIndex);
}

} // extern "C"
