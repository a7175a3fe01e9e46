// SPDX-License-Identifier: Apache-2.0
#include "set_pdu.h"

#include <algorithm>
#include <ostream>

#include "scripted_platform.h"

varbind integer(uint8_t magic, oid vsan, int64_t number) {
    return {magic, {vsan}, ASN_INTEGER, as_long(number)};
}

varbind unsigned32(uint8_t magic, oid vsan, int64_t number) {
    return {magic, {vsan}, ASN_UNSIGNED, as_long(number)};
}

varbind octets(uint8_t magic, oid vsan, const std::string &text) {
    return {magic, {vsan}, ASN_OCTET_STR, bytes(text.begin(), text.end())};
}

varbind name_of(oid vsan, const std::string &text) {
    return octets(3, vsan, text);
}
varbind admin_state_of(oid vsan, int64_t state) {
    return integer(5, vsan, state);
}
varbind load_balancing_of(oid vsan, int64_t type) {
    return integer(8, vsan, type);
}
varbind row_status_of(oid vsan, int64_t status) {
    return integer(11, vsan, status);
}
varbind interop_of(oid vsan, int64_t mode) {
    return integer(12, vsan, mode);
}
varbind inorder_of(oid vsan, int64_t setting) {
    return integer(13, vsan, setting);
}
varbind drop_latency_of(oid vsan, int64_t latency) {
    return unsigned32(14, vsan, latency);
}

std::ostream &operator<<(std::ostream &out, const set_outcome &outcome) {
    return out << "error " << outcome.error << " at varbind " << outcome.position;
}

set_pdu::set_pdu(std::vector<varbind> varbinds) {
    platform.next_pdu();
    std::vector<uint8_t> columns;
    for (const varbind &bound : varbinds) {
        if (std::find(columns.begin(), columns.end(), bound.magic) == columns.end()) {
            columns.push_back(bound.magic);
        }
    }
    for (const uint8_t column : columns) {
        for (size_t i = 0; i < varbinds.size(); ++i) {
            const varbind &bound = varbinds[i];
            if (bound.magic != column) {
                continue;
            }
            bound_object object = {};
            object.position = i + 1;
            object.magic = bound.magic;
            object.type = bound.type;
            object.value = std::make_unique<u_char[]>(bound.value.size());
            std::copy(bound.value.begin(), bound.value.end(), object.value.get());
            object.value_length = bound.value.size();
            object.name = registered_object(bound.magic).name();
            object.name.insert(object.name.end(), bound.instance.begin(), bound.instance.end());
            objects.push_back(std::move(object));
        }
    }
}

int set_pdu::call(bound_object &object, set_phase phase) {
    // The name lies in a buffer of just its length, so that reading past it is seen.
    return object.method(phase, object.value.get(), object.type, object.value_length, object.current,
                         object.name.data(), object.name.size());
}

// The agent reads first, and passes on the name that the read handler left behind. A
// varbind whose name changed is released under that name, gets its own back and fails.
int set_pdu::reserve1(bound_object &object) {
    registered_object registered(object.magic);
    const read_answer answer = registered.get(object.name);
    object.method = answer.write_method;
    object.current = const_cast<u_char *>(answer.value);
    if (object.method == nullptr) {
        return SNMP_ERR_NOTWRITABLE;
    }
    const oid_name before_reading = object.name;
    object.name = answer.name;
    const int error = call(object, RESERVE1_PHASE);
    if (object.name == before_reading) {
        return error;
    }
    later_errors.push_back(call(object, FREE_PHASE));
    object.name = before_reading;
    return error == 0 ? SNMP_ERR_INCONSISTENTNAME : error;
}

set_outcome set_pdu::phase(set_phase phase) {
    set_outcome outcome;
    for (bound_object &object : objects) {
        int error;
        if (phase == RESERVE1_PHASE) {
            error = reserve1(object);
        } else {
            error = object.method == nullptr ? SNMP_ERR_NOTWRITABLE : call(object, phase);
        }
        if (error != 0 && outcome.error == 0) {
            outcome = {error, object.position};
        }
    }
    return outcome;
}

void set_pdu::begin(set_phase next) {
    if (before) {
        before(next);
    }
}

set_outcome set_pdu::run() {
    const auto last_passes = [this](std::initializer_list<set_phase> phases) {
        for (const set_phase last : phases) {
            begin(last);
            later_errors.push_back(phase(last).error);
        }
    };
    for (const set_phase reserving : {RESERVE1_PHASE, RESERVE2_PHASE}) {
        begin(reserving);
        const set_outcome outcome = phase(reserving);
        if (outcome.error != 0) {
            last_passes({FREE_PHASE});
            return outcome;
        }
    }
    begin(ACTION_PHASE);
    const set_outcome outcome = phase(ACTION_PHASE);
    if (outcome.error != 0) {
        last_passes({UNDO_PHASE, FREE_PHASE});
        return outcome;
    }
    last_passes({COMMIT_PHASE});
    return outcome;
}
