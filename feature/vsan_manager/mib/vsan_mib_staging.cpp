// SPDX-License-Identifier: Apache-2.0
// The pending and undo lists: columns of one VSAN that arrive in one PDU are folded
// into one pending record, which goes to the manager once.

#include "vsan_mib_staging.h"
#include "vsan_mib_channel.h"
#include "vsan_mib_exports.h"
#include "vsan_mib_names.h"
#include "vsan_mib_never.h"
#include "vsan_mib_objects.h"
#include "vsan_mib_state.h"
#include "vsan_mib_trace.h"
#include "vsan_mib_values.h"

#include "indxobj.h"
#include "netsnmpagent_oryx.h"
#include "syserr.h"

#include <cstdlib>
#include <cstring>

indxobj_list vsanEntry_undo_list;
indxobj_list vsanEntry_list;

bool create_staging_lists() {
    return indxobj_create(&vsanEntry_undo_list, 0, 1, vsanEntry_comp, 1) == INDXOBJ_CREATED &&
           indxobj_create(&vsanEntry_list, 0, 1, vsanEntry_comp, 1) == INDXOBJ_CREATED;
}

void destroy_staging_lists() {
    indxobj_destroy(&vsanEntry_list);
    indxobj_destroy(&vsanEntry_undo_list);
}

vsanEntry *new_row() {
    return static_cast<vsanEntry *>(calloc(1, sizeof(vsanEntry)));
}

vsanEntry *pending_row(const vsanEntry &key) {
    return static_cast<vsanEntry *>(indxobj_find(&vsanEntry_list, &key, 0));
}

bool add_pending_row(vsanEntry *row) {
    if (indxobj_add(&vsanEntry_list, row, row) != 0) {
        return true;
    }
    free(row);
    return false;
}

vsanEntry *take_pending_row(const vsanEntry &key) {
    return static_cast<vsanEntry *>(indxobj_remove(&vsanEntry_list, &key));
}

undo_place find_undo_place(const vsanEntry &key) {
    auto *kept = static_cast<vsanEntry *>(indxobj_find(&vsanEntry_undo_list, &key, 0));
    return {kept != nullptr ? kept : new_row(), kept != nullptr};
}

void release_undo_place(const undo_place &place) {
    if (!place.is_listed) {
        free(place.record);
    }
}

bool keep_undo_copy(const undo_place &place, const vsanEntry &row, int32_t vsan) {
    // NOLINTNEXTLINE(clang-analyzer-core.CallAndMessage): out_of_resources() is never noError
    *place.record = row;
    place.record->vsanIndex = vsan;
    if (place.is_listed || indxobj_add(&vsanEntry_undo_list, place.record, place.record) != 0) {
        return true;
    }
    free(place.record);
    return false;
}

vsanEntry *take_undo_copy(const vsanEntry &key) {
    return static_cast<vsanEntry *>(indxobj_remove(&vsanEntry_undo_list, &key));
}

