/* The VSAN manager: VSANs, the interfaces' VSANs, the fabric timers and latencies. */
#include "mts.h"
#include "services.h"
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

/* Why there is no row for a VSAN number. */
std::uint32_t missing_vsan(std::uint32_t id) {
    return id == 0 || id > max_vsan ? STATUS_VSAN_OUT_OF_RANGE : STATUS_NO_SUCH_VSAN;
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

std::uint32_t get_latency(const Switch &target, const Request &request, Buffer &data) {
    const auto key = key_of_latency_record(request.payload);
    if (!key)
        return STATUS_BAD_LENGTH;
    switch (*key) {
    case key_switch_latency:
        append_latency_record(data, *key, target.model.settings().switch_latency);
        return STATUS_SUCCESS;
    case key_network_latency:
        append_latency_record(data, *key, target.model.settings().network_latency);
        return STATUS_SUCCESS;
    default:
        return STATUS_BAD_RECORD;
    }
}

/*
 * Answers a timer read. `distributed` asks for the distribution service's record of a
 * VSAN, where a timer may be missing; the running configuration has a value for every
 * VSAN, its own or the switch-wide one. The switch-wide timers are the same for both.
 * Key 0 of a VSAN is no timer; it asks whether the VSAN is there and has value 0.
 */
std::uint32_t answer_timer(const SwitchModel &model, const Request &request, bool distributed, Buffer &data) {
    auto record = decode_timer_record(request.payload);
    if (!record)
        return STATUS_BAD_LENGTH;
    if (record->per_vsan > 1)
        return STATUS_BAD_RECORD;
    const auto timer = timer_of_key(record->key);
    if (!timer && (record->key != 0 || !record->per_vsan))
        return STATUS_BAD_RECORD;
    if (!record->per_vsan) {
        if (record->vsan != 0)
            return STATUS_BAD_RECORD;
        record->value = model.settings().timers[*timer];
    } else {
        const SwitchModel::VsanRow *row = model.vsan(record->vsan);
        if (!row)
            return missing_vsan(record->vsan);
        if (!timer) {
            record->value = 0;
        } else if (distributed) {
            const auto value = row->second.distributed_timers[*timer];
            if (!value)
                return STATUS_NO_SUCH_ATTRIBUTE;
            record->value = *value;
        } else {
            record->value = row->second.timers[*timer].value_or(model.settings().timers[*timer]);
        }
    }
    append_timer_record(data, *record);
    return STATUS_SUCCESS;
}

std::uint32_t get_timer(const Switch &target, const Request &request, Buffer &data) {
    return answer_timer(target.model, request, false, data);
}

/* The distribution service refuses while it does not govern the timers: when it is not
 * enabled, and in show-run mode, where reads are of the running configuration. */
std::uint32_t get_distributed_timer(const Switch &target, const Request &request, Buffer &data) {
    const Settings &settings = target.model.settings();
    if (!settings.tdx_enabled || settings.tdx_show_run)
        return STATUS_TDX_REFUSED;
    return answer_timer(target.model, request, true, data);
}

constexpr Operation operations[] = {
    {op_interface, kind_get, true, interface_record_size, interface_record_size, get_interface},
    {op_interface, kind_get_next, true, interface_record_size, interface_record_size, get_next_interface},
    {op_interface, kind_set, true, interface_record_size, interface_record_size, nullptr},
    {op_vsan_count, kind_get, false, 4, 4, get_vsan_count},
    {op_last_change, kind_get, false, 8, 8, get_last_change},
    {op_timer, kind_get, true, timer_record_size, timer_record_size, get_timer},
    {op_timer, kind_distributed_get, true, timer_record_size, timer_record_size, get_distributed_timer},
    {op_timer, kind_set, true, timer_record_size, timer_record_size, nullptr},
    {op_interface_count, kind_get, false, 4, 4, get_interface_count},
    {op_latency, kind_get, true, latency_record_size, latency_record_size, get_latency},
    {op_latency, kind_set, true, latency_record_size, latency_record_size, nullptr},
    {op_inorder_delivery, kind_get, false, 4, 4, get_inorder_delivery},
    {op_inorder_delivery, kind_set, true, 4, 4, nullptr},
    {op_vsan, kind_get, true, vsan_block_size, vsan_block_size, get_vsan},
    {op_vsan, kind_get_next, true, vsan_block_size, vsan_block_size, get_next_vsan},
    {op_vsan, kind_set, true, vsan_block_size, vsan_block_size, nullptr},
    {op_vsan, kind_delete, true, vsan_block_size, vsan_block_size, nullptr},
    {op_status_trap, kind_set, true, 4, 4, nullptr},
};

} // namespace

std::span<const Operation> vsan_manager_operations() {
    return operations;
}

} // namespace vswitch
