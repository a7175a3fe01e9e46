// SPDX-License-Identifier: Apache-2.0
// The managers' events as notifications: the two callbacks of the agent extension
// library, and the notification control.

#include "vsan_mib_exports.h"
#include "vsan_mib_never.h"
#include "vsan_mib_set.h"
#include "vsan_mib_state.h"
#include "vsan_mib_trace.h"

#include "mts.h"
#include "netsnmpagent_oryx.h"
#include "vsan.h"

#include <arpa/inet.h>
#include <cstdlib>
#include <cstring>

const u_char *last_notification_control;

namespace {

#define ROOT 1, 3, 6, 1, 4, 1, VENDOR_PEN, 9, 282

const oid vsan_status_change_oid[] = {ROOT, 1, 3, 0, 1};
const oid port_membership_change_oid[] = {ROOT, 1, 3, 0, 2};
const oid notification_vsan_oid[] = {ROOT, 1, 1, 4, 0};
const oid port_manager_value_oid[] = {ROOT, 1, 5, 1, 0};

// Templates whose last arc is the instance.
const oid admin_state_oid[] = {ROOT, 1, 1, 3, 1, 4, 0};
const oid oper_state_oid[] = {ROOT, 1, 1, 3, 1, 8, 0};
oid interface_oid[] = {1, 3, 6, 1, 2, 1, 2, 2, 1, 1, 0}; // IF-MIB ifIndex

#undef ROOT

constexpr size_t arcs(size_t bytes) {
    return bytes / sizeof(oid);
}

// What identifies the port manager in notifications, as it gave it; two zero words
// while it has not been asked successfully.
uint32_t port_manager_value[2];

netsnmp_variable_list *add_integer(netsnmp_variable_list *list, uint32_t value, const oid *name, size_t length) {
    const auto number = static_cast<int32_t>(value);
    return build_varbind(list, &number, ASN_INTEGER, sizeof number, name, length);
}

netsnmp_variable_list *send_nothing(int *send) {
    *send = 0;
    return nullptr;
}

void set_notification(const oid *name, size_t bytes, oid *trap_oid, size_t *trap_length) {
    memcpy(trap_oid, name, bytes);
    *trap_length = arcs(bytes);
}

// Asks the port manager for its value, unless it is known.
bool know_port_manager() {
    if (port_manager_value[0] != 0 || port_manager_value[1] != 0) {
        return true;
    }
    void *reply = nullptr;
    uint32_t length = 0;
    const uint32_t status =
        cmi_req_resp(OPCODE_PORT_MANAGER_VALUE, GET_REQ, nullptr, &reply, &length, get_snmp_username(0),
                     get_snmp_sessionid(0), MANAGER_SAP_PORT, mts_response_q, WAIT_TABLE);
    const bool is_known = status == 0 && reply != nullptr && length >= sizeof port_manager_value;
    if (is_known) {
        memcpy(port_manager_value, reply, sizeof port_manager_value);
    }
    free(reply);
    return is_known;
}

// Reads one attribute of a VSAN event, host order.
bool read_attribute(const void *payload, uint32_t size, vsan_attr_key_t key, uint32_t &value) {
    uint32_t network_value = 0;
    uint32_t before = 0;
    if (vsan_range_config_change_get_attr_values(payload, size, static_cast<uint32_t>(key), &network_value, &before) !=
        0) {
        return false;
    }
    value = ntohl(network_value);
    return true;
}

// Binds an integer to the instance of a VSAN table's column.
netsnmp_variable_list *add_column(netsnmp_variable_list *list, const oid *column, uint32_t vsan, uint32_t value) {
    oid name[VSAN_COLUMN_LENGTH + 1];
    memcpy(name, column, sizeof name);
    name[VSAN_COLUMN_LENGTH] = vsan;
    return add_integer(list, value, name, VSAN_COLUMN_LENGTH + 1);
}
static_assert(arcs(sizeof admin_state_oid) == VSAN_COLUMN_LENGTH + 1 &&
              sizeof oper_state_oid == sizeof admin_state_oid);

// What a VSAN status notification carries.
netsnmp_variable_list *bind_states(uint32_t vsan, uint32_t admin_state, uint32_t oper_state) {
    netsnmp_variable_list *bindings =
        add_integer(nullptr, vsan, notification_vsan_oid, arcs(sizeof notification_vsan_oid));
    bindings = add_column(bindings, admin_state_oid, vsan, admin_state);
    return add_column(bindings, oper_state_oid, vsan, oper_state);
}

} // namespace

