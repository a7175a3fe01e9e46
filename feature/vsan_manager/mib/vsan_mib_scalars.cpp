// GET and GETNEXT on the ten scalars. Each costs one request to the VSAN manager.

#include "vsan_mib.h"
#include "vsan_mib_trace.h"

#include <arpa/inet.h>

namespace {

u_char *as_result(uint32_t *value) {
    return reinterpret_cast<u_char *>(value);
}

u_char *read_timer(vsan_attr_key_t key) {
    fc_timer_record request = {};
    request.key = htonl(static_cast<uint32_t>(key));
    return as_result(get_using_cmi(OPCODE_FC_TIMER, &request, sizeof request));
}

u_char *read_latency(vsan_attr_key_t key) {
    latency_record request = {};
    request.key = htonl(static_cast<uint32_t>(key));
    return as_result(get_using_cmi(OPCODE_LATENCY, &request, sizeof request));
}

} // namespace

/*
 * The read handler of the scalars, called by the agent. Returns the value in static
 * storage, or null when the OID is not the scalar's or the manager did not deliver.
 * A writable scalar's write method is handed over before the manager is asked, so
 * that a SET does not depend on the read.
 */
u_char *get_vsan_mib(variable *vp, oid *name, size_t *length, int exact, size_t *var_len, WriteMethod **write_method) {
    if (header_generic(vp, name, length, exact, var_len, write_method) == MATCH_FAILED)
        return nullptr;

    *var_len = sizeof(uint32_t);
    switch (vp->magic) {
    case VSANNUMBER:
        VSAN_TRACE(TRACE_EVENT, "%s : Sending GET request to VSAN mgr for VSANNUMBER\n", __func__);
        return as_result(get_using_cmi(OPCODE_VSAN_NUMBER, nullptr, 4));
    case VSANTABLELASTCHANGE:
        VSAN_TRACE(TRACE_EVENT, "%s : Sending GET request to VSAN mgr for VSANTABLELASTCHANGE\n", __func__);
        return as_result(get_using_cmi(OPCODE_VSAN_TABLE_LAST_CHANGE, nullptr, 8));
    case VSANIFNUMBER:
        VSAN_TRACE(TRACE_EVENT, "%s : Sending GET request to VSAN mgr for VSANIFNUMBER \n", __func__);
        return as_result(get_using_cmi(OPCODE_VSAN_IF_NUMBER, nullptr, 4));
    case FCTIMERRATOV:
        *write_method = set_fcTimerRatov;
        VSAN_TRACE(TRACE_EVENT, "%s : Sending GET request to VSAN mgr for  FCTIMERRATOV with fctimer_type=%d\n",
                   __func__, VSAN_ATTR_R_A_TOV);
        return read_timer(VSAN_ATTR_R_A_TOV);
    case FCTIMEREDTOV:
        *write_method = set_fcTimerEdtov;
        VSAN_TRACE(TRACE_EVENT, "%s : Sending GET request to VSAN mgr for FCTIMEREDTOV with fctimer_type =%d\n",
                   __func__, VSAN_ATTR_E_D_TOV);
        return read_timer(VSAN_ATTR_E_D_TOV);
    case FCTIMERFSTOV:
        VSAN_TRACE(TRACE_EVENT, "%s : Sending GET request to VSAN mgr for FCTIMERFSTOV with fctimer_type = %d\n",
                   __func__, VSAN_ATTR_F_S_TOV);
        return read_timer(VSAN_ATTR_F_S_TOV);
    case FCTIMERDSTOV:
        *write_method = set_fcTimerDstov;
        VSAN_TRACE(TRACE_EVENT, "%s : Sending GET request to VSAN mgr for FCTIMERDSTOV fctimertype = %d\n", __func__,
                   VSAN_ATTR_D_S_TOV);
        return read_timer(VSAN_ATTR_D_S_TOV);
    case FCNETWORKLATENCY:
        *write_method = set_fcNetworkLatency;
        VSAN_TRACE(TRACE_EVENT, "%s : Sending GET request to VSAN mgr for FCNETWORKLATENCY with latencytype=%d\n",
                   __func__, VSAN_ATTR_NETWORK_LATENCY);
        return read_latency(VSAN_ATTR_NETWORK_LATENCY);
    case FCSWITCHLATENCY:
        *write_method = set_fcSwitchLatency;
        VSAN_TRACE(TRACE_EVENT, "%s : Sending GET request to VSAN mgr for FCSWITCHLATENCY with latencytype = %d\n",
                   __func__, VSAN_ATTR_SWITCH_LATENCY);
        return read_latency(VSAN_ATTR_SWITCH_LATENCY);
    case FCINORDERDELIVERY:
        *write_method = set_fcInorderDelivery;
        VSAN_TRACE(TRACE_EVENT, "%s : Sending GET request to VSAN mgr for FCINORDERDELIVERY\n", __func__);
        return as_result(get_using_cmi(OPCODE_INORDER_DELIVERY, nullptr, 4));
    default:
        snmp_set_detail("");
        return nullptr;
    }
}
