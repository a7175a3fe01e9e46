// SPDX-License-Identifier: Apache-2.0
// GET and GETNEXT on the interface membership table (one row an interface, from the
// VSAN manager) and on the membership summary (one row a pair of VSAN and interface,
// from the port manager). Neither has a cache.

#include "vsan_mib_channel.h"
#include "vsan_mib_exports.h"
#include "vsan_mib_names.h"
#include "vsan_mib_objects.h"
#include "vsan_mib_state.h"
#include "vsan_mib_trace.h"
#include "vsan_mib_visibility.h"

#include "mts.h"
#include "netsnmpagent_oryx.h"
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

// Asks the manager for the interface that the key in `record` asks for, into `record`. Returns
// whether there is one; else the status of the lookup.
bool query_interface(const char *function, uint32_t kind, vsanIfEntry &record, uint32_t &status) {
    VSAN_TRACE(TRACE_EVENT, "%s : Sending  %s request to VSAN mgr with payload (size = %d) ifIndex = %d\n", function,
               kind_word(kind), static_cast<int>(sizeof record), record.ifIndex);
    vsanIfEntry request = record;
    vsanIfEntry_hton(&request);
    void *reply = nullptr;
    uint32_t reply_length = sizeof request;
    status = cmi_req_resp(OPCODE_IF_MEMBERSHIP, kind, &request, &reply, &reply_length, nullptr, 0, MANAGER_SAP_VSAN,
                          mts_response_q, WAIT_TABLE);
    if (status == 0 && reply != nullptr && reply_length < sizeof record) {
        status = ENTRY_NO_INSTANCE;
    }
    if (status != 0 || reply == nullptr) {
        // Before the trace, which may set errno itself.
        const char *reason = manager_error_text(status);
        VSAN_TRACE(TRACE_FAILURE, "%s(%d) : %s request failedfor ifIndex = %d with error : %s\n", function, __LINE__,
                   kind_word(kind), record.ifIndex, reason);
        free(reply);
        return false;
    }
    memcpy(&record, reply, sizeof record);
    free(reply);
    vsanIfEntry_ntoh(&record);
    VSAN_TRACE(TRACE_EVENT,
               "%s(%d) : Received  %s response from VSAN mgr with payload (size = %d) ifIndex = %d vsanIfVsan = %d, "
               "vsanIfDenyList=%d, vsanIfRowStatus=%d\n",
               function, __LINE__, kind_word(kind), static_cast<int>(sizeof record), record.ifIndex, record.vsanIfVsan,
               record.vsanIfDenyList, record.vsanIfRowStatus);
    return true;
}

// Finds the pair after `name` whose VSAN is in `allowed`, into
// vsanMembershipSummary_current. From a pair that is not permitted it jumps to the
// next permitted VSAN; without an ifIndex arc the lookup starts before that VSAN's first
// interface. Returns whether there is such a pair.
bool next_allowed_pair(const variable *vp, oid *name, size_t *length, const allowed_vsan_list &allowed) {
    const column_name column(vp);
    uint32_t asked = is_below(column, name, *length) ? index_arc(column, name) : 0;
    for (;;) {
        if (header_vsanMembershipSummaryEntry(vp->name, vp->namelen, name, length, 0, &vsanMembershipSummary_current) !=
            0) {
            return false;
        }
        uint32_t vsan = vsanMembershipSummary_current.vsanIndex;
        if (snmp_is_vsan_allowed_in_list(vsan, allowed) != 0) {
            return true;
        }
        // A port manager that goes backwards would keep us here for ever.
        if (vsan < asked) {
            return false;
        }
        if (snmp_get_next_allowed_vsan_in_list(&vsan, allowed) == 0) {
            return false;
        }
        asked = vsan;
        name_row(column, name, length, vsan);
    }
}

} // namespace

