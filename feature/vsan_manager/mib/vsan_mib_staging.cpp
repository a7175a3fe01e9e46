// The pending and undo lists: columns of one VSAN that arrive in one PDU are folded
// into one pending record, which goes to the manager once.

#include "vsan_mib.h"
#include "vsan_mib_trace.h"

#include "syserr.h"

#include <cstdlib>
#include <cstring>

namespace {

// Copies the manager's row over a record that may be on a list: its key stays.
void refresh(vsanEntry &record, const vsanEntry &row, int32_t index) {
    record = row;
    record.vsanIndex = index;
}

// Stores one varbind's value into the field that its column stands for.
int store_value(vsanEntry &pending, int magic, const u_char *value, size_t length) {
    const auto number = [&] { return static_cast<int32_t>(integer_value(value, length)); };
    switch (magic) {
    case VSANNAME: {
        // The writer has refused longer names; the field's end holds even so.
        const size_t bytes = length < sizeof pending.vsanName ? length : sizeof pending.vsanName - 1;
        memcpy(pending.vsanName, value, bytes);
        pending.vsanName[bytes] = '\0';
        return SNMP_ERR_NOERROR;
    }
    case VSANMEDIATYPE:
    case VSANMTU:
        return SNMP_ERR_NOTWRITABLE;
    case VSANADMINSTATE:
        pending.vsanAdminState = number();
        return SNMP_ERR_NOERROR;
    case VSANLOADBALANCINGTYPE:
        pending.vsanLoadBalancingType = number();
        return SNMP_ERR_NOERROR;
    case VSANROWSTATUS:
        pending.vsanRowStatus = number();
        return SNMP_ERR_NOERROR;
    case VSANINTEROPERTYPE: {
        const int32_t mode = number();
        VSAN_TRACE(TRACE_EVENT, "%s(%d) vsan:%d InterMode:%d \n", "handle_onepdu_undo_vsanEntryList", __LINE__,
                   pending.vsanIndex, mode);
        pending.vsanInterOperMode = mode == 0 ? INTEROP_MODE_DEFAULT : mode;
        return SNMP_ERR_NOERROR;
    }
    case VSANINORDERDELIVERY:
        pending.vsanInorderDelivery = number();
        return SNMP_ERR_NOERROR;
    case VSANNETWORKDROPLATENCY:
        pending.vsanNetworkDropLatency = static_cast<uint32_t>(number());
        return SNMP_ERR_NOERROR;
    default:
        VSAN_TRACE(TRACE_EVENT, "%s(%d) *** InconsistantName! ***\n", "handle_onepdu_undo_vsanEntryList", __LINE__);
        return SNMP_ERR_INCONSISTENTVALUE;
    }
}

/*
 * Starts the staging of a VSAN: the manager's row becomes its undo copy and, but for
 * the two settings that only reach the manager when they are set, its pending record.
 * Gives the pending record, which is on its list, or null and an SNMP error status.
 */
vsanEntry *start_staging(const char *function, const oid *name, size_t name_len, const vsanEntry &key, int &error) {
    VSAN_TRACE(TRACE_EVENT, "%s(%d) : Creating an entry (vsanIndex = %d) in vsanEntry_list\n", function, __LINE__,
               key.vsanIndex);

    // Read into a record of our own: one on a list must never lose its key.
    oid row_name[MAX_OID_LEN];
    memcpy(row_name, name, name_len * sizeof *name);
    size_t row_name_len = name_len;
    vsanEntry row;

    auto *pending = static_cast<vsanEntry *>(calloc(1, sizeof(vsanEntry)));
    auto *undo = static_cast<vsanEntry *>(indxobj_find(&vsanEntry_undo_list, &key, 0));
    vsanEntry *new_undo = undo == nullptr ? static_cast<vsanEntry *>(calloc(1, sizeof(vsanEntry))) : nullptr;
    if (pending == nullptr || (undo == nullptr && new_undo == nullptr)) {
        free(pending);
        free(new_undo);
        error = out_of_resources();
        return nullptr;
    }

    const uint32_t status = header_vsanEntry(name, VSAN_COLUMN_LENGTH, row_name, &row_name_len, 1, &row);
    if (status != 0) {
        VSAN_TRACE(TRACE_EVENT, "%s(%d) Ret_Code:%s \n", function, __LINE__, syserr2str(status));
        VSAN_TRACE(TRACE_EVENT, "%s(%d) : No instance returned for UNDO (vsanIndex =%d,(row status = %d )\n", function,
                   __LINE__, key.vsanIndex, pending->vsanRowStatus);
        free(pending);
        free(new_undo);
        error = to_snmp_error_code(status, SNMP_ERROR_MODE);
        return nullptr;
    }

    refresh(*pending, row, key.vsanIndex);
    pending->vsanInorderDelivery = 0;
    pending->vsanNetworkDropLatency = 0;

    VSAN_TRACE(TRACE_EVENT, "%s(%d):  Adding UNDO entry (vsanIndex= %d to the vsanEntry_undo_list\n", function,
               __LINE__, key.vsanIndex);
    if (undo != nullptr) {
        // The row status has put its copy there in RESERVE1: one record serves both.
        refresh(*undo, row, key.vsanIndex);
    } else {
        refresh(*new_undo, row, key.vsanIndex);
        if (indxobj_add(&vsanEntry_undo_list, new_undo, new_undo) == 0) {
            free(new_undo);
            free(pending);
            VSAN_TRACE(TRACE_FAILURE, "%s(%d) No Mmory! \n", function, __LINE__);
            error = out_of_resources();
            return nullptr;
        }
    }
    VSAN_TRACE(TRACE_EVENT, "%s(%d): Ret_code:%s ***vsanEntry_undo_list added!***\n", function, __LINE__,
               syserr2str(status));
    VSAN_TRACE(TRACE_EVENT, "%s(%d): Adding entry vsanIndex %d, to vsanEntry_list\n", function, __LINE__,
               key.vsanIndex);
    if (indxobj_add(&vsanEntry_list, pending, pending) == 0) {
        free(pending);
        error = out_of_resources();
        return nullptr;
    }
    return pending;
}

} // namespace