extern "C" {

// Turns a configuration event of the VSAN manager into a VSAN status notification:
// the VSAN, its administrative and its operational state. Arguments and result as the
// agent extension library defines them; an event that cannot be read is dropped.
netsnmp_variable_list *handle_notifications(const mts_message *message, oid *trap_oid, size_t *trap_length, int *send) {
    if (message == nullptr) {
        return send_nothing(send);
    }

    const void *payload = mts_payload_get(message);
    const uint32_t size = mts_payload_size(message);
    uint32_t condition = 0;
    uint32_t vsan = 0;
    uint32_t is_created = 0;
    const uint32_t decoded = vsan_range_config_change_get_info(payload, size, &condition, &vsan, &is_created);
    VSAN_TRACE(TRACE_EVENT, "%s(%d)Vsan_id:%d  is_vsan_created:%d\n", __func__, __LINE__, static_cast<int>(vsan),
               static_cast<int>(is_created));
    if (decoded != 0) {
        return send_nothing(send);
    }
    // A further condition withdraws the notification until both states are known.
    if (condition != 0) {
        *send = 0;
    }

    uint32_t oper_state = 0;
    uint32_t admin_state = 0;
    if (!read_attribute(payload, size, VSAN_ATTR_OPER_STATE, oper_state) ||
        !read_attribute(payload, size, VSAN_ATTR_STATE, admin_state)) {
        return send_nothing(send);
    }

    *send = 1;
    netsnmp_variable_list *bindings = bind_states(vsan, admin_state, oper_state);
    set_notification(vsan_status_change_oid, sizeof vsan_status_change_oid, trap_oid, trap_length);
    return bindings;
}

// Turns a port membership event into a port membership notification: the port
// manager's value, the interface and its VSAN. The event's payload is 32-bit words in
// network order: 0 the interface index, 2 the VSAN.
netsnmp_variable_list *handle_port_memb_change_notifications(const mts_message *message, oid *trap_oid,
                                                             size_t *trap_length, int *send) {
    *send = 0;
    // Volatile, so that the test stays in place for the switch that is to set it.
    const volatile int is_enabled = 1;
    if (VSAN_NEVER(is_enabled != 1, "nothing can disable the notification yet")) {
        VSAN_TRACE(TRACE_EVENT, "This Trap is Disabled (%s)\n", __func__);
        return send_nothing(send);
    }
    if (!know_port_manager() || message == nullptr) {
        return send_nothing(send);
    }

    uint32_t words[3];
    const void *payload = mts_payload_get(message);
    if (payload == nullptr || mts_payload_size(message) < sizeof words) {
        return send_nothing(send);
    }
    memcpy(words, payload, sizeof words);
    *send = 1;
    const uint32_t if_index = ntohl(words[0]);
    const uint32_t vsan = ntohl(words[2]);

    interface_oid[arcs(sizeof interface_oid) - 1] = if_index;
    netsnmp_variable_list *bindings =
        build_varbind(nullptr, port_manager_value, ASN_OCTET_STR, sizeof port_manager_value, port_manager_value_oid,
                      arcs(sizeof port_manager_value_oid));
    bindings = add_integer(bindings, if_index, interface_oid, arcs(sizeof interface_oid));
    bindings = add_integer(bindings, vsan, notification_vsan_oid, arcs(sizeof notification_vsan_oid));
    set_notification(port_membership_change_oid, sizeof port_membership_change_oid, trap_oid, trap_length);
    return bindings;
}

// Asks the VSAN manager to send status notifications. Returns 0, or -1 when it refuses.
int vsan_trap_vsan_set(uint32_t value) {
    const uint32_t payload = htonl(value);
    uint32_t length = sizeof payload;
    const uint32_t status = cmi_req_resp(OPCODE_VSAN_STATUS_TRAP, SET_REQ, &payload, nullptr, &length, nullptr, 0,
                                         MANAGER_SAP_VSAN, mts_response_q, WAIT_TRAP);
    if (status == 0) {
        return 0;
    }
    VSAN_TRACE(TRACE_EVENT, "****Ret_Value:%d [%d(%s)]\n", static_cast<int>(status), __LINE__, __func__);
    return -1;
}

} // extern "C"

int check_notification_control(const set_call &call) {
    const int status = check_form(call);
    if (status != SNMP_ERR_NOERROR) {
        return status;
    }
    last_notification_control = call.value;
    return check_range(call);
}

// Whatever value is written, the manager is asked to send.
int ask_for_notifications(const set_call &) {
    return vsan_trap_vsan_set(1) == 0 ? SNMP_ERR_NOERROR : SNMP_ERR_GENERR;
}
