// SPDX-License-Identifier: Apache-2.0
// The phases of vsanRowStatus: creates a VSAN (createAndGo), applies its row again (active), deletes
// it (destroy), and backs out in UNDO what ACTION did.

#include "vsan_mib_channel.h"
#include "vsan_mib_exports.h"
#include "vsan_mib_names.h"
#include "vsan_mib_never.h"
#include "vsan_mib_set.h"
#include "vsan_mib_staging.h"
#include "vsan_mib_state.h"
#include "vsan_mib_trace.h"

#include "netsnmpagent_oryx.h"
#include "syserr.h"

#include <cstdlib>
#include <cstring>

FILE *vsan_mib_debug_file;

namespace {

constexpr char function_name[] = "set_vsanRowStatus";

int inconsistent_name() {
    VSAN_TRACE(TRACE_EVENT, "%s(%d) *** InconsistantName! ***\n", function_name, __LINE__);
    return SNMP_ERR_INCONSISTENTNAME;
}

// Keeps the row as the read handler has found it, for UNDO.
int keep_for_undo(const vsanEntry &key, const vsanEntry &current) {
    const undo_place undo = find_undo_place(key);
    if (undo.record == nullptr) {
        return out_of_resources();
    }
    if (!keep_undo_copy(undo, current, key.vsanIndex)) {
        VSAN_TRACE(TRACE_FAILURE, "%s(%d) undo_list %d \n", function_name, __LINE__, key.vsanIndex);
        return out_of_resources();
    }
    VSAN_TRACE(TRACE_EVENT, "%s(%d) indexobj_Add to undo_list \n", function_name, __LINE__);
    return SNMP_ERR_NOERROR;
}

// Puts a row with default values on the pending list, for the columns to fill in.
int stage_new_row(const set_call &call) {
    VSAN_TRACE(TRACE_EVENT, "%s(%d) RS_CREATEANDGO! \n", function_name, __LINE__);
    vsanEntry *created = new_row();
    if (created == nullptr) {
        return out_of_resources();
    }
    VSAN_TRACE(TRACE_EVENT, "%s(%d)set_vsanRowStatus  RS_CREATEANDGO! \n", function_name, __LINE__);
    if (VSAN_NEVER(!resolve_instance(call.name, call.name_len, *created), EXACT_NAMES_RESOLVE)) {
        free(created);
        return inconsistent_name();
    }

    VSAN_TRACE(TRACE_EVENT, "%s(%d) Validate Vsan_id\n", function_name, __LINE__);
    const int status = check_permission(call, last_arc(call.name, call.name_len));
    if (status != SNMP_ERR_NOERROR) {
        free(created);
        return status;
    }

    vsanEntry_defaults(created);
    created->vsanRowStatus = SNMP_ROW_CREATEANDGO;
    VSAN_TRACE(TRACE_EVENT, "%s(%d) : Row Status = %d\n", function_name, __LINE__, created->vsanRowStatus);
    VSAN_TRACE(TRACE_EVENT, "%s(%d) : Adding entry vsanIndex = %d, to vsanEntry_list (row_status = %d)\n",
               function_name, __LINE__, created->vsanIndex, created->vsanRowStatus);
    // Twice in one PDU the row is still created once.
    if (pending_row(*created) != nullptr) {
        free(created);
        return SNMP_ERR_NOERROR;
    }
    return add_pending_row(created) ? SNMP_ERR_NOERROR : out_of_resources();
}

// Destroy is for those who may create and delete the VSAN.
int check_destroy(const set_call &call) {
    vsanEntry doomed;
    if (VSAN_NEVER(!resolve_instance(call.name, call.name_len, doomed), EXACT_NAMES_RESOLVE)) {
        return inconsistent_name();
    }
    VSAN_TRACE(TRACE_EVENT, "%s(%d) : set Rowstatus Validate Vsan_id \n", function_name, __LINE__);
    return check_permission(call, last_arc(call.name, call.name_len));
}

// A row that exists is kept for UNDO, whether it is to be applied or destroyed.
int check_existing(const set_call &call, int32_t wanted) {
    if (wanted == SNMP_ROW_CREATEANDGO) {
        VSAN_TRACE(TRACE_EVENT, "%s(%d) ***InconsistantName! ***\n", function_name, __LINE__);
        return SNMP_ERR_INCONSISTENTVALUE;
    }
    // Kept under the number by which FREE and UNDO look for it, which an OID of an
    // unusual length does not end in.
    vsanEntry existing;
    if (VSAN_NEVER(!resolve_instance(call.name, call.name_len, existing), EXACT_NAMES_RESOLVE)) {
        return inconsistent_name();
    }
    const int status = keep_for_undo(existing, vsanEntry_current);
    return status == SNMP_ERR_NOERROR && wanted == SNMP_ROW_DESTROY ? check_destroy(call) : status;
}

int check_missing(const set_call &call, int32_t wanted) {
    switch (wanted) {
    case SNMP_ROW_CREATEANDGO:
        return stage_new_row(call);
    case SNMP_ROW_DESTROY:
        return check_destroy(call);
    default:
        return SNMP_ERR_NOERROR; // refused in ACTION, should the row still be missing
    }
}

} // namespace

