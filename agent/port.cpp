// SPDX-License-Identifier: Apache-2.0
#include "port.h"

#include <cstring>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include "channel.h"
#include "contract/big_endian.h"
#include "contract/records.h"
#include "contract/services.h"
#include "contract/status_codes.h"
#include "netsnmpagent_oryx.h"

namespace switch_agent {
namespace {

constexpr uint64_t MICROSECONDS = 1000000;

const oid INTERFACES[] = {1, 3, 6, 1, 2, 1, 2};

static_assert(PORT_RECORD_COUNTERS + 16 * PORT_COUNTER_COUNT == PORT_RECORD_NOW);
static_assert(PORT_RECORD_ALIAS + PORT_ALIAS_MAX == PORT_RECORD_SINCE);

// The last answer, which serves all columns of a row as long as the PDU is the same.
struct {
    uint32_t pdu; // 0 for none
    uint32_t kind;
    uint32_t key;
    Lookup outcome;
    Port port;
} last;

uint64_t read_be64(const uint8_t *bytes) {
    return uint64_t{read_be32(bytes)} << 32 | read_be32(bytes + 4);
}

Moment read_moment(const uint8_t *bytes) {
    return {read_be32(bytes), read_be32(bytes + 4)};
}

bool is_status(uint32_t word) {
    return word == PORT_UP || word == PORT_DOWN;
}

Lookup ask(uint32_t kind, uint32_t key, Port &port) {
    uint8_t payload[4];
    write_be32(payload, key);
    uint8_t record[PORT_RECORD_SIZE];
    const uint32_t status =
        exchange({MTS_SERVICE_PORT, MTS_OP_PORT, kind, payload, sizeof payload}, record, sizeof record);
    if (status == STATUS_NO_SUCH_INTERFACE || status == STATUS_NO_MORE_INTERFACES) {
        return Lookup::absent;
    }
    if (status != 0 || !port_decode(record, port)) {
        return Lookup::failed;
    }
    // One that was not asked for; a walk that goes on from it might never end.
    const bool is_expected = kind == MTS_KIND_GET ? port.if_index == key : port.if_index > key;
    return is_expected ? Lookup::found : Lookup::failed;
}

// The same, without the ports that are not for the requester to see.
Lookup ask_for_visible(uint32_t kind, uint32_t key, Port &port) {
    Lookup outcome = ask(kind, key, port);
    while (outcome == Lookup::found && is_barred(port.if_index, Purpose::read)) {
        if (kind == MTS_KIND_GET) {
            return Lookup::absent;
        }
        outcome = ask(kind, port.if_index, port);
    }
    return outcome;
}

// Whether the last answer is one to this question, too.
bool is_answered(uint32_t pdu, uint32_t kind, uint32_t key) {
    if (last.pdu != pdu) {
        return false;
    }
    if (last.kind == kind && last.key == key) {
        return true;
    }
    return kind == MTS_KIND_GET && last.outcome == Lookup::found && last.port.if_index == key;
}

Lookup look_up(uint32_t kind, uint32_t key, const Port *&port) {
    const uint32_t pdu = get_pdu_reqid();
    if (!is_answered(pdu, kind, key)) {
        last.pdu = pdu;
        last.kind = kind;
        last.key = key;
        last.outcome = ask_for_visible(kind, key, last.port);
    }
    port = &last.port;
    return last.outcome;
}

} // namespace

bool port_decode(const uint8_t (&record)[PORT_RECORD_SIZE], Port &port) {
    port.if_index = read_be32(record + PORT_RECORD_IF_INDEX);
    port.number = read_be32(record + PORT_RECORD_NUMBER);
    port.admin = read_be32(record + PORT_RECORD_ADMIN);
    port.oper = read_be32(record + PORT_RECORD_OPER);
    port.speed = read_be32(record + PORT_RECORD_SPEED);
    port.traps = read_be32(record + PORT_RECORD_TRAPS);
    port.last_change = read_moment(record + PORT_RECORD_LAST_CHANGE);
    port.discontinuity = read_moment(record + PORT_RECORD_DISCONTINUITY);
    memcpy(port.wwn, record + PORT_RECORD_WWN, sizeof port.wwn);
    port.alias_length = read_be32(record + PORT_RECORD_ALIAS_LENGTH);
    memcpy(port.alias, record + PORT_RECORD_ALIAS, sizeof port.alias);
    port.since = read_moment(record + PORT_RECORD_SINCE);
    port.now = read_moment(record + PORT_RECORD_NOW);
    for (size_t i = 0; i < PORT_COUNTER_COUNT; ++i) {
        const uint8_t *counter = record + PORT_RECORD_COUNTERS + 16 * i;
        port.counters[i] = {read_be64(counter), read_be64(counter + 8)};
    }
    return is_status(port.admin) && is_status(port.oper) && port.alias_length <= PORT_ALIAS_MAX &&
           (port.traps == PORT_TRAPS_ENABLED || port.traps == PORT_TRAPS_DISABLED);
}

uint64_t port_counter_value(const Port &port, port_counter counter) {
    const uint64_t base = port.counters[counter].base;
    const uint64_t rate = port.counters[counter].rate;
    if (rate == 0 || (port.since.seconds == 0 && port.since.microseconds == 0)) {
        return base;
    }
    const uint64_t passed = microseconds_between(port.since, port.now);
    return base + rate * (passed / MICROSECONDS) + rate * (passed % MICROSECONDS) / MICROSECONDS;
}

Lookup port_at(uint32_t if_index, const Port *&port) {
    return look_up(MTS_KIND_GET, if_index, port);
}

Lookup port_after(uint32_t if_index, const Port *&port) {
    return look_up(MTS_KIND_GET_NEXT, if_index, port);
}

void forget_port() {
    last.pdu = 0;
}

bool is_barred(uint32_t if_index, Purpose purpose) {
    allowed_vsan_list list = {};
    list.size = sizeof list.bitmap;
    const int type = purpose == Purpose::change ? PDU_TYPE_SET : PDU_TYPE_GET;
    return snmp_get_allowed_vsans_subtree(&list, INTERFACES, OID_LENGTH(INTERFACES), type) != 0 &&
           intf_chk_vsan_role_allowed(if_index, static_cast<int>(purpose), list) != 0;
}

} // namespace switch_agent
