/* The VSAN manager: VSANs, the interfaces' VSANs, the fabric timers and latencies. */
#include "commit.h"
#include "mts.h"
#include "syserr/status_codes.h"

namespace vswitch {

namespace {

constexpr std::uint32_t op_interface = 124;
constexpr std::uint32_t op_vsan_count = 125;
constexpr std::uint32_t op_last_change = 126;
constexpr std::uint32_t op_timer = 127;
constexpr std::uint32_t op_interface_count = 128;
constexpr std::uint32_t op_latency = 136;
constexpr std::uint32_t op_inorder_delivery = 140;
constexpr std::uint32_t op_vsan = 149;
constexpr std::uint32_t op_status_trap = 8018;

constexpr std::uint32_t key_switch_latency = 17;
constexpr std::uint32_t key_network_latency = 18;

std::uint32_t answer_interface(const SwitchModel::PortRow *row, std::uint32_t otherwise, Buffer &data) {
    if (!row)
        return otherwise;
    append_interface_record(data, row->first, row->second);
    return STATUS_SUCCESS;
}

std::uint32_t get_interface(const Switch &target, const Request &request, Buffer &data) {
    const auto if_index = if_index_of_record(request.payload);
    if (!if_index)
        return STATUS_BAD_LENGTH;
    return answer_interface(target.model.port(*if_index), STATUS_NO_SUCH_INTERFACE, data);
}

std::uint32_t get_next_interface(const Switch &target, const Request &request, Buffer &data) {
    const auto if_index = if_index_of_record(request.payload);
    if (!if_index)
        return STATUS_BAD_LENGTH;
    return answer_interface(target.model.port_after(*if_index), STATUS_NO_MORE_INTERFACES, data);
}

std::uint32_t answer_vsan(const SwitchModel &model, const SwitchModel::VsanRow *row, std::uint32_t otherwise,
                          Buffer &data) {
    if (!row)
        return otherwise;
    append_vsan_block(data, row->first, row->second, model.is_up(*row) ? oper_up : oper_down);
    return STATUS_SUCCESS;
}

std::uint32_t get_vsan(const Switch &target, const Request &request, Buffer &data) {
    const auto id = vsan_of_block(request.payload);
    if (!id)
        return STATUS_BAD_LENGTH;
    return answer_vsan(target.model, target.model.vsan(*id), missing_vsan(*id), data);
}

std::uint32_t get_next_vsan(const Switch &target, const Request &request, Buffer &data) {
    const auto id = vsan_of_block(request.payload);
    if (!id)
        return STATUS_BAD_LENGTH;
    return answer_vsan(target.model, target.model.vsan_after(*id), STATUS_NO_MORE_VSANS, data);
}

std::uint32_t get_vsan_count(const Switch &target, const Request &, Buffer &data) {
    append_word(data, target.model.vsan_count());
    return STATUS_SUCCESS;
}

std::uint32_t get_interface_count(const Switch &target, const Request &, Buffer &data) {
    append_word(data, target.model.port_count());
    return STATUS_SUCCESS;
}

std::uint32_t get_last_change(const Switch &target, const Request &, Buffer &data) {
    append_word(data, static_cast<std::uint32_t>(target.model.settings().change_seconds));
    append_word(data, target.model.settings().change_microseconds);
    return STATUS_SUCCESS;
}

std::uint32_t get_inorder_delivery(const Switch &target, const Request &, Buffer &data) {
    append_word(data, target.model.settings().inorder_delivery);
    return STATUS_SUCCESS;
}

std::optional<Latency> latency_of_key(std::uint32_t key) {
    switch (key) {
    case key_switch_latency:
        return Latency::switch_latency;
    case key_network_latency:
        return Latency::network_latency;
    default:
        return std::nullopt;
    }
}

std::uint32_t get_latency(const Switch &target, const Request &request, Buffer &data) {
    const auto record = decode_latency_record(request.payload);
    if (!record)
        return STATUS_BAD_LENGTH;
    const auto latency = latency_of_key(record->key);
    if (!latency)
        return STATUS_BAD_RECORD;
    const Settings &settings = target.model.settings();
    append_latency_record(data, record->key,
                          *latency == Latency::switch_latency ? settings.switch_latency : settings.network_latency);
    return STATUS_SUCCESS;
}

/* Decodes a timer record; returns why it cannot be one. Key 0 of a VSAN is no timer. */
std::uint32_t decode_timer(const Request &request, TimerRecord &record, std::optional<Timer> &timer) {
    const auto decoded = decode_timer_record(request.payload);
    if (!decoded)
        return STATUS_BAD_LENGTH;
    record = *decoded;
    timer = timer_of_key(record.key);
    const bool is_key_known = timer || (record.key == 0 && record.per_vsan == 1);
    if (record.per_vsan > 1 || !is_key_known || (record.per_vsan == 0 && record.vsan != 0))
        return STATUS_BAD_RECORD;
    return STATUS_SUCCESS;
}

/*
 * Answers a timer read. `distributed` asks for what the distribution service knows of a
 * VSAN, where a timer may be missing; the running configuration has a value for every
 * VSAN, its own or the switch-wide one. Key 0 asks whether the VSAN is there and has
 * value 0.
 */
std::uint32_t answer_timer(const SwitchModel &model, const Request &request, bool distributed, Buffer &data) {
    TimerRecord record;
    std::optional<Timer> timer;
    if (const std::uint32_t status = decode_timer(request, record, timer); status != STATUS_SUCCESS)
        return status;
    if (!record.per_vsan) {
        record.value = distributed ? distributed_switch_timer(model, *timer) : model.settings().timers[*timer];
    } else {
        const SwitchModel::VsanRow *row = model.vsan(record.vsan);
        if (!row)
            return missing_vsan(record.vsan);
        const auto value = !timer        ? std::optional(0u)
                           : distributed ? distributed_timer(model, *row, *timer)
                                         : running_timer(model, *row, *timer);
        if (!value)
            return STATUS_NO_SUCH_ATTRIBUTE;
        record.value = *value;
    }
    append_timer_record(data, record);
    return STATUS_SUCCESS;
}

std::uint32_t get_timer(const Switch &target, const Request &request, Buffer &data) {
    return answer_timer(target.model, request, false, data);
}

/* The distribution service refuses while it does not govern the timers: when it is not
 * enabled, and in show-run mode, where reads are of the running configuration. It also
 * refuses while it has no fabric. */
std::uint32_t get_distributed_timer(const Switch &target, const Request &request, Buffer &data) {
    const Settings &settings = target.model.settings();
    if (!settings.tdx_enabled || settings.tdx_show_run || settings.tdx_refusing)
        return STATUS_TDX_REFUSED;
    return answer_timer(target.model, request, true, data);
}

/* Who is behind a request of the managers. Its user, if it has one, is one of the
 * management protocol. */
Requester requester_of(const Request &request) {
    return {request.user, false};
}

std::uint32_t set_vsan(Switch &target, const Request &request, Buffer &) {
    const auto record = decode_vsan_block(request.payload);
    if (!record)
        return STATUS_BAD_LENGTH;
    /* Whether this creates the VSAN follows from whether it is there: a record that
     * changes one says "active", too. */
    if (record->row_status != row_active && record->row_status != row_create_and_go)
        return STATUS_BAD_ROW_STATUS;
    return change_vsan(target, requester_of(request), record->id, record->vsan, true);
}

std::uint32_t remove_vsan(Switch &target, const Request &request, Buffer &) {
    const auto id = vsan_of_block(request.payload);
    if (!id)
        return STATUS_BAD_LENGTH;
    return delete_vsan(target, requester_of(request), *id);
}

std::uint32_t set_interface(Switch &target, const Request &request, Buffer &) {
    const auto record = decode_interface_record(request.payload);
    if (!record)
        return STATUS_BAD_LENGTH;
    return change_port(target, requester_of(request), record->if_index, record->vsan, record->deny_list);
}

std::uint32_t set_timer(Switch &target, const Request &request, Buffer &) {
    TimerRecord record;
    std::optional<Timer> timer;
    if (const std::uint32_t status = decode_timer(request, record, timer); status != STATUS_SUCCESS)
        return status;
    if (!timer || record.flag > 1)
        return STATUS_BAD_RECORD;
    const bool force = record.flag == 1;
    if (record.per_vsan)
        return set_vsan_timer(target, requester_of(request), record.vsan, *timer, record.value, force);
    return set_switch_timer(target, requester_of(request), *timer, record.value, force);
}

std::uint32_t set_latency_record(Switch &target, const Request &request, Buffer &) {
    const auto record = decode_latency_record(request.payload);
    if (!record)
        return STATUS_BAD_LENGTH;
    const auto latency = latency_of_key(record->key);
    if (!latency)
        return STATUS_BAD_RECORD;
    return set_latency(target, requester_of(request), *latency, record->value);
}

std::uint32_t set_inorder_delivery_word(Switch &target, const Request &request, Buffer &) {
    const auto value = load_word(request.payload, 0);
    if (!value)
        return STATUS_BAD_LENGTH;
    return set_inorder_delivery(target, requester_of(request), *value);
}

/* A TruthValue: whether VSAN events are published. */
std::uint32_t set_status_trap(Switch &target, const Request &request, Buffer &) {
    const auto value = load_word(request.payload, 0);
    if (!value)
        return STATUS_BAD_LENGTH;
    if (*value != truth_true && *value != truth_false)
        return STATUS_BAD_RECORD;
    return set_status_events(target, requester_of(request), *value == truth_true);
}

constexpr Operation operations[] = {
    {op_interface, kind_get, true, interface_record_size, interface_record_size, get_interface},
    {op_interface, kind_get_next, true, interface_record_size, interface_record_size, get_next_interface},
    {op_interface, kind_set, true, interface_record_size, interface_record_size, nullptr, set_interface},
    {op_vsan_count, kind_get, false, 4, 4, get_vsan_count},
    {op_last_change, kind_get, false, 8, 8, get_last_change},
    {op_timer, kind_get, true, timer_record_size, timer_record_size, get_timer},
    {op_timer, kind_distributed_get, true, timer_record_size, timer_record_size, get_distributed_timer},
    {op_timer, kind_set, true, timer_record_size, timer_record_size, nullptr, set_timer},
    {op_interface_count, kind_get, false, 4, 4, get_interface_count},
    {op_latency, kind_get, true, latency_record_size, latency_record_size, get_latency},
    {op_latency, kind_set, true, latency_record_size, latency_record_size, nullptr, set_latency_record},
    {op_inorder_delivery, kind_get, false, 4, 4, get_inorder_delivery},
    {op_inorder_delivery, kind_set, true, 4, 4, nullptr, set_inorder_delivery_word},
    {op_vsan, kind_get, true, vsan_block_size, vsan_block_size, get_vsan},
    {op_vsan, kind_get_next, true, vsan_block_size, vsan_block_size, get_next_vsan},
    {op_vsan, kind_set, true, vsan_block_size, vsan_block_size, nullptr, set_vsan},
    {op_vsan, kind_delete, true, vsan_block_size, vsan_block_size, nullptr, remove_vsan},
    {op_status_trap, kind_set, true, 4, 4, nullptr, set_status_trap},
};

} // namespace

std::span<const Operation> vsan_manager_operations() {
    return operations;
}

} // namespace vswitch