namespace {

// Stores one varbind's value into the field that its column stands for.
int store_value(vsanEntry &pending, int magic, const u_char *value, size_t length) {
    const vsan_object *column = find_object(magic, object_table::vsan);
    if (column == nullptr || column->writer == nullptr) {
        VSAN_TRACE(TRACE_EVENT, "%s(%d) *** InconsistantName! ***\n", "handle_onepdu_undo_vsanEntryList", __LINE__);
        return SNMP_ERR_INCONSISTENTVALUE;
    }
    if (column->access == NETSNMP_OLDAPI_RONLY) {
        return SNMP_ERR_NOTWRITABLE;
    }
    if (column->place.form == value_form::name) {
        // The writer has refused longer names; the field's end holds even so.
        const size_t bytes = length < sizeof pending.vsanName ? length : sizeof pending.vsanName - 1;
        memcpy(pending.vsanName, value, bytes);
        pending.vsanName[bytes] = '\0';
        return SNMP_ERR_NOERROR;
    }
    auto number = static_cast<int32_t>(integer_value(value, length));
    if (column->place.form == value_form::interop_mode) {
        VSAN_TRACE(TRACE_EVENT, "%s(%d) vsan:%d InterMode:%d \n", "handle_onepdu_undo_vsanEntryList", __LINE__,
                   pending.vsanIndex, number);
        number = number == 0 ? INTEROP_MODE_DEFAULT : number;
    }
    memcpy(reinterpret_cast<uint8_t *>(&pending) + column->place.at, &number, sizeof number);
    return SNMP_ERR_NOERROR;
}

// Reads the manager's row of a VSAN that is to be staged. Gives an SNMP error status.
int read_row(const char *function, const oid *name, size_t name_len, const vsanEntry &pending, vsanEntry &row) {
    name_copy row_name(name, name_len);
    const uint32_t status = header_vsanEntry(name, VSAN_COLUMN_LENGTH, row_name.arcs, &row_name.length, 1, &row);
    if (status == 0) {
        return SNMP_ERR_NOERROR;
    }
    VSAN_TRACE(TRACE_EVENT, "%s(%d) Ret_Code:%s \n", function, __LINE__, syserr2str(status));
    VSAN_TRACE(TRACE_EVENT, "%s(%d) : No instance returned for UNDO (vsanIndex =%d,(row status = %d )\n", function,
               __LINE__, pending.vsanIndex, pending.vsanRowStatus);
    return to_snmp_error_code(status, SNMP_ERROR_MODE);
}

// Puts both records of a VSAN on their lists. They are the lists' or freed. Returns whether
// they are there; the undo copy stays when only the pending list refuses.
bool add_both(const char *function, vsanEntry *pending, const undo_place &undo, const vsanEntry &row) {
    const int32_t vsan = pending->vsanIndex;
    VSAN_TRACE(TRACE_EVENT, "%s(%d):  Adding UNDO entry (vsanIndex= %d to the vsanEntry_undo_list\n", function,
               __LINE__, vsan);
    if (!keep_undo_copy(undo, row, vsan)) {
        free(pending);
        VSAN_TRACE(TRACE_FAILURE, "%s(%d) No Mmory! \n", function, __LINE__);
        return false;
    }
    VSAN_TRACE(TRACE_EVENT, "%s(%d): Ret_code:%s ***vsanEntry_undo_list added!***\n", function, __LINE__,
               syserr2str(0));
    VSAN_TRACE(TRACE_EVENT, "%s(%d): Adding entry vsanIndex %d, to vsanEntry_list\n", function, __LINE__, vsan);
    return add_pending_row(pending);
}

// Starts the staging of a VSAN: the manager's row becomes its undo copy and, but for the two
// settings that only reach the manager when they are set, its pending record. Gives the pending
// record, which is on its list, or null and an SNMP error status.
vsanEntry *start_staging(const char *function, const oid *name, size_t name_len, const vsanEntry &key, int &error) {
    VSAN_TRACE(TRACE_EVENT, "%s(%d) : Creating an entry (vsanIndex = %d) in vsanEntry_list\n", function, __LINE__,
               key.vsanIndex);
    vsanEntry *pending = new_row();
    const undo_place undo = find_undo_place(key);
    // Read into a record of our own: one on a list must never lose its key.
    vsanEntry row;
    if (pending == nullptr || undo.record == nullptr) {
        error = out_of_resources();
    } else {
        pending->vsanIndex = key.vsanIndex;
        error = read_row(function, name, name_len, *pending, row);
    }
    if (error != SNMP_ERR_NOERROR) {
        free(pending);
        release_undo_place(undo);
        return nullptr;
    }

    // NOLINTNEXTLINE(clang-analyzer-core.CallAndMessage): out_of_resources() is never noError
    *pending = row;
    pending->vsanIndex = key.vsanIndex;
    pending->vsanInorderDelivery = 0;
    pending->vsanNetworkDropLatency = 0;
    if (!add_both(function, pending, undo, row)) {
        error = out_of_resources();
        return nullptr;
    }
    return pending;
}

// Whether a row is being created and left to the row status, which sends it when all columns
// are staged. The test looks at the last arc, the VSAN number, where the column was meant: a row
// with number 9, that of the row status's column, goes out with its first column.
bool waits_for_row_status(uint32_t arc, const vsanEntry &key) {
    const vsanEntry *created = arc != 9 ? pending_row(key) : nullptr;
    return created != nullptr && created->vsanRowStatus == SNMP_ROW_CREATEANDGO;
}

} // namespace

