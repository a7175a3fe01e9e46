// GET and GETNEXT on the per-VSAN Fibre Channel timer table. While the distribution
// service governs the timers, its own record of a VSAN is what a read shows.

#include "vsan_mib.h"
#include "vsan_mib_trace.h"

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
    switch (magic) {
    case VSANFCTIMERRATOV:
        return VSAN_ATTR_R_A_TOV;
    case VSANFCTIMEREDTOV:
        return VSAN_ATTR_E_D_TOV;
    case VSANFCTIMERDSTOV:
        return VSAN_ATTR_D_S_TOV;
    case VSANFCTIMERFSTOV:
        return VSAN_ATTR_F_S_TOV;
    default:
        return 0;
    }
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
    if (service.is_enabled == 0)
        return GET_REQ;
    if (for_set != 0) {
        VSAN_TRACE(TRACE_EVENT, "%s get_for_set msg_type = TDX_GET_REQ \n", function);
        return TDX_GET_REQ;
    }
    if (service.show_run_mode != 0)
        return GET_REQ;
    VSAN_TRACE(TRACE_EVENT, "%s msg_type = TDX_GET_REQ \n", function);
    return TDX_GET_REQ;
}

uint32_t exchange_timer(const fc_timer_record &request, uint32_t kind, void *&reply, uint32_t &length) {
    length = sizeof request;
    return cmi_req_resp(OPCODE_FC_TIMER, kind, &request, &reply, &length, nullptr, 0, MANAGER_SAP_VSAN, mts_response_q,
                        WAIT_TABLE);
}

void name_row(const variable *vp, oid *name, size_t *length, uint32_t vsan) {
    memcpy(name, vp->name, vp->namelen * sizeof *name);
    name[vp->namelen] = vsan;
    *length = static_cast<size_t>(vp->namelen) + 1;
}

} // namespace

