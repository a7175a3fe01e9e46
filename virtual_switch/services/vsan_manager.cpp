// SPDX-License-Identifier: Apache-2.0
// The VSAN manager: VSANs, the interfaces' VSANs, the fabric timers and latencies.
#include <algorithm>

#include "changes/changes.h"
#include "changes/commit.h"
#include "contract/status_codes.h"
#include "model/rules.h"
#include "services/records.h"
#include "services/services.h"

namespace vswitch {

namespace {

uint32_t answer_interface(const SwitchModel &model, uint32_t if_index, Buffer &data) {
    const Port *port = model.port(if_index);
    if (!port) {
        return STATUS_NO_SUCH_INTERFACE;
    }
    append_interface_record(data, if_index, *port);
    return STATUS_SUCCESS;
}

uint32_t get_interface(const ServedSwitch &the_switch, const Request &request, Buffer &data) {
    const auto record = decode_interface_record(request.payload);
    if (!record) {
        return STATUS_BAD_LENGTH;
    }
    return answer_interface(the_switch.model, record->if_index, data);
}

uint32_t get_next_interface(const ServedSwitch &the_switch, const Request &request, Buffer &data) {
    const auto record = decode_interface_record(request.payload);
    if (!record) {
        return STATUS_BAD_LENGTH;
    }
    const auto next = the_switch.model.port_after(record->if_index);
    if (!next) {
        return STATUS_NO_MORE_INTERFACES;
    }
    return answer_interface(the_switch.model, *next, data);
}

uint32_t answer_vsan(const SwitchModel &model, uint32_t id, Buffer &data) {
    const Vsan *vsan = model.vsan(id);
    if (!vsan) {
        return missing_vsan(id);
    }
    append_vsan_block(data, id, *vsan, model.is_up(id) ? OPER_STATE_UP : OPER_STATE_DOWN);
    return STATUS_SUCCESS;
}

uint32_t get_vsan(const ServedSwitch &the_switch, const Request &request, Buffer &data) {
    const auto id = vsan_of_block(request.payload);
    if (!id) {
        return STATUS_BAD_LENGTH;
    }
    return answer_vsan(the_switch.model, *id, data);
}

uint32_t get_next_vsan(const ServedSwitch &the_switch, const Request &request, Buffer &data) {
    const auto id = vsan_of_block(request.payload);
    if (!id) {
        return STATUS_BAD_LENGTH;
    }
    const auto next = the_switch.model.vsan_after(*id);
    if (!next) {
        return STATUS_NO_MORE_VSANS;
    }
    return answer_vsan(the_switch.model, *next, data);
}

uint32_t get_vsan_count(const ServedSwitch &the_switch, const Request &, Buffer &data) {
    append_word(data, the_switch.model.vsan_count());
    return STATUS_SUCCESS;
}

uint32_t get_interface_count(const ServedSwitch &the_switch, const Request &, Buffer &data) {
    append_word(data, the_switch.model.port_count());
    return STATUS_SUCCESS;
}

uint32_t get_last_change(const ServedSwitch &the_switch, const Request &, Buffer &data) {
    const Timestamp change = the_switch.last_change();
    append_word(data, static_cast<uint32_t>(change.seconds));
    append_word(data, change.microseconds);
    return STATUS_SUCCESS;
}

uint32_t get_inorder_delivery(const ServedSwitch &the_switch, const Request &, Buffer &data) {
    append_word(data, the_switch.model.settings().inorder_delivery);
    return STATUS_SUCCESS;
}

// Decodes a latency record; returns why it cannot be one.
uint32_t decode_latency(const Request &request, LatencyRecord &record, const LatencyKind *&latency) {
    const auto decoded = decode_latency_record(request.payload);
    if (!decoded) {
        return STATUS_BAD_LENGTH;
    }
    record = *decoded;
    latency = std::ranges::find(latency_kinds, record.key, &LatencyKind::key);
    return latency == std::end(latency_kinds) ? STATUS_BAD_RECORD : STATUS_SUCCESS;
}

uint32_t get_latency(const ServedSwitch &the_switch, const Request &request, Buffer &data) {
    LatencyRecord record;
    const LatencyKind *latency = nullptr;
    if (const uint32_t status = decode_latency(request, record, latency); status != STATUS_SUCCESS) {
        return status;
    }
    append_latency_record(data, {record.key, the_switch.model.settings().*latency->setting});
    return STATUS_SUCCESS;
}

// Decodes a timer record; returns why it cannot be one. Key 0 of a VSAN is no timer.
uint32_t decode_timer(const Request &request, TimerRecord &record, std::optional<Timer> &timer) {
    const auto decoded = decode_timer_record(request.payload);
    if (!decoded) {
        return STATUS_BAD_LENGTH;
    }
    record = *decoded;
    timer = timer_of_key(record.key);
    const bool is_key_known = timer || (record.key == 0 && record.per_vsan == 1);
    if (record.per_vsan > 1 || !is_key_known || (record.per_vsan == 0 && record.vsan != 0)) {
        return STATUS_BAD_RECORD;
    }
    return STATUS_SUCCESS;
}

// Answers a timer read. `distributed` asks for what the distribution service knows of a
// VSAN, where a timer may be missing; the running configuration has a value for every
// VSAN, its own or the switch-wide one. Key 0 asks whether the VSAN is there and has
// value 0.
uint32_t answer_timer(const SwitchModel &model, const Request &request, bool distributed, Buffer &data) {
    TimerRecord record;
    std::optional<Timer> timer;
    if (const uint32_t status = decode_timer(request, record, timer); status != STATUS_SUCCESS) {
        return status;
    }
    if (!record.per_vsan) {
        record.value = distributed ? distributed_switch_timer(model, *timer) : model.settings().timers[*timer];
    } else {
        if (!model.vsan(record.vsan)) {
            return missing_vsan(record.vsan);
        }
        const auto value = !timer        ? std::optional(0u)
                           : distributed ? distributed_timer(model, record.vsan, *timer)
                                         : running_timer(model, record.vsan, *timer);
        if (!value) {
            return STATUS_NO_SUCH_ATTRIBUTE;
        }
        record.value = *value;
    }
    append_timer_record(data, record);
    return STATUS_SUCCESS;
}

uint32_t get_timer(const ServedSwitch &the_switch, const Request &request, Buffer &data) {
    return answer_timer(the_switch.model, request, false, data);
}

// The distribution service refuses while it does not govern the timers: when it is not
// enabled, and in show-run mode, where reads are of the running configuration. It also
// refuses while it has no fabric.
uint32_t get_distributed_timer(const ServedSwitch &the_switch, const Request &request, Buffer &data) {
    const Settings &settings = the_switch.model.settings();
    if (the_switch.model.distribution() == Distribution::off || settings.tdx_show_run || settings.tdx_refusing) {
        return STATUS_TDX_REFUSED;
    }
    return answer_timer(the_switch.model, request, true, data);
}

// Who is behind a request of the managers. Its user, if it has one, is one of the
// management protocol.
Requester requester_of(const Request &request) {
    return {request.user, false};
}

uint32_t set_vsan(ServedSwitch &the_switch, const Request &request, Buffer &) {
    const auto record = decode_vsan_block(request.payload);
    if (!record) {
        return STATUS_BAD_LENGTH;
    }
    // Whether this creates the VSAN follows from whether it is there: a record that
    // changes one says "active", too.
    if (record->row_status != ROW_STATUS_ACTIVE && record->row_status != ROW_STATUS_CREATE_AND_GO) {
        return STATUS_BAD_ROW_STATUS;
    }
    return change_vsan(the_switch, requester_of(request), record->id, record->vsan, true);
}

uint32_t remove_vsan(ServedSwitch &the_switch, const Request &request, Buffer &) {
    const auto id = vsan_of_block(request.payload);
    if (!id) {
        return STATUS_BAD_LENGTH;
    }
    return delete_vsan(the_switch, requester_of(request), *id);
}

uint32_t set_interface(ServedSwitch &the_switch, const Request &request, Buffer &) {
    const auto record = decode_interface_record(request.payload);
    if (!record) {
        return STATUS_BAD_LENGTH;
    }
    return change_port(the_switch, requester_of(request), record->if_index, record->vsan, record->deny_list);
}

uint32_t set_timer(ServedSwitch &the_switch, const Request &request, Buffer &) {
    TimerRecord record;
    std::optional<Timer> timer;
    if (const uint32_t status = decode_timer(request, record, timer); status != STATUS_SUCCESS) {
        return status;
    }
    if (!timer || record.flag > 1) {
        return STATUS_BAD_RECORD;
    }
    const bool force = record.flag == 1;
    if (record.per_vsan) {
        return set_vsan_timer(the_switch, requester_of(request), record.vsan, *timer, record.value, force);
    }
    return set_switch_timer(the_switch, requester_of(request), *timer, record.value, force);
}

uint32_t set_latency_record(ServedSwitch &the_switch, const Request &request, Buffer &) {
    LatencyRecord record;
    const LatencyKind *latency = nullptr;
    if (const uint32_t status = decode_latency(request, record, latency); status != STATUS_SUCCESS) {
        return status;
    }
    return set_latency(the_switch, requester_of(request), *latency, record.value);
}

uint32_t set_inorder_delivery_word(ServedSwitch &the_switch, const Request &request, Buffer &) {
    const auto value = load_word(request.payload, 0);
    if (!value) {
        return STATUS_BAD_LENGTH;
    }
    return set_inorder_delivery(the_switch, requester_of(request), *value);
}

// A TruthValue: whether VSAN events are published.
uint32_t set_status_trap(ServedSwitch &the_switch, const Request &request, Buffer &) {
    const auto value = load_word(request.payload, 0);
    if (!value) {
        return STATUS_BAD_LENGTH;
    }
    if (!truth_values.contains(*value)) {
        return STATUS_BAD_RECORD;
    }
    return set_status_events(the_switch, requester_of(request), *value == TRUTH_TRUE);
}

constexpr Operation operations[] = {
    {MTS_OP_INTERFACE, MTS_KIND_GET, true, INTERFACE_RECORD_SIZE, INTERFACE_RECORD_SIZE, get_interface},
    {MTS_OP_INTERFACE, MTS_KIND_GET_NEXT, true, INTERFACE_RECORD_SIZE, INTERFACE_RECORD_SIZE, get_next_interface},
    {MTS_OP_INTERFACE, MTS_KIND_SET, true, INTERFACE_RECORD_SIZE, INTERFACE_RECORD_SIZE, nullptr, set_interface},
    {MTS_OP_VSAN_COUNT, MTS_KIND_GET, false, WORD_RECORD_SIZE, WORD_RECORD_SIZE, get_vsan_count},
    {MTS_OP_LAST_CHANGE, MTS_KIND_GET, false, LAST_CHANGE_REPLY_SIZE, LAST_CHANGE_REPLY_SIZE, get_last_change},
    {MTS_OP_TIMER, MTS_KIND_GET, true, TIMER_RECORD_SIZE, TIMER_RECORD_SIZE, get_timer},
    {MTS_OP_TIMER, MTS_KIND_DISTRIBUTED_GET, true, TIMER_RECORD_SIZE, TIMER_RECORD_SIZE, get_distributed_timer},
    {MTS_OP_TIMER, MTS_KIND_SET, true, TIMER_RECORD_SIZE, TIMER_RECORD_SIZE, nullptr, set_timer},
    {MTS_OP_INTERFACE_COUNT, MTS_KIND_GET, false, WORD_RECORD_SIZE, WORD_RECORD_SIZE, get_interface_count},
    {MTS_OP_LATENCY, MTS_KIND_GET, true, LATENCY_RECORD_SIZE, LATENCY_RECORD_SIZE, get_latency},
    {MTS_OP_LATENCY, MTS_KIND_SET, true, LATENCY_RECORD_SIZE, LATENCY_RECORD_SIZE, nullptr, set_latency_record},
    {MTS_OP_INORDER_DELIVERY, MTS_KIND_GET, false, WORD_RECORD_SIZE, WORD_RECORD_SIZE, get_inorder_delivery},
    {MTS_OP_INORDER_DELIVERY, MTS_KIND_SET, true, WORD_RECORD_SIZE, WORD_RECORD_SIZE, nullptr,
     set_inorder_delivery_word},
    {MTS_OP_VSAN, MTS_KIND_GET, true, VSAN_BLOCK_SIZE, VSAN_BLOCK_SIZE, get_vsan},
    {MTS_OP_VSAN, MTS_KIND_GET_NEXT, true, VSAN_BLOCK_SIZE, VSAN_BLOCK_SIZE, get_next_vsan},
    {MTS_OP_VSAN, MTS_KIND_SET, true, VSAN_BLOCK_SIZE, VSAN_BLOCK_SIZE, nullptr, set_vsan},
    {MTS_OP_VSAN, MTS_KIND_DELETE, true, VSAN_BLOCK_SIZE, VSAN_BLOCK_SIZE, nullptr, remove_vsan},
    {MTS_OP_STATUS_EVENTS, MTS_KIND_SET, true, WORD_RECORD_SIZE, WORD_RECORD_SIZE, nullptr, set_status_trap},
};

} // namespace

std::span<const Operation> vsan_manager_operations() {
    return operations;
}

} // namespace vswitch
