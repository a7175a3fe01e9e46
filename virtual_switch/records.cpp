#include "records.h"

#include <algorithm>
#include <cstring>

namespace vswitch {

void append_vsan_block(Buffer &buffer, std::uint32_t id, const Vsan &vsan, std::uint32_t oper_state) {
    const std::size_t start = buffer.size();
    buffer.resize(start + vsan_block_size);
    const std::size_t record = start + vsan_record_offset;
    const std::uint32_t words[] = {
        id,           vsan.media,          vsan.admin_state, vsan.mtu,  vsan.inorder_delivery,
        vsan.interop, vsan.load_balancing, row_active,       oper_state};
    std::size_t at = record;
    for (const std::uint32_t word : words) {
        store_word(buffer, at, word);
        at += 4;
    }
    const std::size_t name_length = std::min(vsan.name.size(), vsan_name_field - 1);
    if (name_length > 0)
        std::memcpy(&buffer[at], vsan.name.data(), name_length);
    at += vsan_name_field;
    store_word(buffer, at, vsan.drop_latency);
    if (vsan.rest.size() == vsan_rest_size)
        std::memcpy(&buffer[at + 4], vsan.rest.data(), vsan_rest_size);
}

std::optional<std::uint32_t> vsan_of_block(Bytes payload) {
    if (payload.size() != vsan_block_size)
        return std::nullopt;
    return load_word(payload, vsan_record_offset);
}

std::optional<VsanRecord> decode_vsan_block(Bytes payload) {
    if (payload.size() != vsan_block_size)
        return std::nullopt;
    VsanRecord record;
    Vsan &vsan = record.vsan;
    std::uint32_t oper_state = 0; /* follows from the ports, whatever a client says */
    std::uint32_t *const words[] = {
        &record.id,    &vsan.media,          &vsan.admin_state,  &vsan.mtu,  &vsan.inorder_delivery,
        &vsan.interop, &vsan.load_balancing, &record.row_status, &oper_state};
    std::size_t at = vsan_record_offset;
    for (std::uint32_t *word : words) {
        *word = *load_word(payload, at);
        at += 4;
    }
    const Bytes name = payload.subspan(at, vsan_name_field);
    vsan.name.assign(name.begin(), std::find(name.begin(), name.end(), std::uint8_t{0}));
    at += vsan_name_field;
    vsan.drop_latency = *load_word(payload, at);
    const Bytes rest = payload.subspan(at + 4, vsan_rest_size);
    vsan.rest.assign(rest.begin(), rest.end());
    return record;
}

void append_interface_record(Buffer &buffer, std::uint32_t if_index, const Port &port) {
    append_word(buffer, if_index);
    append_word(buffer, port.vsan);
    append_word(buffer, port.deny_list);
    std::uint8_t status[4];
    std::memcpy(status, &row_active, sizeof status);
    buffer.insert(buffer.end(), status, status + sizeof status);
}

std::optional<std::uint32_t> if_index_of_record(Bytes payload) {
    if (payload.size() != interface_record_size)
        return std::nullopt;
    return load_word(payload, 0);
}

std::optional<InterfaceRecord> decode_interface_record(Bytes payload) {
    if (payload.size() != interface_record_size)
        return std::nullopt;
    return InterfaceRecord{*load_word(payload, 0), *load_word(payload, 4), *load_word(payload, 8)};
}

void append_timer_record(Buffer &buffer, const TimerRecord &record) {
    append_word(buffer, record.key);
    append_word(buffer, record.value);
    buffer.push_back(record.per_vsan);
    buffer.push_back(record.flag);
    append_word(buffer, record.vsan);
    buffer.push_back(record.tail);
}

std::optional<TimerRecord> decode_timer_record(Bytes payload) {
    if (payload.size() != timer_record_size)
        return std::nullopt;
    TimerRecord record;
    record.key = *load_word(payload, 0);
    record.value = *load_word(payload, 4);
    record.per_vsan = payload[8];
    record.flag = payload[9];
    record.vsan = *load_word(payload, 10);
    record.tail = payload[14];
    return record;
}

void append_latency_record(Buffer &buffer, std::uint32_t key, std::uint32_t value) {
    append_word(buffer, key);
    append_word(buffer, value);
    append_word(buffer, 0);
}

std::optional<LatencyRecord> decode_latency_record(Bytes payload) {
    if (payload.size() != latency_record_size)
        return std::nullopt;
    return LatencyRecord{*load_word(payload, 0), *load_word(payload, 4)};
}

void append_membership_record(Buffer &buffer, Membership member) {
    append_word(buffer, member.vsan);
    append_word(buffer, member.if_index);
    append_word(buffer, 1);
}

std::optional<Membership> decode_membership_record(Bytes payload) {
    if (payload.size() != membership_record_size)
        return std::nullopt;
    return Membership{*load_word(payload, 0), *load_word(payload, 4)};
}

} // namespace vswitch
