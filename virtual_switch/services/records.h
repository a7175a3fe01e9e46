// SPDX-License-Identifier: Apache-2.0
// The managers' records, see contract/records.h, and what they hold: bounded, big-endian,
// independent of the machine.
#ifndef VSWITCH_RECORDS_H
#define VSWITCH_RECORDS_H

#include <cstdint>
#include <optional>

#include "contract/records.h"
#include "model/bytes.h"
#include "model/switch_model.h"

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

// Every membership here is configured, hence static.
void append_membership_record(Buffer &buffer, Member member);
std::optional<Member> decode_membership_record(Bytes payload);

} // namespace vswitch

#endif
