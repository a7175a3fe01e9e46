// SPDX-License-Identifier: Apache-2.0
// GET and GETNEXT on the per-VSAN Fibre Channel timer table. While the distribution
// service governs the timers, its own record of a VSAN is what a read shows.

#include "vsan_mib_channel.h"
#include "vsan_mib_exports.h"
#include "vsan_mib_names.h"
#include "vsan_mib_objects.h"
#include "vsan_mib_state.h"
#include "vsan_mib_trace.h"
#include "vsan_mib_visibility.h"

#include "mts.h"
#include "tdx.h"

#include <arpa/inet.h>
#include <cstdlib>
#include <cstring>

fc_timer_record vsanFcTimer_current;
uint8_t vsanFcTimerForceFlags[VSAN_FORCE_FLAGS];

namespace {

uint8_t force_flag_cell;

// Which timer a column shows; the force-flag column asks for timer 0.
uint32_t timer_of(int magic) {
    const vsan_object *column = find_object(magic, object_table::timer);
    return column != nullptr ? column->place.key : 0;
}

// What the distribution service says of the timers.
struct distribution {
    uint32_t is_enabled = 0;
    uint32_t show_run_mode = 0;
};

distribution ask_distribution() {
    distribution answer;
    is_tdx_enabled(timer_feature, &answer.is_enabled);
    get_tdx_show_run_mode(timer_feature, &answer.show_run_mode);
    return answer;
}

// The request kind for a lookup on behalf of a read or, with for_set, of a SET.
uint32_t lookup_kind(const char *function, const distribution &service, int for_set) {
    if (service.is_enabled == 0) {
        return GET_REQ;
    }
    if (for_set != 0) {
        VSAN_TRACE(TRACE_EVENT, "%s get_for_set msg_type = TDX_GET_REQ \n", function);
        return TDX_GET_REQ;
    }
    if (service.show_run_mode != 0) {
        return GET_REQ;
    }
    VSAN_TRACE(TRACE_EVENT, "%s msg_type = TDX_GET_REQ \n", function);
    return TDX_GET_REQ;
}

// Replaces a VSAN number by that of the VSAN table's next row. Returns 0 or a failure status.
uint32_t find_next_vsan(const char *function, uint32_t &vsan) {
    vsanEntry row = {};
    row.vsanIndex = static_cast<int32_t>(vsan);
    VSAN_TRACE(TRACE_EVENT, "%s : Sending GETNEXT request to VSAN mgr with payload (size = %d) vsanIndex = %d\n",
               function, static_cast<int>(sizeof(vsanEntry_block)), row.vsanIndex);
    vsanEntry_answer answer;
    const uint32_t status = query_vsanEntry(GETNEXT_REQ, row, row, answer);
    if (answer != vsanEntry_answer::record) {
        // Before the trace, which may set errno itself.
        const char *reason = manager_error_text(status);
        VSAN_TRACE(TRACE_FAILURE, "%s : GETNEXT Request failed for vsanIndex = %d with error : %s\n", function,
                   row.vsanIndex, reason);
        return answer == vsanEntry_answer::none ? ENTRY_NO_INSTANCE : status;
    }
    VSAN_TRACE(TRACE_EVENT, "%s : Received  GETNEXT Response from VSAN mgr with payload (size = %d) vsanIndex = %d ",
               function, static_cast<int>(sizeof(vsanEntry_block)), row.vsanIndex);
    vsan = static_cast<uint32_t>(row.vsanIndex);
    return 0;
}

// Asks for the timer that a record names, and with for_set once more where the distribution
// service refuses; `kind` becomes the kind asked with last. Returns the status of the exchange;
// the reply is the caller's.
uint32_t ask_for_timer(const char *function, const fc_timer_record &record, uint32_t &kind, int for_set, void *&reply,
                       uint32_t &length) {
    fc_timer_record request = record;
    vsanNewFcTimer_ntoh(&request);
    for (;;) {
        reply = nullptr;
        length = sizeof request;
        const uint32_t status = cmi_req_resp(OPCODE_FC_TIMER, kind, &request, &reply, &length, nullptr, 0,
                                             MANAGER_SAP_VSAN, mts_response_q, WAIT_TABLE);
        if (for_set == 0 || kind != TDX_GET_REQ || status != MANAGER_TDX_REFUSED) {
            return status;
        }
        VSAN_TRACE(TRACE_EVENT, "%s Re-sending with GET_REQ \n", function);
        free(reply);
        kind = GET_REQ;
    }
}

// Takes the timer out of a reply, which is released, into its record. Returns whether there was
// one; `status` then is that of the lookup.
bool take_timer(const char *function, uint32_t kind, void *reply, uint32_t length, fc_timer_record &record,
                uint32_t &status) {
    if (status == 0 && reply != nullptr && length < sizeof record) {
        status = ENTRY_NO_INSTANCE;
    }
    const bool is_there = status == 0 && reply != nullptr;
    if (is_there) {
        memcpy(&record, reply, sizeof record);
        vsanNewFcTimer_ntoh(&record);
    } else {
        // Before the trace, which may set errno itself.
        const char *reason = manager_error_text(status);
        VSAN_TRACE(TRACE_FAILURE, "%s : %s request failedfor vsan_id = %d with error : %s\n", function,
                   kind == GET_REQ ? "GET" : "GETNEXT", static_cast<int>(record.vsan), reason);
    }
    free(reply);
    return is_there;
}

} // namespace

