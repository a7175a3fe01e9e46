// SPDX-License-Identifier: Apache-2.0
// The managers' records, see contract/records.h and contract/interfaces.h, and what they hold: bounded, big-endian,
// independent of the machine.
#ifndef VSWITCH_RECORDS_H
#define VSWITCH_RECORDS_H

#include <cstdint>
#include <optional>
#include <string>

#include "contract/interfaces.h"
#include "contract/records.h"
#include "model/bytes.h"
#include "model/switch_model.h"
#include "model/traffic.h"

namespace vswitch {

// Appends the VSAN block of VSAN `id`. A name longer than its field is cut so that
// its NUL always fits.
void append_vsan_block(Buffer &buffer, uint32_t id, const Vsan &vsan, uint32_t oper_state);

// The VSAN number in a VSAN block, or nothing when this is no block.
std::optional<uint32_t> vsan_of_block(Bytes payload);

// A VSAN block as a client sends it to change the VSAN.
struct VsanRecord {
    uint32_t id = 0;
    uint32_t row_status = 0;
    Vsan vsan; // without timers
};

// Decodes a VSAN block; nothing when this is no block. A name that fills its field without
// a NUL is decoded whole, hence longer than a name may be.
std::optional<VsanRecord> decode_vsan_block(Bytes payload);

void append_interface_record(Buffer &buffer, uint32_t if_index, const Port &port);

struct InterfaceRecord {
    uint32_t if_index = 0;
    uint32_t vsan = 0;
    uint32_t deny_list = 0;
};

// The record without its row status, which says nothing about a port.
std::optional<InterfaceRecord> decode_interface_record(Bytes payload);

struct TimerRecord {
    uint32_t key = 0;
    uint32_t value = 0;
    uint8_t per_vsan = 0;
    uint8_t flag = 0;
    uint32_t vsan = 0;
    uint8_t tail = 0;
};

void append_timer_record(Buffer &buffer, const TimerRecord &record);
std::optional<TimerRecord> decode_timer_record(Bytes payload);

struct LatencyRecord {
    uint32_t key = 0;
    uint32_t value = 0;
};

void append_latency_record(Buffer &buffer, LatencyRecord record);
std::optional<LatencyRecord> decode_latency_record(Bytes payload);

// What a port's record has beside its settings.
struct PortStatus {
    uint32_t if_index = 0;
    uint32_t number = 0;
    uint64_t wwn = 0;
    Timestamp last_change;
    Timestamp discontinuity;
    PortCount count;
    Timestamp now;
};

// An alias longer than its field is cut.
void append_port_record(Buffer &buffer, const PortStatus &status, const Port &port);

// One setting of a port as a client sends it. A key that has no value of the length given, or is
// none, has no word and no text.
struct PortSetting {
    uint32_t if_index = 0;
    uint32_t key = 0;
    std::optional<uint32_t> word;
    std::optional<std::string> text;
};

// Nothing when the payload is too short for the key.
std::optional<PortSetting> decode_port_setting(Bytes payload);

// A text longer than its field is cut.
void append_system_record(Buffer &buffer, const SystemTexts &texts, uint64_t wwn);

struct SystemSetting {
    uint32_t text = 0; // an enum system_text, if it is any
    std::string value;
};

// Nothing when the payload is too short for the text's number.
std::optional<SystemSetting> decode_system_setting(Bytes payload);

// Every membership here is configured, hence static.
void append_membership_record(Buffer &buffer, Member member);
std::optional<Member> decode_membership_record(Bytes payload);

} // namespace vswitch

#endif
