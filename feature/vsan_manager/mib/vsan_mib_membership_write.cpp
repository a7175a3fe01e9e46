// SET of an interface's VSAN: checked in RESERVE1, sent in ACTION, never staged and
// never undone. Beside it the functions that stand for writers that do nothing.

#include "vsan_mib.h"

#include <cstdio>
#include <cstring>

namespace {

int check(const u_char *value, u_char type, size_t length, const oid *name, size_t name_len) {
    if (type != ASN_INTEGER) {
        fputs("write to vsanIfVsan not ASN_INTEGER\n", stderr);
        return SNMP_ERR_WRONGTYPE;
    }
    if (!integer_length_is_valid(length)) {
        fputs("write to vsanIfVsan: bad length\n", stderr);
        return SNMP_ERR_WRONGLENGTH;
    }
    const uint32_t vsan = integer_value(value, length);
    if (vsan - 1 > VSAN_MAX - 1)
        return SNMP_ERR_WRONGVALUE;
    // The rule has already recorded why.
    if (process_for_vsan_restriction(static_cast<uint32_t>(name[name_len - 1]), IF_OPERATION_MOVE, vsan, name, name_len,
                                     PDU_TYPE_SET) != 0)
        return SNMP_ERR_GENERR;
    return SNMP_ERR_NOERROR;
}

// Sends the interface's record as the manager has it, with the new VSAN.
int move(const u_char *value, size_t length, const oid *name, size_t name_len) {
    oid row_name[MAX_OID_LEN];
    memcpy(row_name, name, name_len * sizeof *name);
    vsanIfEntry record;
    uint32_t status = header_vsanIfEntry(name, VSAN_COLUMN_LENGTH, row_name, &name_len, 1, &record);
    if (status != 0)
        return to_snmp_error_code(status, SNMP_ERROR_MODE);

    record.vsanIfVsan = static_cast<int32_t>(integer_value(value, length));
    vsanIfEntry_hton(&record);
    uint32_t payload_length = sizeof record;
    status = cmi_req_resp(OPCODE_IF_MEMBERSHIP, SET_REQ, &record, nullptr, &payload_length, get_snmp_username(0),
                          get_snmp_sessionid(0), MANAGER_SAP_VSAN, mts_response_q, WAIT_TABLE);
    return status == 0 ? SNMP_ERR_NOERROR : refused_by_manager(status);
}

} // namespace

extern "C" {

// The write method of vsanIfVsan, called by the agent once a phase. Returns an SNMP
// error status.
int set_vsanIfVsan(int action, u_char *var_val, u_char var_val_type, size_t var_val_len, u_char *, oid *name,
                   size_t name_len) {
    switch (action) {
    case RESERVE1:
        return check(var_val, var_val_type, var_val_len, name, name_len);
    case ACTION:
        return move(var_val, var_val_len, name, name_len);
    default:
        return SNMP_ERR_NOERROR;
    }
}

/* Hands the agent the write method of an interface column: none for the deny list.
 * `write_method` stays as it is for anything else. */
void set_if_table_set_methods(int magic, WriteMethod **write_method) {
    if (magic == VSANIFVSAN)
        *write_method = set_vsanIfVsan;
    else if (magic == VSANIFDENYLIST)
        *write_method = nullptr;
}

// The deny list is read-only; no column hands this out.
int set_vsanIfDenyList(int, u_char *, u_char, size_t, u_char *, oid *, size_t) {
    return SNMP_ERR_NOSUCHNAME;
}

// Every ifIndex is as good as another: the manager knows which exist.
int check_valid_ifindex(void) {
    return 1;
}

} // extern "C"