extern "C" {

// Finds the VSAN of a request OID: for GET the one it names, for GETNEXT the next one
// in the VSAN table.
//
// vp_name, vp_namelen  the column
// name, length         the request OID; not changed
// exact                nonzero for GET
// record               cleared, then given the VSAN, 1 to 4095
//
// Returns 0 or a failure status.
uint32_t get_vsanFcTimerEntry_instance(const oid *vp_name, size_t vp_namelen, const oid *name, const size_t *length,
                                       int exact, fc_timer_record *record) {
    *record = {};
    record->per_vsan = 1;
    VSAN_TRACE(TRACE_EVENT, "%s : Entered ", __func__);
    VSAN_TRACE(TRACE_EVENT, "%s : *length = %d , vp_namelen = %d ", __func__, static_cast<int>(*length),
               static_cast<int>(vp_namelen));

    const column_name column(vp_name, vp_namelen);
    uint32_t vsan = 0;
    if (exact != 0) {
        if (!exact_index(column, name, *length, vsan)) {
            return ENTRY_NO_INSTANCE;
        }
    } else {
        if (is_of_column(column, name, *length)) {
            VSAN_TRACE(TRACE_EVENT, "%s : oid comapre matched ", __func__);
        }
        if (!next_index(column, name, *length, TIMER_TABLE_END, vsan)) {
            VSAN_TRACE(TRACE_EVENT, "%s : reached max count", __func__);
            return ENTRY_NO_INSTANCE;
        }
        const uint32_t status = find_next_vsan(__func__, vsan);
        if (status != 0) {
            return status;
        }
    }
    if (vsan - 1 > VSAN_MAX - 1) {
        return ENTRY_NO_INSTANCE;
    }
    record->vsan = vsan;
    VSAN_TRACE(TRACE_EVENT, "%s : Exit with success ", __func__);
    return 0;
}

// Looks up one timer of one VSAN. A VSAN without a value at the distribution service
// is passed over, by GET too, which then answers with the next VSAN that has one.
//
// vp            the column and its magic
// name, length  the request OID; on success the column and the VSAN
// exact         nonzero for GET
// record        receives the timer, host order
// for_set       nonzero on behalf of a SET: the service is asked whenever it is
//               enabled, and the manager itself where the service refuses
//
// Returns 0 or a failure status.
uint32_t header_vsanFcTimerEntry(const variable *vp, oid *name, size_t *length, int exact, fc_timer_record *record,
                                 int for_set) {
    for (uint32_t passed_over = 0;;) {
        const distribution service = ask_distribution();
        VSAN_TRACE(TRACE_EVENT, "%s : calling timer_instance() ", __func__);
        const uint32_t found = get_vsanFcTimerEntry_instance(vp->name, vp->namelen, name, length, exact, record);
        VSAN_TRACE(TRACE_EVENT, "%s : done calling timer_instance() ", __func__);
        // After a VSAN that was passed over only later ones count, whatever the manager says.
        if (found != 0 || record->vsan <= passed_over) {
            VSAN_TRACE(TRACE_EVENT, "%s : return after timer_instance()", __func__);
            return found != 0 ? found : ENTRY_NO_INSTANCE;
        }
        record->key = timer_of(vp->magic);
        uint32_t kind = lookup_kind(__func__, service, for_set);
        const bool is_tdx_lookup = kind == TDX_GET_REQ;
        VSAN_TRACE(TRACE_EVENT, "%s : Sending  %s request to VSAN mgr vsan_id = %d) timer_type = %d\n", __func__,
                   is_tdx_lookup ? "TDX_GET_REQ" : "GET", static_cast<int>(record->vsan),
                   static_cast<int>(record->key));
        void *reply;
        uint32_t reply_length;
        uint32_t status = ask_for_timer(__func__, *record, kind, for_set, reply, reply_length);
        if (status == MANAGER_NO_SUCH_ATTRIBUTE && is_tdx_lookup) {
            free(reply);
            VSAN_TRACE(TRACE_EVENT, "%s : attr not found for vsan-id : %d ", __func__, static_cast<int>(record->vsan));
            name_row(column_name(vp), name, length, record->vsan);
            passed_over = record->vsan;
            exact = 0;
            continue;
        }
        if (!take_timer(__func__, kind, reply, reply_length, *record, status)) {
            return status;
        }
        VSAN_TRACE(TRACE_EVENT,
                   "%s : Received  %s response from VSAN mgr  vsanIndex = %d Timer_type  = %d, timer_value =%d \n",
                   __func__, is_tdx_lookup ? "TDX_GET_REQ" : "GET", static_cast<int>(record->vsan),
                   static_cast<int>(record->key), static_cast<int>(record->value));
        name_row(column_name(vp), name, length, record->vsan);
        return 0;
    }
}

} // extern "C"

