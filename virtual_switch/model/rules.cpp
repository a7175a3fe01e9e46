// SPDX-License-Identifier: Apache-2.0
#include "model/rules.h"

#include <algorithm>

#include "contract/plain_text.h"
#include "contract/status_codes.h"
#include "model/words.h"

namespace vswitch {

namespace {

bool is_text(std::string_view text, size_t longest) {
    return text.size() <= longest && is_plain_text(reinterpret_cast<const uint8_t *>(text.data()), text.size()) != 0;
}

} // namespace

bool is_vsan_name(std::string_view name) {
    return name.size() <= VSAN_NAME_MAX && std::ranges::all_of(name, [](char c) { return c > ' ' && c < 0x7f; });
}

bool is_port_alias(std::string_view text) {
    return is_text(text, PORT_ALIAS_MAX);
}

bool is_system_text(std::string_view text) {
    return is_text(text, SYSTEM_TEXT_MAX);
}

bool is_port_speed(uint32_t speed) {
#define SAME_SPEED(one) || speed == (one)
    return false PORT_SPEEDS(SAME_SPEED);
#undef SAME_SPEED
}

bool is_role_name(std::string_view name) {
    return !name.empty() && std::ranges::none_of(name, [](char c) { return (c >= 0 && c < ' ') || c == 0x7f; });
}

uint32_t check_vsan_number(uint32_t id) {
    return vsan_numbers.contains(id) ? STATUS_SUCCESS : STATUS_VSAN_OUT_OF_RANGE;
}

uint32_t check_vsan(const Vsan &vsan) {
    if (vsan.media != MEDIA_FIBRE_CHANNEL) {
        return STATUS_BAD_MEDIA;
    }
    if (!*word_of(admin_state_words, vsan.admin_state)) {
        return STATUS_BAD_STATE;
    }
    if (!mtus.contains(vsan.mtu)) {
        return STATUS_BAD_MTU;
    }
    if (!*word_of(load_balancing_words, vsan.load_balancing)) {
        return STATUS_BAD_LOAD_BALANCING;
    }
    if (!is_interop(vsan.interop)) {
        return STATUS_BAD_INTEROP;
    }
    if (vsan.inorder_delivery != 0 && !truth_values.contains(vsan.inorder_delivery)) {
        return STATUS_BAD_INORDER_DELIVERY;
    }
    if (vsan.drop_latency != 0 && !drop_latencies.contains(vsan.drop_latency)) {
        return STATUS_BAD_DROP_LATENCY;
    }
    return is_vsan_name(vsan.name) ? STATUS_SUCCESS : STATUS_BAD_NAME;
}

uint32_t check_port(const Port &port) {
    return is_port_alias(port.alias) && is_port_speed(port.speed) ? STATUS_SUCCESS : STATUS_BAD_RECORD;
}

uint32_t check_system_texts(const SystemTexts &texts) {
    return std::ranges::all_of(texts, is_system_text) ? STATUS_SUCCESS : STATUS_BAD_RECORD;
}

uint32_t check_timer(Timer timer, uint32_t milliseconds) {
    const TimerKind &kind = kind_of(timer);
    return Range{kind.least, kind.greatest}.contains(milliseconds) ? STATUS_SUCCESS : STATUS_BAD_TIMER;
}

uint32_t check_latency(uint32_t milliseconds) {
    return latencies.contains(milliseconds) ? STATUS_SUCCESS : STATUS_BAD_LATENCY;
}

uint32_t check_inorder_delivery(uint32_t value) {
    return truth_values.contains(value) ? STATUS_SUCCESS : STATUS_BAD_INORDER_DELIVERY;
}

} // namespace vswitch