extern "C" {

// RESERVE2 of a column: stages one value.
//
// magic            the column
// name, name_len   the varbind's OID
// value, length    its value, of a type and length that RESERVE1 has accepted
//
// Returns an SNMP error status.
int handle_onepdu_undo_vsanEntryList(int magic, const oid *name, size_t name_len, const u_char *value, size_t length) {
    vsanEntry key;
    if (VSAN_NEVER(!resolve_instance(name, name_len, key), EXACT_NAMES_RESOLVE)) {
        VSAN_TRACE(TRACE_EVENT, "%s(%d) ***Return Inconsistname! ***\n", __func__, __LINE__);
        return SNMP_ERR_INCONSISTENTNAME;
    }
    vsanEntry *pending = pending_row(key);
    if (pending == nullptr) {
        int error = SNMP_ERR_NOERROR;
        pending = start_staging(__func__, name, name_len, key, error);
        if (pending == nullptr) {
            return error;
        }
    }
    if (value == nullptr) {
        log_set_error(MANAGER_NO_VALUE, LOG_NUMBER_REQUEST);
        return SNMP_ERR_GENERR;
    }
    return store_value(*pending, magic, value, length);
}

// ACTION of a column: sends the VSAN's pending record, once a PDU, unless the row status is
// to send it. Returns an SNMP error status. The undo copy stays.
int handle_set_vsanEntryList(const oid *name, size_t name_len) {
    vsanEntry key;
    if (VSAN_NEVER(!resolve_instance(name, name_len, key), EXACT_NAMES_RESOLVE)) {
        VSAN_TRACE(TRACE_EVENT, "%s(%d) *** InconsistantNAME! ***\n", __func__, __LINE__);
        return SNMP_ERR_INCONSISTENTNAME;
    }
    if (waits_for_row_status(last_arc(name, name_len), key)) {
        VSAN_TRACE(TRACE_EVENT, "%s(%d) Don't Create vsan %d yet! \n", __func__, __LINE__, key.vsanIndex);
        return SNMP_ERR_NOERROR;
    }

    vsanEntry *pending = take_pending_row(key);
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

// COMMIT and FREE: releases what is staged for the VSAN. Harmless when there is
// nothing, so that every varbind of a row may call it. Returns an SNMP error status.
int handle_free_vsanEntryList(const oid *name, size_t name_len) {
    vsanEntry key;
    if (VSAN_NEVER(!resolve_instance(name, name_len, key), EXACT_NAMES_RESOLVE)) {
        VSAN_TRACE(TRACE_EVENT, "%s(%d) ***Return Inconsistname! ***\n", __func__, __LINE__);
        return SNMP_ERR_INCONSISTENTNAME;
    }
    free(take_pending_row(key));
    free(take_undo_copy(key));
    return SNMP_ERR_NOERROR;
}

// Drops the VSAN's pending record and sends its undo copy back to the manager. No
// writer calls it; other components of a switch may. Returns an SNMP error status.
int handle_undo_vsanEntryList(const oid *name, size_t name_len) {
    vsanEntry key;
    if (VSAN_NEVER(!resolve_instance(name, name_len, key), EXACT_NAMES_RESOLVE)) {
        VSAN_TRACE(TRACE_EVENT, "%s(%d) *** Return InConsistantname! *** \n", __func__, __LINE__);
        return SNMP_ERR_INCONSISTENTNAME;
    }
    free(take_pending_row(key));
    vsanEntry *undo = take_undo_copy(key);
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