namespace {

uint32_t lookup(const variable *vp, oid *name, size_t *length, int exact, uint32_t &vsan) {
    const uint32_t status = header_vsanFcTimerEntry(vp, name, length, exact, &vsanFcTimer_current, 0);
    vsan = vsanFcTimer_current.vsan;
    return status;
}

} // namespace

// The read handler of the timer table, called by the agent. Returns the column's value
// in static storage, or null when there is no row or the user may not see it.
u_char *get_vsanFcTimerEntry(variable *vp, oid *name, size_t *length, int exact, size_t *var_len,
                             WriteMethod **write_method) {
    set_fctimer_table_set_methods(vp->magic, write_method);
    if (!find_visible_row(__func__, __LINE__, lookup, vp, name, length, exact)) {
        return nullptr;
    }

    VSAN_TRACE(TRACE_EVENT, "%s : getting the values", __func__);
    const vsan_object *column = find_object(vp->magic, object_table::timer);
    if (column == nullptr) {
        snmp_set_detail("BAD THING HAPPENED");
        return nullptr;
    }
    if (column->place.form == value_form::force_flag) {
        // The VSAN is the manager's word.
        if (vsanFcTimer_current.vsan >= VSAN_FORCE_FLAGS) {
            return nullptr;
        }
        force_flag_cell = vsanFcTimerForceFlags[vsanFcTimer_current.vsan];
        *var_len = sizeof force_flag_cell;
        return &force_flag_cell;
    }
    memcpy(&vsanRowStatus_active, reinterpret_cast<const uint8_t *>(&vsanFcTimer_current) + column->place.at,
           sizeof vsanRowStatus_active);
    *var_len = sizeof vsanRowStatus_active;
    return reinterpret_cast<u_char *>(&vsanRowStatus_active);
}

// Hands the agent a timer column's write method. `write_method` stays as it is for a column
// that has none.
void set_fctimer_table_set_methods(int magic, WriteMethod **write_method) {
    const vsan_object *column = find_object(magic, object_table::timer);
    if (column != nullptr && column->writer != nullptr) {
        *write_method = column->writer;
    }
}