// RESERVE1.
int check_row_status(const set_call &call) {
    const int status = check_form(call);
    if (status != SNMP_ERR_NOERROR) {
        return status;
    }
    if (last_arc(call.name, call.name_len) - 1 > VSAN_MAX - 1) {
        return SNMP_ERR_WRONGVALUE;
    }
    const auto wanted = static_cast<int32_t>(integer_of(call));
    VSAN_TRACE(TRACE_EVENT, "%s(%d) set_vsanrowstatus long_ret:%d \n", function_name, __LINE__, wanted);
    VSAN_TRACE(TRACE_EVENT, "%s(%d) long_ret:%d \n", function_name, __LINE__, wanted);
    if (wanted != SNMP_ROW_ACTIVE && wanted != SNMP_ROW_CREATEANDGO && wanted != SNMP_ROW_DESTROY) {
        return SNMP_ERR_WRONGVALUE;
    }
    return call.current != nullptr ? check_existing(call, wanted) : check_missing(call, wanted);
}

// RESERVE2: the value that the agent shows as current; a row that does not exist has none.
int show_active(const set_call &call) {
    if (call.current != nullptr) {
        *call.current = SNMP_ROW_ACTIVE;
    }
    return SNMP_ERR_NOERROR;
}

namespace {

// Sends a row in ACTION.
int send_row(uint32_t kind, const vsanEntry &row) {
    const char *word = kind == SET_REQ ? "SET" : "DELETE";
    VSAN_TRACE(TRACE_EVENT,
               "Sending %s req to vsan for vsan = %d name %s mediatype %d mtu %d inorderdeliver %d interopermode %d "
               "loadbtype %d state %d  nwlatency %d\n",
               word, row.vsanIndex, vsan_name_text(row).text, row.vsanMediaType, row.vsanMtu, row.vsanInorderDelivery,
               row.vsanInterOperMode, row.vsanLoadBalancingType, row.vsanAdminState,
               static_cast<int>(row.vsanNetworkDropLatency));
    const uint32_t status = send_vsanEntry(kind, row);
    if (status != 0) {
        VSAN_TRACE(TRACE_FAILURE, "%s failed : %s\n", word, syserr_format(status));
        return refused_by_manager(status);
    }
    if (vsan_mib_debug_file != nullptr) {
        fprintf(vsan_mib_debug_file, "%s : %s(%d) %s for vsanIndex %d succeeded\n", function_name, function_name,
                __LINE__, word, row.vsanIndex);
        fflush(vsan_mib_debug_file);
    }
    VSAN_TRACE(TRACE_EVENT, "%s : %s(%d) %s for vsanIndex %d succeeded\n", function_name, function_name, __LINE__, word,
               row.vsanIndex);
    return SNMP_ERR_NOERROR;
}

int action_without_row(int32_t wanted, const vsanEntry &key, uint32_t status) {
    VSAN_TRACE(TRACE_EVENT, "%s(%d) ret_code:%s \n", function_name, __LINE__, syserr2str(status));
    if (wanted == SNMP_ROW_ACTIVE || wanted == SNMP_ROW_NOTINSERVICE) {
        VSAN_TRACE(TRACE_EVENT, "%s(%d) SNMP_ERR_INCONSISTENTVALUE \n", function_name, __LINE__);
        return SNMP_ERR_INCONSISTENTVALUE;
    }
    if (wanted != SNMP_ROW_CREATEANDGO) {
        return SNMP_ERR_NOERROR;
    }

    VSAN_TRACE(TRACE_EVENT, "%s(%d): Fetching  entry for vsanEntry_list with vsanIndex = %d\n", function_name, __LINE__,
               key.vsanIndex);
    vsanEntry *created = pending_row(key);
    if (created == nullptr) {
        VSAN_TRACE(TRACE_EVENT, "%s(%d) ***Return Inconsistantname! ***\n", function_name, __LINE__);
        return SNMP_ERR_INCONSISTENTNAME;
    }
    VSAN_TRACE(TRACE_EVENT, "%s(%d): Fetched  entry from vsanEntry_list for SET with vsanIndex = %d\n", function_name,
               __LINE__, created->vsanIndex);
    VSAN_TRACE(TRACE_EVENT, "%s(%d): SET REQ create a new entry! \n", function_name, __LINE__);
    created->vsanRowStatus = SNMP_ROW_ACTIVE;
    const int result = send_row(SET_REQ, *created);
    // What the manager has refused must not go out again with a later column of this PDU.
    if (result != SNMP_ERR_NOERROR) {
        free(take_pending_row(key));
    }
    return result;
}

} // namespace

