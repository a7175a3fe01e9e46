// vsanRowStatus: creates a VSAN (createAndGo), applies its row again (active), deletes
// it (destroy), and backs out in UNDO what ACTION did.

#include "vsan_mib.h"
#include "vsan_mib_trace.h"

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

// Whether the requester may create or delete the VSAN that the name ends with; a
// refusal is reported.
bool is_permitted(const oid *name, size_t name_len) {
    allowed_vsan_list allowed;
    if (get_allowed_vsans(allowed, name, name_len, PDU_TYPE_SET) == 0 ||
        snmp_is_vsan_allowed_in_list(static_cast<uint32_t>(name[name_len - 1]), allowed) != 0)
        return true;
    VSAN_TRACE(TRACE_FAILURE, "%s : vsan restricted user is not allowed to set \n", function_name);
    report_restriction(STATUS_VSAN_NOT_FOR_USER);
    return false;
}

// Keeps the row as the read handler has just found it, for UNDO.
int keep_undo_copy(int32_t index) {
    vsanEntry key = {};
    key.vsanIndex = index;
    auto *kept = static_cast<vsanEntry *>(indxobj_find(&vsanEntry_undo_list, &key, 0));
    auto *undo = kept != nullptr ? kept : static_cast<vsanEntry *>(malloc(sizeof(vsanEntry)));
    if (undo == nullptr)
        return out_of_resources();
    *undo = vsanEntry_current;
    undo->vsanIndex = index;
    if (kept == nullptr && indxobj_add(&vsanEntry_undo_list, undo, undo) == 0) {
        VSAN_TRACE(TRACE_FAILURE, "%s(%d) undo_list %d \n", function_name, __LINE__, index);
        free(undo);
        return out_of_resources();
    }
    VSAN_TRACE(TRACE_EVENT, "%s(%d) indexobj_Add to undo_list \n", function_name, __LINE__);
    return SNMP_ERR_NOERROR;
}

// Puts a row with default values on the pending list, for the columns to fill in.
int stage_new_row(const oid *name, size_t name_len) {
    VSAN_TRACE(TRACE_EVENT, "%s(%d) RS_CREATEANDGO! \n", function_name, __LINE__);
    auto *created = static_cast<vsanEntry *>(calloc(1, sizeof(vsanEntry)));
    if (created == nullptr)
        return out_of_resources();
    VSAN_TRACE(TRACE_EVENT, "%s(%d)set_vsanRowStatus  RS_CREATEANDGO! \n", function_name, __LINE__);
    if (!resolve_instance(name, name_len, *created)) {
        free(created);
        return inconsistent_name();
    }

    VSAN_TRACE(TRACE_EVENT, "%s(%d) Validate Vsan_id\n", function_name, __LINE__);
    if (!is_permitted(name, name_len)) {
        free(created);
        return SNMP_ERR_GENERR;
    }

    vsanEntry_defaults(created);
    created->vsanRowStatus = SNMP_ROW_CREATEANDGO;
    VSAN_TRACE(TRACE_EVENT, "%s(%d) : Row Status = %d\n", function_name, __LINE__, created->vsanRowStatus);
    VSAN_TRACE(TRACE_EVENT, "%s(%d) : Adding entry vsanIndex = %d, to vsanEntry_list (row_status = %d)\n",
               function_name, __LINE__, created->vsanIndex, created->vsanRowStatus);
    // Twice in one PDU the row is still created once.
    if (indxobj_find(&vsanEntry_list, created, 0) != nullptr) {
        free(created);
        return SNMP_ERR_NOERROR;
    }
    if (indxobj_add(&vsanEntry_list, created, created) == 0) {
        free(created);
        return out_of_resources();
    }
    return SNMP_ERR_NOERROR;
}

int reserve1(const u_char *value, u_char type, size_t length, const u_char *current, const oid *name, size_t name_len) {
    VSAN_TRACE(TRACE_EVENT, "%s(%d) In RESERVE1 \n", function_name, __LINE__);
    if (type != ASN_INTEGER) {
        fputs("write to vsanRowStatus not ASN_INTEGER\n", stderr);
        VSAN_TRACE(TRACE_EVENT, "%s(%d) RESERVE1 !ASN_INTEGER \n", function_name, __LINE__);
        return SNMP_ERR_WRONGTYPE;
    }
    if (!integer_length_is_valid(length)) {
        fputs("write to vsanRowStatus: bad length\n", stderr);
        return SNMP_ERR_WRONGLENGTH;
    }
    const auto index = static_cast<uint32_t>(name[name_len - 1]);
    if (index - 1 > VSAN_MAX - 1)
        return SNMP_ERR_WRONGVALUE;

    const auto wanted = static_cast<int32_t>(integer_value(value, length));
    VSAN_TRACE(TRACE_EVENT, "%s(%d) set_vsanrowstatus long_ret:%d \n", function_name, __LINE__, wanted);
    VSAN_TRACE(TRACE_EVENT, "%s(%d) long_ret:%d \n", function_name, __LINE__, wanted);
    if (wanted != SNMP_ROW_ACTIVE && wanted != SNMP_ROW_CREATEANDGO && wanted != SNMP_ROW_DESTROY)
        return SNMP_ERR_WRONGVALUE;

    if (current != nullptr) {
        if (wanted == SNMP_ROW_CREATEANDGO) {
            VSAN_TRACE(TRACE_EVENT, "%s(%d) ***InconsistantName! ***\n", function_name, __LINE__);
            return SNMP_ERR_INCONSISTENTVALUE;
        }
        // Kept under the number by which FREE and UNDO look for it, which an OID of an
        // unusual length does not end in.
        vsanEntry existing;
        if (!resolve_instance(name, name_len, existing))
            return inconsistent_name();
        const int status = keep_undo_copy(existing.vsanIndex);
        if (status != SNMP_ERR_NOERROR)
            return status;
    } else if (wanted == SNMP_ROW_CREATEANDGO) {
        return stage_new_row(name, name_len);
    }
    if (wanted != SNMP_ROW_DESTROY)
        return SNMP_ERR_NOERROR;

    vsanEntry doomed;
    if (!resolve_instance(name, name_len, doomed))
        return inconsistent_name();
    VSAN_TRACE(TRACE_EVENT, "%s(%d) : set Rowstatus Validate Vsan_id \n", function_name, __LINE__);
    return is_permitted(name, name_len) ? SNMP_ERR_NOERROR : SNMP_ERR_GENERR;
}

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
    if (wanted != SNMP_ROW_CREATEANDGO)
        return SNMP_ERR_NOERROR;

    VSAN_TRACE(TRACE_EVENT, "%s(%d): Fetching  entry for vsanEntry_list with vsanIndex = %d\n", function_name, __LINE__,
               key.vsanIndex);
    auto *created = static_cast<vsanEntry *>(indxobj_find(&vsanEntry_list, &key, 0));
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
    if (result != SNMP_ERR_NOERROR)
        free(indxobj_remove(&vsanEntry_list, &key));
    return result;
}

