// SPDX-License-Identifier: Apache-2.0
// SET of an interface's VSAN: checked in RESERVE1, sent in ACTION, never staged and
// never undone.

#include "vsan_mib_channel.h"
#include "vsan_mib_exports.h"
#include "vsan_mib_names.h"
#include "vsan_mib_set.h"

#include "mts.h"
#include "netsnmpagent_oryx.h"

// RESERVE1.
int check_membership(const set_call &call) {
    const int status = check_value(call);
    if (status != SNMP_ERR_NOERROR) {
        return status;
    }
    // The rule has already recorded why.
    return process_for_vsan_restriction(last_arc(call.name, call.name_len), IF_OPERATION_MOVE, integer_of(call),
                                        call.name, call.name_len, PDU_TYPE_SET) == 0
               ? SNMP_ERR_NOERROR
               : SNMP_ERR_GENERR;
}

// ACTION: sends the interface's record as the manager has it, with the new VSAN.
int move_interface(const set_call &call) {
    name_copy row_name(call.name, call.name_len);
    vsanIfEntry record;
    uint32_t status = header_vsanIfEntry(call.name, VSAN_COLUMN_LENGTH, row_name.arcs, &row_name.length, 1, &record);
    if (status != 0) {
        return to_snmp_error_code(status, SNMP_ERROR_MODE);
    }
    record.vsanIfVsan = static_cast<int32_t>(integer_of(call));
    vsanIfEntry_hton(&record);
    uint32_t payload_length = sizeof record;
    status = cmi_req_resp(OPCODE_IF_MEMBERSHIP, SET_REQ, &record, nullptr, &payload_length, get_snmp_username(0),
                          get_snmp_sessionid(0), MANAGER_SAP_VSAN, mts_response_q, WAIT_TABLE);
    return status == 0 ? SNMP_ERR_NOERROR : refused_by_manager(status);
}

// Every ifIndex is as good as another: the manager knows which exist.
extern "C" int check_valid_ifindex(void) {
    return 1;
}