// ACTION.
int apply_row_status(const set_call &call) {
    const auto wanted = static_cast<int32_t>(integer_of(call));

    name_copy row_name(call.name, call.name_len);
    vsanEntry row;
    const uint32_t status = header_vsanEntry(call.name, VSAN_COLUMN_LENGTH, row_name.arcs, &row_name.length, 1, &row);
    if (status == MANAGER_NO_SUCH_VSAN) {
        return action_without_row(wanted, row, status);
    }
    if (status != 0) {
        return to_snmp_error_code(status, SNMP_ERROR_MODE);
    }

    VSAN_TRACE(TRACE_EVENT, "%s(%d) ret_code:%s \n", function_name, __LINE__, syserr2str(status));
    switch (wanted) {
    case SNMP_ROW_CREATEANDGO:
    case SNMP_ROW_CREATEANDWAIT:
        VSAN_TRACE(TRACE_EVENT, "%s(%d) Long_ret:%d ***SNMP_ERROR INCONSISTANTVALUE*** \n", function_name, __LINE__,
                   wanted);
        return SNMP_ERR_INCONSISTENTVALUE;
    case SNMP_ROW_DESTROY:
        VSAN_TRACE(TRACE_EVENT, "%s(%d) make DELTE_REQ \n", function_name, __LINE__);
        return send_row(DELETE_REQ, row);
    default:
        VSAN_TRACE(TRACE_EVENT, "%s(%d) make SET_REQ \n", function_name, __LINE__);
        return send_row(SET_REQ, row);
    }
}

namespace {

// Sends a row in UNDO. A refusal is only traced: nothing more can be done.
void send_undo(uint32_t kind, const vsanEntry &row) {
    VSAN_TRACE(TRACE_EVENT,
               "%s(%d) Sending %s req to vsan for vsan = %d name %s mediatype %d mtu %d inorderdeliver %d "
               "interopermode %d loadbtype %d state %d\n",
               function_name, __LINE__, kind == SET_REQ ? "SET" : "DELETE", row.vsanIndex, vsan_name_text(row).text,
               row.vsanMediaType, row.vsanMtu, row.vsanInorderDelivery, row.vsanInterOperMode,
               row.vsanLoadBalancingType, row.vsanAdminState);
    const uint32_t status = send_vsanEntry(kind, row);
    if (status != 0) {
        VSAN_TRACE(TRACE_FAILURE, "%s(%d) ret_code:%s \n", function_name, __LINE__, syserr2str(status));
    }
}

} // namespace

// UNDO.
int undo_row_status(const set_call &call) {
    vsanEntry key;
    if (VSAN_NEVER(!resolve_instance(call.name, call.name_len, key), EXACT_NAMES_RESOLVE)) {
        return SNMP_ERR_NOERROR;
    }

    vsanEntry *before = take_undo_copy(key);
    if (static_cast<int32_t>(integer_of(call)) != SNMP_ROW_CREATEANDGO) {
        VSAN_TRACE(TRACE_EVENT, "%s(%d) SET with old Values! Removing from undo_list!\n", function_name, __LINE__);
        if (before != nullptr) {
            send_undo(SET_REQ, *before);
        }
        free(before);
        return SNMP_ERR_NOERROR;
    }
    if (before != nullptr) {
        VSAN_TRACE(TRACE_EVENT, "%s(%d) User got an error of RS_CREATEANDGO vsan:%d remove undo_list\n", function_name,
                   __LINE__, key.vsanIndex);
        free(before);
        return SNMP_ERR_NOERROR;
    }
    VSAN_TRACE(TRACE_EVENT, "%s(%d) User create a new row in ACTION now DELETE it \n", function_name, __LINE__);
    send_undo(DELETE_REQ, key);
    VSAN_TRACE(TRACE_EVENT, "%s(%d) indexobj_remove from vsanEntry_list  \n", function_name, __LINE__);
    free(take_pending_row(key));
    return SNMP_ERR_NOERROR;
}