extern "C" {

/*
 * RESERVE2 of a column: stages one value.
 *
 * magic            the column
 * name, name_len   the varbind's OID
 * value, length    its value, of a type and length that RESERVE1 has accepted
 *
 * Returns an SNMP error status.
 */
int handle_onepdu_undo_vsanEntryList(int magic, const oid *name, size_t name_len, const u_char *value, size_t length) {
    vsanEntry key;
    if (!resolve_instance(name, name_len, key)) {
        VSAN_TRACE(TRACE_EVENT, "%s(%d) ***Return Inconsistname! ***\n", __func__, __LINE__);
        return SNMP_ERR_INCONSISTENTNAME;
    }
    auto *pending = static_cast<vsanEntry *>(indxobj_find(&vsanEntry_list, &key, 0));
    if (pending == nullptr) {
        int error = SNMP_ERR_NOERROR;
        pending = start_staging(__func__, name, name_len, key, error);
        if (pending == nullptr)
            return error;
    }
    if (value == nullptr) {
        log_set_error(MANAGER_NO_VALUE, LOG_NUMBER_REQUEST);
        return SNMP_ERR_GENERR;
    }
    return store_value(*pending, magic, value, length);
}

/*
 * ACTION of a column: sends the VSAN's pending record, once a PDU. A row that is being
 * created is left to the row status, which sends it when all columns are staged. The
 * test of that looks at the last arc, the VSAN number: a row with number 9 goes out
 * with its first column.
 *
 * Returns an SNMP error status. The undo copy stays.
 */
int handle_set_vsanEntryList(const oid *name, size_t name_len) {
    vsanEntry key;
    if (!resolve_instance(name, name_len, key)) {
        VSAN_TRACE(TRACE_EVENT, "%s(%d) *** InconsistantNAME! ***\n", __func__, __LINE__);
        return SNMP_ERR_INCONSISTENTNAME;
    }
    if (name[name_len - 1] != 9) {
        const auto *created = static_cast<vsanEntry *>(indxobj_find(&vsanEntry_list, &key, 0));
        if (created != nullptr && created->vsanRowStatus == SNMP_ROW_CREATEANDGO) {
            VSAN_TRACE(TRACE_EVENT, "%s(%d) Don't Create vsan %d yet! \n", __func__, __LINE__, key.vsanIndex);
            return SNMP_ERR_NOERROR;
        }
    }

    auto *pending = static_cast<vsanEntry *>(indxobj_remove(&vsanEntry_list, &key));
    VSAN_TRACE(TRACE_EVENT, "%s(%d) name_len:%d \n", __func__, __LINE__, static_cast<int>(name_len));
    if (pending == nullptr) {
        VSAN_TRACE(TRACE_EVENT, "%s(%d) : ***No need to send the SET request again for vsanIndex = %d  ***\n", __func__,
                   __LINE__, key.vsanIndex);
        return SNMP_ERR_NOERROR;
    }

    VSAN_TRACE(TRACE_EVENT,
               "Sending %s req to vsan for vsan = %d name %s mediatype %d mtu %d iod %d iomode %d loadbtype %d state "
               "%d nwlatency %d\n",
               "SET", pending->vsanIndex, vsan_name_text(*pending).text, pending->vsanMediaType, pending->vsanMtu,
               pending->vsanInorderDelivery, pending->vsanInterOperMode, pending->vsanLoadBalancingType,
               pending->vsanAdminState, static_cast<int>(pending->vsanNetworkDropLatency));
    const uint32_t status = send_vsanEntry(SET_REQ, *pending);
    free(pending);
    if (status != 0) {
        VSAN_TRACE(TRACE_FAILURE, "%s(%d)%s failed for vsanIndex %d: %s\n", __func__, __LINE__, "SET", key.vsanIndex,
                   syserr_format(status));
        return refused_by_manager(status);
    }
    VSAN_TRACE(TRACE_EVENT, "%s(%d) :%s with vsanIndex = %d, succeeded\n", __func__, __LINE__, "SET", key.vsanIndex);
    return SNMP_ERR_NOERROR;
}

/*
 * COMMIT and FREE: releases what is staged for the VSAN. Harmless when there is
 * nothing, so that every varbind of a row may call it. Returns an SNMP error status.
 */
int handle_free_vsanEntryList(const oid *name, size_t name_len) {
    vsanEntry key;
    if (!resolve_instance(name, name_len, key)) {
        VSAN_TRACE(TRACE_EVENT, "%s(%d) ***Return Inconsistname! ***\n", __func__, __LINE__);
        return SNMP_ERR_INCONSISTENTNAME;
    }
    free(indxobj_remove(&vsanEntry_list, &key));
    free(indxobj_remove(&vsanEntry_undo_list, &key));
    return SNMP_ERR_NOERROR;
}

/*
 * Drops the VSAN's pending record and sends its undo copy back to the manager. No
 * writer calls it; other components of a switch may. Returns an SNMP error status.
 */
int handle_undo_vsanEntryList(const oid *name, size_t name_len) {
    vsanEntry key;
    if (!resolve_instance(name, name_len, key)) {
        VSAN_TRACE(TRACE_EVENT, "%s(%d) *** Return InConsistantname! *** \n", __func__, __LINE__);
        return SNMP_ERR_INCONSISTENTNAME;
    }
    free(indxobj_remove(&vsanEntry_list, &key));
    auto *undo = static_cast<vsanEntry *>(indxobj_remove(&vsanEntry_undo_list, &key));
    if (undo == nullptr) {
        VSAN_TRACE(TRACE_EVENT, "%s : Could not get the entry for UNDO from UNDO list for instance vsanIndex = %d\n",
                   __func__, key.vsanIndex);
        return SNMP_ERR_NOERROR;
    }

    VSAN_TRACE(TRACE_EVENT,
               "Sending %s req to vsan for vsan = %d name %s mediatype %d mtu %d iod %d iomode %d loadbtype %d iod %d "
               "nwlatency %u\n",
               "SET", undo->vsanIndex, vsan_name_text(*undo).text, undo->vsanMediaType, undo->vsanMtu,
               undo->vsanInorderDelivery, undo->vsanInterOperMode, undo->vsanLoadBalancingType, undo->vsanAdminState,
               undo->vsanNetworkDropLatency);
    const uint32_t status = send_vsanEntry(SET_REQ, *undo);
    free(undo);
    if (status != 0) {
        VSAN_TRACE(TRACE_FAILURE, "%s failed for vsanIndex %d: %s\n", "SET", key.vsanIndex, syserr_format(status));
        return refused_by_manager(status);
    }
    VSAN_TRACE(TRACE_EVENT, "%s(%d) :%s with vsanIndex = %d, succeeded\n", __func__, __LINE__, "SET", key.vsanIndex);
    return SNMP_ERR_NOERROR;
}

} // extern "C"