extern "C" {

/*
 * Finds the VSAN of a request OID: for GET the one it names, for GETNEXT the next one
 * in the VSAN table.
 *
 * vp_name, vp_namelen  the column
 * name, length         the request OID; not changed
 * exact                nonzero for GET
 * record               cleared, then given the VSAN, 1 to 4095
 *
 * Returns 0 or a failure status.
 */
uint32_t get_vsanFcTimerEntry_instance(const oid *vp_name, size_t vp_namelen, const oid *name, const size_t *length,
                                       int exact, fc_timer_record *record) {
    *record = {};
    record->per_vsan = 1;
    VSAN_TRACE(TRACE_EVENT, "%s : Entered ", __func__);
    VSAN_TRACE(TRACE_EVENT, "%s : *length = %d , vp_namelen = %d ", __func__, static_cast<int>(*length),
               static_cast<int>(vp_namelen));

    uint32_t vsan = 0;
    if (exact != 0) {
        if (*length != vp_namelen + 1)
            return ENTRY_NO_INSTANCE;
        vsan = static_cast<uint32_t>(name[vp_namelen]);
    } else {
        vsanEntry row = {};
        if (*length >= vp_namelen && snmp_oid_compare(name, vp_namelen, vp_name, vp_namelen) == 0) {
            VSAN_TRACE(TRACE_EVENT, "%s : oid comapre matched ", __func__);
            if (*length > vp_namelen)
                row.vsanIndex = static_cast<int32_t>(static_cast<uint32_t>(name[vp_namelen]));
            // Signed: an arc of 2^31 or more counts as before the first VSAN.
            if (row.vsanIndex > static_cast<int32_t>(VSAN_MAX)) {
                VSAN_TRACE(TRACE_EVENT, "%s : reached max count", __func__);
                return ENTRY_NO_INSTANCE;
            }
        }
        VSAN_TRACE(TRACE_EVENT, "%s : Sending GETNEXT request to VSAN mgr with payload (size = %d) vsanIndex = %d\n",
                   __func__, static_cast<int>(sizeof(vsanEntry_block)), row.vsanIndex);
        vsanEntry_answer answer;
        const uint32_t status = query_vsanEntry(GETNEXT_REQ, row, row, answer);
        if (answer != vsanEntry_answer::record) {
            // Before the trace, which may set errno itself.
            const char *reason = manager_error_text(status);
            VSAN_TRACE(TRACE_FAILURE, "%s : GETNEXT Request failed for vsanIndex = %d with error : %s\n", __func__,
                       row.vsanIndex, reason);
            return answer == vsanEntry_answer::none ? ENTRY_NO_INSTANCE : status;
        }
        VSAN_TRACE(TRACE_EVENT,
                   "%s : Received  GETNEXT Response from VSAN mgr with payload (size = %d) vsanIndex = %d ", __func__,
                   static_cast<int>(sizeof(vsanEntry_block)), row.vsanIndex);
        vsan = static_cast<uint32_t>(row.vsanIndex);
    }
    if (vsan - 1 > VSAN_MAX - 1)
        return ENTRY_NO_INSTANCE;
    record->vsan = vsan;
    VSAN_TRACE(TRACE_EVENT, "%s : Exit with success ", __func__);
    return 0;
}

/*
 * Looks up one timer of one VSAN. A VSAN without a value at the distribution service
 * is passed over, by GET too, which then answers with the next VSAN that has one.
 *
 * vp            the column and its magic
 * name, length  the request OID; on success the column and the VSAN
 * exact         nonzero for GET
 * record        receives the timer, host order
 * for_set       nonzero on behalf of a SET: the service is asked whenever it is
 *               enabled, and the manager itself where the service refuses
 *
 * Returns 0 or a failure status.
 */
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
        const uint32_t vsan = record->vsan;
        record->key = timer_of(vp->magic);

        uint32_t kind = lookup_kind(__func__, service, for_set);
        const bool is_tdx_lookup = kind == TDX_GET_REQ;
        VSAN_TRACE(TRACE_EVENT, "%s : Sending  %s request to VSAN mgr vsan_id = %d) timer_type = %d\n", __func__,
                   is_tdx_lookup ? "TDX_GET_REQ" : "GET", static_cast<int>(vsan), static_cast<int>(record->key));

        fc_timer_record request = *record;
        vsanNewFcTimer_ntoh(&request);
        void *reply = nullptr;
        uint32_t reply_length = 0;
        uint32_t status = exchange_timer(request, kind, reply, reply_length);
        if (for_set != 0 && is_tdx_lookup && status == MANAGER_TDX_REFUSED) {
            VSAN_TRACE(TRACE_EVENT, "%s Re-sending with GET_REQ \n", __func__);
            free(reply);
            reply = nullptr;
            kind = GET_REQ;
            status = exchange_timer(request, kind, reply, reply_length);
        }

        if (status == MANAGER_NO_SUCH_ATTRIBUTE && is_tdx_lookup) {
            free(reply);
            VSAN_TRACE(TRACE_EVENT, "%s : attr not found for vsan-id : %d ", __func__, static_cast<int>(vsan));
            name_row(vp, name, length, vsan);
            passed_over = vsan;
            exact = 0;
            continue;
        }
        if (status == 0 && reply != nullptr && reply_length < sizeof *record)
            status = ENTRY_NO_INSTANCE;
        if (status != 0 || reply == nullptr) {
            // Before the trace, which may set errno itself.
            const char *reason = manager_error_text(status);
            VSAN_TRACE(TRACE_FAILURE, "%s : %s request failedfor vsan_id = %d with error : %s\n", __func__,
                       kind == GET_REQ ? "GET" : "GETNEXT", static_cast<int>(vsan), reason);
            free(reply);
            return status;
        }
        memcpy(record, reply, sizeof *record);
        free(reply);
        vsanNewFcTimer_ntoh(record);
        VSAN_TRACE(TRACE_EVENT,
                   "%s : Received  %s response from VSAN mgr  vsanIndex = %d Timer_type  = %d, timer_value =%d \n",
                   __func__, is_tdx_lookup ? "TDX_GET_REQ" : "GET", static_cast<int>(record->vsan),
                   static_cast<int>(record->key), static_cast<int>(record->value));
        name_row(vp, name, length, record->vsan);
        return 0;
    }
}

} // extern "C"

namespace {

uint32_t lookup(const variable *vp, oid *name, size_t *length, int exact) {
    return header_vsanFcTimerEntry(vp, name, length, exact, &vsanFcTimer_current, 0);
}

uint32_t current_vsan() {
    return vsanFcTimer_current.vsan;
}

constexpr vsan_table timer_table = {lookup, current_vsan};

} // namespace

/*
 * The read handler of the timer table, called by the agent. Returns the column's value
 * in static storage, or null when there is no row or the user may not see it.
 */
u_char *get_vsanFcTimerEntry(variable *vp, oid *name, size_t *length, int exact, size_t *var_len,
                             WriteMethod **write_method) {
    set_fctimer_table_set_methods(vp->magic, write_method);
    if (!find_visible_row(__func__, timer_table, vp, name, length, exact))
        return nullptr;

    VSAN_TRACE(TRACE_EVENT, "%s : getting the values", __func__);
    switch (vp->magic) {
    case VSANFCTIMERFORCEFLAG:
        // The VSAN is the manager's word.
        if (vsanFcTimer_current.vsan >= VSAN_FORCE_FLAGS)
            return nullptr;
        force_flag_cell = vsanFcTimerForceFlags[vsanFcTimer_current.vsan];
        *var_len = sizeof force_flag_cell;
        return &force_flag_cell;
    case VSANFCTIMERRATOV:
    case VSANFCTIMEREDTOV:
    case VSANFCTIMERDSTOV:
    case VSANFCTIMERFSTOV:
        vsanRowStatus_active = static_cast<int32_t>(vsanFcTimer_current.value);
        *var_len = sizeof vsanRowStatus_active;
        return reinterpret_cast<u_char *>(&vsanRowStatus_active);
    default:
        snmp_set_detail("BAD THING HAPPENED");
        return nullptr;
    }
}
