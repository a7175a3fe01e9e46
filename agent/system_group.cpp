// SPDX-License-Identifier: Apache-2.0
#include "system_group.h"

#include <cstring>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include "channel.h"
#include "contract/big_endian.h"
#include "contract/interfaces.h"
#include "contract/services.h"
#include "netsnmpagent_oryx.h"
#include "registrations.h"
#include "setting.h"
#include "value.h"

namespace switch_agent {
namespace {

#define SYSTEM_GROUP 1, 3, 6, 1, 2, 1, 1

const oid SYSTEM[] = {SYSTEM_GROUP};
const char SYS_DESCR[] = "Virtual Fibre Channel switch, libvsanmib " PROJECT_VERSION;

// A switch forwards frames within one network: layer 2 alone, which counts 2^(2-1).
constexpr long SYS_SERVICES = 2;

enum system_arc : unsigned { DESCR = 1, OBJECT_ID = 2, UP_TIME = 3, CONTACT = 4, NAME = 5, LOCATION = 6, SERVICES = 7 };

struct SystemScalar {
    oid root[OID_LENGTH(SYSTEM) + 1];
    const char *name;
    Access access;
    system_text text; // of those that can be written
};

SystemScalar scalars[] = {
    {{SYSTEM_GROUP, DESCR}, "sysDescr", Access::read_only, SYSTEM_TEXT_COUNT},
    {{SYSTEM_GROUP, OBJECT_ID}, "sysObjectID", Access::read_only, SYSTEM_TEXT_COUNT},
    {{SYSTEM_GROUP, UP_TIME}, "sysUpTime", Access::read_only, SYSTEM_TEXT_COUNT},
    {{SYSTEM_GROUP, CONTACT}, "sysContact", Access::read_write, SYSTEM_CONTACT},
    {{SYSTEM_GROUP, NAME}, "sysName", Access::read_write, SYSTEM_NAME},
    {{SYSTEM_GROUP, LOCATION}, "sysLocation", Access::read_write, SYSTEM_LOCATION},
    {{SYSTEM_GROUP, SERVICES}, "sysServices", Access::read_only, SYSTEM_TEXT_COUNT},
};

// A text as the switch has it.
struct SystemText {
    uint32_t length; // bytes, at most SYSTEM_TEXT_MAX
    uint8_t bytes[SYSTEM_TEXT_MAX];
};

// What the switch said last, which serves all three texts as long as the PDU is the same.
struct {
    uint32_t pdu; // 0 for none
    bool is_known;
    SystemText texts[SYSTEM_TEXT_COUNT];
} last;

bool decode(const uint8_t (&record)[SYSTEM_RECORD_SIZE]) {
    for (uint32_t i = 0; i < SYSTEM_TEXT_COUNT; ++i) {
        const uint8_t *field = record + size_t{i} * SYSTEM_TEXT_FIELD;
        last.texts[i].length = read_be32(field);
        if (last.texts[i].length > SYSTEM_TEXT_MAX) {
            return false;
        }
        memcpy(last.texts[i].bytes, field + 4, last.texts[i].length);
    }
    return true;
}

// The text as the switch has it, valid until the next call; null when it does not say.
const SystemText *current_text(system_text which) {
    const uint32_t pdu = get_pdu_reqid();
    if (last.pdu != pdu) {
        uint8_t record[SYSTEM_RECORD_SIZE];
        last.pdu = pdu;
        last.is_known =
            exchange({MTS_SERVICE_PORT, MTS_OP_SYSTEM, MTS_KIND_GET, nullptr, 0}, record, sizeof record) == 0 &&
            decode(record);
    }
    return last.is_known ? &last.texts[which] : nullptr;
}

bool read_value(const SystemScalar &scalar, Value &value) {
    switch (scalar.root[OID_LENGTH(SYSTEM)]) {
    case DESCR:
        value.set_bytes(SYS_DESCR, sizeof SYS_DESCR - 1);
        return true;
    case OBJECT_ID:
        value.set_object_id(SYS_OBJECT_ID, OID_LENGTH(SYS_OBJECT_ID));
        return true;
    case UP_TIME:
        value.set_count(ASN_TIMETICKS, static_cast<uint32_t>(netsnmp_get_agent_uptime()));
        return true;
    case SERVICES:
        value.set_integer(SYS_SERVICES);
        return true;
    default:
        break;
    }
    const SystemText *text = current_text(scalar.text);
    if (text) {
        value.set_bytes(text->bytes, text->length);
    }
    return text != nullptr;
}

// The group is the whole switch's: nobody whose role names a part of the switch changes it.
bool is_barred_from_changes() {
    allowed_vsan_list list = {};
    list.size = sizeof list.bitmap;
    return snmp_get_allowed_vsans_subtree(&list, SYSTEM, OID_LENGTH(SYSTEM), PDU_TYPE_SET) != 0;
}

int stage(const SystemScalar &scalar, netsnmp_request_info &request) {
    const SystemText *former = current_text(scalar.text);
    if (!former) {
        return SNMP_ERR_GENERR;
    }
    const netsnmp_variable_list &varbind = *request.requestvb;
    return stage_setting(request, system_text_setting(scalar.text, varbind.val.string, varbind.val_len),
                         system_text_setting(scalar.text, former->bytes, former->length));
}

int read(const SystemScalar &scalar, netsnmp_variable_list &varbind) {
    Value value;
    if (!read_value(scalar, value)) {
        return SNMP_NOSUCHINSTANCE;
    }
    return value.give_to(varbind) ? SNMP_ERR_NOERROR : SNMP_ERR_GENERR;
}

int answer(const SystemScalar &scalar, int mode, netsnmp_request_info &request) {
    switch (mode) {
    case MODE_GET:
        return read(scalar, *request.requestvb);
    case MODE_SET_RESERVE1:
        return is_barred_from_changes() ? SNMP_ERR_NOACCESS : check_text(*request.requestvb, SYSTEM_TEXT_MAX);
    case MODE_SET_RESERVE2:
        return stage(scalar, request);
    case MODE_SET_ACTION:
        return send_setting(request);
    case MODE_SET_UNDO:
        return undo_setting(request);
    default:
        return SNMP_ERR_NOERROR;
    }
}

// The agent's helper for scalars hands over one varbind at a time, a GETNEXT as a GET.
int serve_scalar(netsnmp_mib_handler *handler, netsnmp_handler_registration *, netsnmp_agent_request_info *request_info,
                 netsnmp_request_info *request) {
    const int result = answer(*static_cast<const SystemScalar *>(handler->myvoid), request_info->mode, *request);
    if (result != SNMP_ERR_NOERROR) {
        netsnmp_set_request_error(request_info, request, result);
    }
    return SNMP_ERR_NOERROR;
}

} // namespace

void register_system_group() {
    for (SystemScalar &scalar : scalars) {
        add_scalar(scalar.name, scalar.root, OID_LENGTH(scalar.root), serve_scalar, &scalar, scalar.access);
    }
}

} // namespace switch_agent
