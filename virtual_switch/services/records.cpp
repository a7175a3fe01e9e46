// SPDX-License-Identifier: Apache-2.0
#include "services/records.h"

#include <algorithm>
#include <cstring>

#include "contract/attributes.h"

namespace vswitch {

namespace {

// The words of a VSAN's record that are members of a VSAN.
struct VsanField {
    size_t offset;
    uint32_t Vsan::*member;
};
constexpr VsanField vsan_fields[] = {
    {VSAN_RECORD_MEDIA, &Vsan::media},
    {VSAN_RECORD_ADMIN_STATE, &Vsan::admin_state},
    {VSAN_RECORD_MTU, &Vsan::mtu},
    {VSAN_RECORD_INORDER_DELIVERY, &Vsan::inorder_delivery},
    {VSAN_RECORD_INTEROP, &Vsan::interop},
    {VSAN_RECORD_LOAD_BALANCING, &Vsan::load_balancing},
    {VSAN_RECORD_DROP_LATENCY, &Vsan::drop_latency},
};

// A record of so many bytes of zeros behind the others.
size_t append_zeros(Buffer &buffer, size_t size) {
    const size_t start = buffer.size();
    buffer.resize(start + size);
    return start;
}

void store_double_word(Buffer &buffer, size_t offset, uint64_t value) {
    store_word(buffer, offset, static_cast<uint32_t>(value >> 32));
    store_word(buffer, offset + 4, static_cast<uint32_t>(value));
}

void store_moment(Buffer &buffer, size_t offset, Timestamp moment) {
    store_word(buffer, offset, static_cast<uint32_t>(moment.seconds));
    store_word(buffer, offset + 4, moment.microseconds);
}

// A text's length, and behind that as much of the text as there is room for.
void store_text(Buffer &buffer, size_t offset, const std::string &text, size_t longest) {
    const size_t length = std::min(text.size(), longest);
    store_word(buffer, offset, static_cast<uint32_t>(length));
    if (length > 0) {
        std::memcpy(&buffer[offset + 4], text.data(), length);
    }
}

std::string text_at(Bytes payload, size_t offset) {
    const Bytes text = payload.subspan(offset);
    return {text.begin(), text.end()};
}

} // namespace

void append_vsan_block(Buffer &buffer, uint32_t id, const Vsan &vsan, uint32_t oper_state) {
    const size_t record = append_zeros(buffer, VSAN_BLOCK_SIZE) + VSAN_RECORD_AT;
    store_word(buffer, record + VSAN_RECORD_NUMBER, id);
    for (const VsanField &field : vsan_fields) {
        store_word(buffer, record + field.offset, vsan.*field.member);
    }
    store_word(buffer, record + VSAN_RECORD_ROW_STATUS, ROW_STATUS_ACTIVE);
    store_word(buffer, record + VSAN_RECORD_OPER_STATE, oper_state);
    const size_t name_length = std::min<size_t>(vsan.name.size(), VSAN_NAME_FIELD - 1);
    if (name_length > 0) {
        std::memcpy(&buffer[record + VSAN_RECORD_NAME], vsan.name.data(), name_length);
    }
    if (vsan.rest.size() == VSAN_REST_SIZE) {
        std::memcpy(&buffer[record + VSAN_RECORD_REST], vsan.rest.data(), VSAN_REST_SIZE);
    }
}

std::optional<uint32_t> vsan_of_block(Bytes payload) {
    if (payload.size() != VSAN_BLOCK_SIZE) {
        return std::nullopt;
    }
    return load_word(payload, VSAN_RECORD_AT + VSAN_RECORD_NUMBER);
}

// The operational state in it follows from the ports, whatever a client says.
std::optional<VsanRecord> decode_vsan_block(Bytes payload) {
    if (payload.size() != VSAN_BLOCK_SIZE) {
        return std::nullopt;
    }
    const Bytes fields = payload.subspan(VSAN_RECORD_AT, VSAN_RECORD_SIZE);
    VsanRecord record;
    record.id = *load_word(fields, VSAN_RECORD_NUMBER);
    record.row_status = *load_word(fields, VSAN_RECORD_ROW_STATUS);
    for (const VsanField &field : vsan_fields) {
        record.vsan.*field.member = *load_word(fields, field.offset);
    }
    const Bytes name = fields.subspan(VSAN_RECORD_NAME, VSAN_NAME_FIELD);
    record.vsan.name.assign(name.begin(), std::find(name.begin(), name.end(), uint8_t{0}));
    const Bytes rest = fields.subspan(VSAN_RECORD_REST, VSAN_REST_SIZE);
    record.vsan.rest.assign(rest.begin(), rest.end());
    return record;
}

void append_interface_record(Buffer &buffer, uint32_t if_index, const Port &port) {
    const size_t record = append_zeros(buffer, INTERFACE_RECORD_SIZE);
    store_word(buffer, record + INTERFACE_RECORD_IF_INDEX, if_index);
    store_word(buffer, record + INTERFACE_RECORD_VSAN, port.vsan);
    store_word(buffer, record + INTERFACE_RECORD_DENY_LIST, port.deny_list);
    constexpr uint32_t row_status = ROW_STATUS_ACTIVE;
    std::memcpy(&buffer[record + INTERFACE_RECORD_ROW_STATUS], &row_status, sizeof row_status);
}

std::optional<InterfaceRecord> decode_interface_record(Bytes payload) {
    if (payload.size() != INTERFACE_RECORD_SIZE) {
        return std::nullopt;
    }
    return InterfaceRecord{*load_word(payload, INTERFACE_RECORD_IF_INDEX), *load_word(payload, INTERFACE_RECORD_VSAN),
                           *load_word(payload, INTERFACE_RECORD_DENY_LIST)};
}

void append_timer_record(Buffer &buffer, const TimerRecord &record) {
    const size_t start = append_zeros(buffer, TIMER_RECORD_SIZE);
    store_word(buffer, start + TIMER_RECORD_KEY, record.key);
    store_word(buffer, start + TIMER_RECORD_VALUE, record.value);
    buffer[start + TIMER_RECORD_PER_VSAN] = record.per_vsan;
    buffer[start + TIMER_RECORD_FORCE] = record.flag;
    store_word(buffer, start + TIMER_RECORD_VSAN, record.vsan);
    buffer[start + TIMER_RECORD_TAIL] = record.tail;
}

std::optional<TimerRecord> decode_timer_record(Bytes payload) {
    if (payload.size() != TIMER_RECORD_SIZE) {
        return std::nullopt;
    }
    return TimerRecord{*load_word(payload, TIMER_RECORD_KEY),  *load_word(payload, TIMER_RECORD_VALUE),
                       payload[TIMER_RECORD_PER_VSAN],         payload[TIMER_RECORD_FORCE],
                       *load_word(payload, TIMER_RECORD_VSAN), payload[TIMER_RECORD_TAIL]};
}

void append_latency_record(Buffer &buffer, LatencyRecord record) {
    const size_t start = append_zeros(buffer, LATENCY_RECORD_SIZE);
    store_word(buffer, start + LATENCY_RECORD_KEY, record.key);
    store_word(buffer, start + LATENCY_RECORD_VALUE, record.value);
}

std::optional<LatencyRecord> decode_latency_record(Bytes payload) {
    if (payload.size() != LATENCY_RECORD_SIZE) {
        return std::nullopt;
    }
    return LatencyRecord{*load_word(payload, LATENCY_RECORD_KEY), *load_word(payload, LATENCY_RECORD_VALUE)};
}

static_assert(PORT_RECORD_ALIAS == PORT_RECORD_ALIAS_LENGTH + 4);
static_assert(PORT_RECORD_SINCE == PORT_RECORD_ALIAS + PORT_ALIAS_MAX);
static_assert(PORT_RECORD_NOW == PORT_RECORD_COUNTERS + 16 * PORT_COUNTER_COUNT);
static_assert(PORT_RECORD_SIZE == PORT_RECORD_NOW + MOMENT_SIZE);
static_assert(SYSTEM_TEXT_MAX + 4 <= SYSTEM_TEXT_FIELD);
static_assert(SYSTEM_RECORD_WWN == SYSTEM_TEXT_COUNT * SYSTEM_TEXT_FIELD);
static_assert(SYSTEM_RECORD_SIZE == SYSTEM_RECORD_WWN + 8);

void append_port_record(Buffer &buffer, const PortStatus &status, const Port &port) {
    const size_t start = append_zeros(buffer, PORT_RECORD_SIZE);
    store_word(buffer, start + PORT_RECORD_IF_INDEX, status.if_index);
    store_word(buffer, start + PORT_RECORD_NUMBER, status.number);
    store_word(buffer, start + PORT_RECORD_ADMIN, port.enabled ? PORT_UP : PORT_DOWN);
    store_word(buffer, start + PORT_RECORD_OPER, port.is_up() ? PORT_UP : PORT_DOWN);
    store_word(buffer, start + PORT_RECORD_SPEED, port.speed);
    store_word(buffer, start + PORT_RECORD_TRAPS, port.traps ? PORT_TRAPS_ENABLED : PORT_TRAPS_DISABLED);
    store_moment(buffer, start + PORT_RECORD_LAST_CHANGE, status.last_change);
    store_moment(buffer, start + PORT_RECORD_DISCONTINUITY, status.discontinuity);
    store_double_word(buffer, start + PORT_RECORD_WWN, status.wwn);
    store_text(buffer, start + PORT_RECORD_ALIAS_LENGTH, port.alias, PORT_ALIAS_MAX);
    store_moment(buffer, start + PORT_RECORD_SINCE, status.count.since);
    for (size_t counter = 0; counter < PORT_COUNTER_COUNT; ++counter) {
        const size_t at = start + PORT_RECORD_COUNTERS + 16 * counter;
        store_double_word(buffer, at, status.count.base[counter]);
        store_double_word(buffer, at + 8, port.traffic[counter]);
    }
    store_moment(buffer, start + PORT_RECORD_NOW, status.now);
}

std::optional<PortSetting> decode_port_setting(Bytes payload) {
    const auto if_index = load_word(payload, PORT_SETTING_IF_INDEX);
    const auto key = load_word(payload, PORT_SETTING_KEY);
    if (!if_index || !key) {
        return std::nullopt;
    }
    PortSetting setting{*if_index, *key, {}, {}};
    if (*key == PORT_SETTING_ALIAS) {
        setting.text = text_at(payload, PORT_SETTING_VALUE);
    } else if (payload.size() == PORT_SETTING_VALUE + 4) {
        setting.word = load_word(payload, PORT_SETTING_VALUE);
    }
    return setting;
}

void append_system_record(Buffer &buffer, const SystemTexts &texts, uint64_t wwn) {
    const size_t start = append_zeros(buffer, SYSTEM_RECORD_SIZE);
    for (size_t text = 0; text < texts.size(); ++text) {
        store_text(buffer, start + SYSTEM_TEXT_FIELD * text, texts[text], SYSTEM_TEXT_MAX);
    }
    store_double_word(buffer, start + SYSTEM_RECORD_WWN, wwn);
}

std::optional<SystemSetting> decode_system_setting(Bytes payload) {
    const auto text = load_word(payload, SYSTEM_SETTING_TEXT);
    if (!text) {
        return std::nullopt;
    }
    return SystemSetting{*text, text_at(payload, SYSTEM_SETTING_VALUE)};
}

void append_membership_record(Buffer &buffer, Member member) {
    const size_t start = append_zeros(buffer, MEMBERSHIP_RECORD_SIZE);
    store_word(buffer, start + MEMBERSHIP_RECORD_VSAN, member.vsan);
    store_word(buffer, start + MEMBERSHIP_RECORD_IF_INDEX, member.if_index);
    store_word(buffer, start + MEMBERSHIP_RECORD_STATIC, 1);
}

std::optional<Member> decode_membership_record(Bytes payload) {
    if (payload.size() != MEMBERSHIP_RECORD_SIZE) {
        return std::nullopt;
    }
    return Member{*load_word(payload, MEMBERSHIP_RECORD_VSAN), *load_word(payload, MEMBERSHIP_RECORD_IF_INDEX)};
}

} // namespace vswitch