extern "C" {

// Looks up the interface that a request OID names (GET) or that follows it (GETNEXT).
// Arguments and result as for header_vsanEntry; the row's key is the ifIndex.
uint32_t header_vsanIfEntry(const oid *vp_name, size_t vp_namelen, oid *name, size_t *length, int exact,
                            vsanIfEntry *record) {
    const column_name column(vp_name, vp_namelen);
    uint32_t if_index;
    const bool is_within = asked_index(column, name, *length, exact, INTERFACE_TABLE_END, if_index);
    *record = {};
    record->ifIndex = static_cast<int32_t>(if_index);
    if (!is_within) {
        return ENTRY_NO_INSTANCE;
    }

    uint32_t status;
    if (!query_interface(__func__, exact != 0 ? GET_REQ : GETNEXT_REQ, *record, status)) {
        return status;
    }
    name_row(column, name, length, static_cast<uint32_t>(record->ifIndex));
    return 0;
}

// Says whether the user of the PDU in progress may read (operation 3) or move
// (operation 1) an interface: 0 when they may. Moving also needs the VSAN it goes to.
// A refusal for that VSAN's sake is recorded for the agent.
int process_for_vsan_restriction(uint32_t if_index, int operation, uint32_t vsan, const oid *name, size_t length,
                                 int pdu_type) {
    allowed_vsan_list allowed;
    if (get_allowed_vsans(allowed, name, length, pdu_type) != 1) {
        return 0;
    }
    const int barred = intf_chk_vsan_role_allowed(if_index, operation, allowed);
    if (barred != 0) {
        return barred;
    }
    if (operation != IF_OPERATION_MOVE || snmp_is_vsan_allowed_subtree(vsan, name, length, pdu_type) != 0) {
        return 0;
    }
    log_set_error(STATUS_VSAN_RESTRICTED_USER, LOG_NUMBER_RESOURCE);
    return SNMP_ERR_GENERR;
}

// The read handler of the interface table, called by the agent. Returns the column's
// value in static storage or null. The write method is handed over for existing rows
// only. The deny list is shown to everybody.
u_char *get_vsanIfEntry(variable *vp, oid *name, size_t *length, int exact, size_t *var_len,
                        WriteMethod **write_method) {
    vsanIfEntry &row = vsanIfEntry_current;
    if (header_vsanIfEntry(vp->name, vp->namelen, name, length, exact, &row) != 0) {
        return nullptr;
    }
    set_if_table_set_methods(vp->magic, write_method);

    const vsan_object *column = find_object(vp->magic, object_table::interface);
    if (column == nullptr) {
        snmp_set_detail("");
        return nullptr;
    }
    *var_len = sizeof(uint32_t);
    if (column->magic == VSANIFVSAN &&
        process_for_vsan_restriction(static_cast<uint32_t>(row.ifIndex), IF_OPERATION_READ,
                                     static_cast<uint32_t>(row.vsanIfVsan), name, *length, PDU_TYPE_GET) != 0) {
        return nullptr;
    }
    return reinterpret_cast<u_char *>(&row) + column->place.at;
}

// Hands the agent the write method of an interface column: none for the deny list.
// `write_method` stays as it is for anything else.
void set_if_table_set_methods(int magic, WriteMethod **write_method) {
    const vsan_object *column = find_object(magic, object_table::interface);
    if (column != nullptr) {
        *write_method = column->writer;
    }
}

// Looks up the pair of VSAN and interface that a request OID names (GET) or that
// follows it (GETNEXT). Arguments and result as for header_vsanEntry; the row's key is
// two arcs, VSAN and ifIndex.
uint32_t header_vsanMembershipSummaryEntry(const oid *vp_name, size_t vp_namelen, oid *name, size_t *length, int exact,
                                           vsanMembershipSummary_row *row) {
    *row = {};
    uint32_t vsan = 0;
    uint32_t if_index = 0;
    uint8_t is_static = 0;
    // A GET names both; a GETNEXT may name the VSAN alone, and has no end but the port manager's.
    const column_name column(vp_name, vp_namelen);
    const bool has_second = *length > vp_namelen + 1;
    if (exact != 0 ? *length == vp_namelen + 2 : is_below(column, name, *length)) {
        vsan = index_arc(column, name);
        if_index = has_second ? index_arc(column, name, 1) : 0;
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

    name_pair(column, name, length, vsan, if_index);
    return 0;
}

// The read handler of the membership summary, called by the agent. Returns the
// column's value in static storage or null.
u_char *get_vsanMembershipSummaryEntry(variable *vp, oid *name, size_t *length, int exact, size_t *var_len,
                                       WriteMethod **) {
    vsanMembershipSummary_row &row = vsanMembershipSummary_current;
    allowed_vsan_list allowed;
    const bool is_restricted = get_allowed_vsans(allowed, name, *length, PDU_TYPE_GET) != 0;
    if (is_restricted && exact == 0) {
        if (!next_allowed_pair(vp, name, length, allowed)) {
            return nullptr;
        }
    } else {
        if (header_vsanMembershipSummaryEntry(vp->name, vp->namelen, name, length, exact, &row) != 0) {
            return nullptr;
        }
        if (is_restricted && snmp_is_vsan_allowed_in_list(summary_get_vsan, allowed) == 0) {
            return nullptr;
        }
    }

    const vsan_object *column = find_object(vp->magic, object_table::membership);
    if (column == nullptr) {
        snmp_set_detail("");
        return nullptr;
    }
    *var_len = sizeof row.ifIndex;
    return reinterpret_cast<u_char *>(&row) + column->place.at;
}

} // extern "C"
