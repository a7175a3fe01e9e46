// SPDX-License-Identifier: Apache-2.0
// The records as the manager sends and receives them, byte by byte. Written without
// the module's structures and conversions, so that the two can disagree.
#ifndef WIRE_BYTES_H
#define WIRE_BYTES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

using bytes = std::vector<uint8_t>;

constexpr size_t row_size = 2108;
constexpr size_t row_block_size = 2632;
constexpr size_t row_offset = 520;

// Writes one 32-bit word in network order at `offset`.
inline void put_word(bytes &to, size_t offset, uint32_t word) {
    for (size_t i = 0; i < 4; ++i) {
        to.at(offset + i) = static_cast<uint8_t>(word >> (24 - 8 * i));
    }
}

// The 32-bit word in network order at `offset`.
inline uint32_t get_word(const bytes &from, size_t offset) {
    uint32_t word = 0;
    for (size_t i = 0; i < 4; ++i) {
        word = word << 8 | from.at(offset + i);
    }
    return word;
}

// Words in network order, one after the other.
inline bytes words(std::initializer_list<uint32_t> list) {
    bytes result(list.size() * 4);
    size_t offset = 0;
    for (const uint32_t word : list) {
        put_word(result, offset, word);
        offset += 4;
    }
    return result;
}

// One VSAN as the manager knows it.
struct vsan_row {
    uint32_t index = 1;
    uint32_t media = 1;
    uint32_t admin = 1;
    uint32_t mtu = 2112;
    uint32_t inorder = 1;
    uint32_t interop = 2;
    uint32_t load_balancing = 2;
    uint32_t row_status = 1;
    uint32_t oper = 1;
    std::string name = "default"; // up to 36 bytes; the field is filled up with NULs
    uint32_t drop_latency = 500;
};

// The 2108 bytes of a VSAN record; the manager's own part holds a pattern.
inline bytes row_record(const vsan_row &row) {
    bytes record(row_size, 0xA5);
    const uint32_t numbers[] = {row.index,   row.media,          row.admin,      row.mtu, row.inorder,
                                row.interop, row.load_balancing, row.row_status, row.oper};
    size_t offset = 0;
    for (const uint32_t number : numbers) {
        put_word(record, offset, number);
        offset += 4;
    }
    for (size_t i = 0; i < 36; ++i) {
        record[36 + i] = i < row.name.size() ? static_cast<uint8_t>(row.name[i]) : uint8_t{0};
    }
    put_word(record, 72, row.drop_latency);
    return record;
}

// The 2632-byte block that carries a record in a reply. What surrounds the record is
// filled with bytes that would be noticed if anyone read them as values.
inline bytes row_reply(const vsan_row &row) {
    bytes block(row_block_size, 0xEE);
    const bytes record = row_record(row);
    for (size_t i = 0; i < record.size(); ++i) {
        block[row_offset + i] = record[i];
    }
    return block;
}

// One interface's membership. The fourth word is in the byte order of whoever made the
// record, so it is given byte by byte.
inline bytes if_record(uint32_t if_index, uint32_t vsan, uint32_t deny_list, bytes row_status = {0, 0, 0, 0}) {
    bytes record = words({if_index, vsan, deny_list});
    record.insert(record.end(), row_status.begin(), row_status.end());
    return record;
}

// One timer value, packed: the VSAN number starts at byte 10.
inline bytes timer_record(uint32_t key, uint32_t value, uint8_t per_vsan, uint8_t flag, uint32_t vsan, uint8_t tail) {
    bytes record(15);
    put_word(record, 0, key);
    put_word(record, 4, value);
    record[8] = per_vsan;
    record[9] = flag;
    put_word(record, 10, vsan);
    record[14] = tail;
    return record;
}

#endif
