// SPDX-License-Identifier: Apache-2.0
#include "setting.h"

#include <cstdlib>
#include <cstring>

#include "channel.h"
#include "contract/big_endian.h"
#include "contract/plain_text.h"
#include "contract/services.h"
#include "contract/status_codes.h"
#include "netsnmpagent_oryx.h"
#include "port.h"

namespace switch_agent {
namespace {

const char STAGED_NAME[] = "switchmib_setting";

// Where a failure comes from, in the agent's log.
constexpr uint32_t FAILED_REQUEST = 200;

struct Staged {
    Setting change;
    Setting former;
    // Whether the switch has, or may have, what `change` says.
    bool is_in_force;
};

static_assert(PORT_SETTING_VALUE + PORT_ALIAS_MAX <= sizeof(Setting::payload));

Setting port_setting(uint32_t if_index, uint32_t key) {
    Setting setting = {};
    setting.opcode = MTS_OP_PORT;
    setting.length = PORT_SETTING_VALUE;
    write_be32(setting.payload + PORT_SETTING_IF_INDEX, if_index);
    write_be32(setting.payload + PORT_SETTING_KEY, key);
    return setting;
}

void append(Setting &setting, const void *bytes, size_t length) {
    if (length > 0) {
        memcpy(setting.payload + setting.length, bytes, length);
    }
    setting.length += static_cast<uint32_t>(length);
}

Staged *staged_for(netsnmp_request_info &request) {
    return static_cast<Staged *>(netsnmp_request_get_list_data(&request, STAGED_NAME));
}

uint32_t send(const Setting &setting) {
    forget_port();
    const uint32_t status =
        exchange({MTS_SERVICE_PORT, setting.opcode, MTS_KIND_SET, setting.payload, setting.length}, nullptr, 0);
    if (status != 0) {
        log_set_error(status, FAILED_REQUEST);
    }
    return status;
}

// The switch goes by the role once more, and its limits of values are its own.
int error_of(uint32_t status) {
    switch (status) {
    case 0:
        return SNMP_ERR_NOERROR;
    case STATUS_VSAN_RESTRICTED:
    case STATUS_INTERFACE_RESTRICTED:
    case STATUS_SWITCH_RESTRICTED:
        return SNMP_ERR_NOACCESS;
    case STATUS_BAD_LENGTH:
        return SNMP_ERR_WRONGLENGTH;
    case STATUS_BAD_RECORD:
        return SNMP_ERR_WRONGVALUE;
    default:
        return SNMP_ERR_COMMITFAILED;
    }
}

} // namespace

Setting port_word_setting(uint32_t if_index, uint32_t key, uint32_t word) {
    Setting setting = port_setting(if_index, key);
    uint8_t bytes[4];
    write_be32(bytes, word);
    append(setting, bytes, sizeof bytes);
    return setting;
}

Setting port_alias_setting(uint32_t if_index, const void *text, size_t length) {
    Setting setting = port_setting(if_index, PORT_SETTING_ALIAS);
    append(setting, text, length);
    return setting;
}

Setting system_text_setting(uint32_t which, const void *text, size_t length) {
    Setting setting = {};
    setting.opcode = MTS_OP_SYSTEM;
    setting.length = SYSTEM_SETTING_VALUE;
    write_be32(setting.payload + SYSTEM_SETTING_TEXT, which);
    append(setting, text, length);
    return setting;
}

int check_text(const netsnmp_variable_list &varbind, size_t longest) {
    if (varbind.type != ASN_OCTET_STR) {
        return SNMP_ERR_WRONGTYPE;
    }
    if (varbind.val_len > longest) {
        return SNMP_ERR_WRONGLENGTH;
    }
    return is_plain_text(varbind.val.string, varbind.val_len) != 0 ? SNMP_ERR_NOERROR : SNMP_ERR_WRONGVALUE;
}

int stage_setting(netsnmp_request_info &request, const Setting &change, const Setting &former) {
    auto *staged = static_cast<Staged *>(calloc(1, sizeof(Staged)));
    if (!staged) {
        return SNMP_ERR_RESOURCEUNAVAILABLE;
    }
    staged->change = change;
    staged->former = former;
    // free() is the C library's: the agent may unload this library before it drops the list.
    netsnmp_data_list *node = netsnmp_create_data_list(STAGED_NAME, staged, free);
    if (!node) {
        free(staged);
        return SNMP_ERR_RESOURCEUNAVAILABLE;
    }
    netsnmp_request_add_list_data(&request, node);
    return SNMP_ERR_NOERROR;
}

int send_setting(netsnmp_request_info &request) {
    Staged *staged = staged_for(request);
    if (!staged) {
        return SNMP_ERR_GENERR;
    }
    const uint32_t status = send(staged->change);
    // Without an answer nobody knows whether the switch did it.
    staged->is_in_force = status == 0 || status == UINT32_MAX;
    return error_of(status);
}

int undo_setting(netsnmp_request_info &request) {
    const Staged *staged = staged_for(request);
    if (!staged || !staged->is_in_force) {
        return SNMP_ERR_NOERROR;
    }
    return send(staged->former) == 0 ? SNMP_ERR_NOERROR : SNMP_ERR_UNDOFAILED;
}

} // namespace switch_agent
