/*
 * The managers' wire records: bounded, big-endian, independent of the machine.
 *
 * VSAN block, 2632 bytes, both ways:
 *
 *   byte    0  header region, 520 bytes of zero in an answer
 *         520  VSAN number
 *         524  media type
 *         528  administrative state
 *         532  MTU
 *         536  in-order delivery
 *         540  interoperability mode
 *         544  load-balancing type
 *         548  row status
 *         552  operational state
 *         556  name, 36 bytes, NUL-terminated
 *         592  network drop latency
 *         596  2032 bytes that the switch keeps and hands back
 *        2628  zero
 *
 * Interface record, 16 bytes:
 *
 *   byte    0  ifIndex
 *           4  VSAN number
 *           8  deny list
 *          12  row status, in the byte order of the machine: neither side of this
 *              record converts that word
 *
 * Timer record, 15 bytes, packed:
 *
 *   byte    0  key, see Timer
 *           4  value
 *           8  1 when the record is about one VSAN, 0 when it is switch-wide
 *           9  force flag of a change
 *          10  VSAN number
 *          14  handed back unchanged
 *
 * Latency record, 12 bytes: key, value, zero.
 * Membership record, 12 bytes: VSAN number, ifIndex, 1 when static.
 */
#ifndef VSWITCH_RECORDS_H
#define VSWITCH_RECORDS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "switch_data.h"

namespace vswitch {

using Bytes = std::span<const std::uint8_t>;
using Buffer = std::vector<std::uint8_t>;

constexpr std::size_t vsan_block_size = 2632;
constexpr std::size_t vsan_record_offset = 520;
constexpr std::size_t vsan_name_field = 36;
constexpr std::size_t interface_record_size = 16;
constexpr std::size_t timer_record_size = 15;
constexpr std::size_t latency_record_size = 12;
constexpr std::size_t membership_record_size = 12;

constexpr std::uint32_t row_active = 1;
constexpr std::uint32_t row_create_and_go = 4;
constexpr std::uint32_t oper_up = 1;
constexpr std::uint32_t oper_down = 2;

/* The big-endian word at `offset`, or nothing when the bytes end before it does. */
inline std::optional<std::uint32_t> load_word(Bytes bytes, std::size_t offset) {
    if (offset > bytes.size() || bytes.size() - offset < 4)
        return std::nullopt;
    return static_cast<std::uint32_t>(bytes[offset]) << 24 | static_cast<std::uint32_t>(bytes[offset + 1]) << 16 |
           static_cast<std::uint32_t>(bytes[offset + 2]) << 8 | bytes[offset + 3];
}

/* Overwrites the word at `offset`. REQUIRES: the buffer reaches offset + 4. */
inline void store_word(Buffer &buffer, std::size_t offset, std::uint32_t word) {
    buffer[offset] = static_cast<std::uint8_t>(word >> 24);
    buffer[offset + 1] = static_cast<std::uint8_t>(word >> 16);
    buffer[offset + 2] = static_cast<std::uint8_t>(word >> 8);
    buffer[offset + 3] = static_cast<std::uint8_t>(word);
}

/* Appends one big-endian word. */
inline void append_word(Buffer &buffer, std::uint32_t word) {
    buffer.resize(buffer.size() + 4);
    store_word(buffer, buffer.size() - 4, word);
}

/* Appends the VSAN block of VSAN `id`. A name longer than its field is cut so that
 * its NUL always fits. */
void append_vsan_block(Buffer &buffer, std::uint32_t id, const Vsan &vsan, std::uint32_t oper_state);

/* The VSAN number in a VSAN block, or nothing when this is no block. */
std::optional<std::uint32_t> vsan_of_block(Bytes payload);

/* A VSAN block as a client sends it to change the VSAN. */
struct VsanRecord {
    std::uint32_t id = 0;
    std::uint32_t row_status = 0;
    Vsan vsan; /* without timers */
};

/* Decodes a VSAN block; nothing when this is no block. A name that fills its field without
 * a NUL is decoded whole, hence longer than a name may be. */
std::optional<VsanRecord> decode_vsan_block(Bytes payload);

void append_interface_record(Buffer &buffer, std::uint32_t if_index, const Port &port);

/* The ifIndex in an interface record, or nothing when this is no such record. */
std::optional<std::uint32_t> if_index_of_record(Bytes payload);

struct InterfaceRecord {
    std::uint32_t if_index = 0;
    std::uint32_t vsan = 0;
    std::uint32_t deny_list = 0;
};

/* The record without its row status, which says nothing about a port. */
std::optional<InterfaceRecord> decode_interface_record(Bytes payload);

struct TimerRecord {
    std::uint32_t key = 0;
    std::uint32_t value = 0;
    std::uint8_t per_vsan = 0;
    std::uint8_t flag = 0;
    std::uint32_t vsan = 0;
    std::uint8_t tail = 0;
};

void append_timer_record(Buffer &buffer, const TimerRecord &record);
std::optional<TimerRecord> decode_timer_record(Bytes payload);

void append_latency_record(Buffer &buffer, std::uint32_t key, std::uint32_t value);

struct LatencyRecord {
    std::uint32_t key = 0;
    std::uint32_t value = 0;
};
std::optional<LatencyRecord> decode_latency_record(Bytes payload);

struct Membership {
    std::uint32_t vsan = 0;
    std::uint32_t if_index = 0;
};

/* Every membership here is configured, hence static. */
void append_membership_record(Buffer &buffer, Membership member);
std::optional<Membership> decode_membership_record(Bytes payload);

} // namespace vswitch

#endif