int action(const u_char *value, size_t length, const oid *name, size_t name_len) {
    VSAN_TRACE(TRACE_EVENT, "%s(%d) ACTION calling header_vsanEntry\n", function_name, __LINE__);
    const auto wanted = static_cast<int32_t>(integer_value(value, length));

    oid row_name[MAX_OID_LEN];
    memcpy(row_name, name, name_len * sizeof *name);
    size_t row_name_len = name_len;
    vsanEntry row;
    const uint32_t status = header_vsanEntry(name, VSAN_COLUMN_LENGTH, row_name, &row_name_len, 1, &row);
    if (status == MANAGER_NO_SUCH_VSAN)
        return action_without_row(wanted, row, status);
    if (status != 0)
        return to_snmp_error_code(status, SNMP_ERROR_MODE);

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

// Sends a row in UNDO. A refusal is only traced: nothing more can be done.
void send_undo(uint32_t kind, const vsanEntry &row) {
    VSAN_TRACE(TRACE_EVENT,
               "%s(%d) Sending %s req to vsan for vsan = %d name %s mediatype %d mtu %d inorderdeliver %d "
               "interopermode %d loadbtype %d state %d\n",
               function_name, __LINE__, kind == SET_REQ ? "SET" : "DELETE", row.vsanIndex, vsan_name_text(row).text,
               row.vsanMediaType, row.vsanMtu, row.vsanInorderDelivery, row.vsanInterOperMode,
               row.vsanLoadBalancingType, row.vsanAdminState);
    const uint32_t status = send_vsanEntry(kind, row);
    if (status != 0)
        VSAN_TRACE(TRACE_FAILURE, "%s(%d) ret_code:%s \n", function_name, __LINE__, syserr2str(status));
}

int undo(const u_char *value, size_t length, const oid *name, size_t name_len) {
    VSAN_TRACE(TRACE_EVENT, "%s(%d) UNDO Back out any Changes! \n", function_name, __LINE__);
    vsanEntry key;
    if (!resolve_instance(name, name_len, key))
        return SNMP_ERR_NOERROR;

    auto *before = static_cast<vsanEntry *>(indxobj_remove(&vsanEntry_undo_list, &key));
    if (static_cast<int32_t>(integer_value(value, length)) != SNMP_ROW_CREATEANDGO) {
        VSAN_TRACE(TRACE_EVENT, "%s(%d) SET with old Values! Removing from undo_list!\n", function_name, __LINE__);
        if (before != nullptr)
            send_undo(SET_REQ, *before);
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
    free(indxobj_remove(&vsanEntry_list, &key));
    return SNMP_ERR_NOERROR;
}

} // namespace

/*
 * The write method of vsanRowStatus, called by the agent once a phase. `statP` is what
 * the read handler returned for the variable: null when the VSAN does not exist for the
 * requester. Returns an SNMP error status.
 */
int set_vsanRowStatus(int action_code, u_char *var_val, u_char var_val_type, size_t var_val_len, u_char *statP,
                      oid *name, size_t name_len) {
    VSAN_TRACE(TRACE_EVENT, "%s(%d) \n", __func__, __LINE__);
    switch (action_code) {
    case RESERVE1:
        return reserve1(var_val, var_val_type, var_val_len, statP, name, name_len);
    case RESERVE2:
        // The value that the agent shows as current; a row that does not exist has none.
        if (statP != nullptr)
            *statP = SNMP_ROW_ACTIVE;
        VSAN_TRACE(TRACE_EVENT, "%s(%d) RESERVE2 \n", __func__, __LINE__);
        return SNMP_ERR_NOERROR;
    case ACTION:
        return action(var_val, var_val_len, name, name_len);
    case COMMIT:
        VSAN_TRACE(TRACE_EVENT, "%s(%d) in COMMIT \n", __func__, __LINE__);
        return handle_free_vsanEntryList(name, name_len);
    case FREE:
        VSAN_TRACE(TRACE_EVENT, "%s(%d) FREE \n", __func__, __LINE__);
        return handle_free_vsanEntryList(name, name_len);
    case UNDO:
        return undo(var_val, var_val_len, name, name_len);
    default:
        return SNMP_ERR_NOERROR;
    }
}
