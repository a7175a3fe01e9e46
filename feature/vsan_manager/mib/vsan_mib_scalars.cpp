// SPDX-License-Identifier: Apache-2.0
// The ten scalars: a read costs one request to the VSAN manager, and so does a SET, which is
// checked in RESERVE1, sent in ACTION, and never undone.

#include "vsan_mib_channel.h"
#include "vsan_mib_exports.h"
#include "vsan_mib_objects.h"
#include "vsan_mib_set.h"
#include "vsan_mib_state.h"

#include "mts.h"
#include "netsnmpagent_oryx.h"
#include "sysmgr.h"

#include <arpa/inet.h>

namespace {

// What goes out for a scalar, network order: a timer's or a latency's record, or for all others
// the value, which only a SET has.
union scalar_request {
    fc_timer_record timer;
    latency_record latency;
    uint32_t value;
};

// Fills a request in and returns its length.
uint32_t fill(scalar_request &request, const value_place &place, uint32_t value) {
    request = {};
    switch (place.opcode) {
    case OPCODE_FC_TIMER:
        request.timer.key = htonl(place.key);
        request.timer.value = htonl(value);
        return sizeof request.timer;
    case OPCODE_LATENCY:
        request.latency = {htonl(place.key), htonl(value), 0};
        return sizeof request.latency;
    default:
        request.value = htonl(value);
        return sizeof request.value;
    }
}

} // namespace

extern "C" {

// The read handler of the scalars, called by the agent. Returns the value in static
// storage, or null when the OID is not the scalar's or the manager did not deliver.
// A writable scalar's write method is handed over before the manager is asked, so
// that a SET does not depend on the read.
u_char *get_vsan_mib(variable *vp, oid *name, size_t *length, int exact, size_t *var_len, WriteMethod **write_method) {
    if (header_generic(vp, name, length, exact, var_len, write_method) == MATCH_FAILED) {
        return nullptr;
    }

    *var_len = sizeof(uint32_t);
    const vsan_object *scalar = find_object(vp->magic, object_table::scalar);
    if (scalar == nullptr) {
        snmp_set_detail("");
        return nullptr;
    }
    if (scalar->writer != nullptr) {
        *write_method = scalar->writer;
    }
    VSAN_TRACE(TRACE_EVENT, scalar->reading.text, __func__, scalar->place.key);
    const value_place &place = scalar->place;
    scalar_request request;
    const uint32_t request_length = fill(request, place, 0);
    const bool is_named = place.key != 0; // else the opcode alone says what is asked for
    return reinterpret_cast<u_char *>(get_using_cmi(place.opcode, is_named ? &request : nullptr,
                                                    is_named ? request_length : scalar_reply_length(place.opcode)));
}

// Sends one SET of a switch-wide setting and waits for the answer, telling the system
// manager meanwhile that the agent is busy.
//
// length   the payload's length in bytes
// payload  the record, network order
//
// Returns an SNMP error status; a refusal is recorded with its platform status.
int set_Scalar(uint32_t opcode, uint32_t length, const void *payload) {
    sysmgr_heartbeat(1);
    const uint32_t status = cmi_req_resp(opcode, SET_REQ, payload, nullptr, &length, get_snmp_username(0),
                                         get_snmp_sessionid(0), MANAGER_SAP_VSAN, mts_response_q, WAIT_TIMER);
    sysmgr_heartbeat(0);
    last_timer_status = status;
    return status == 0 ? SNMP_ERR_NOERROR : refused_by_manager(status);
}

} // extern "C"

// ACTION. A value that the manager took stays, even when another variable of the PDU fails
// later.
int send_scalar(const set_call &call) {
    const value_place &place = call.rule.object->place;
    scalar_request request;
    const uint32_t length = fill(request, place, integer_of(call));
    return set_Scalar(place.opcode, length, &request);
}
