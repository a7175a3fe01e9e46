// SPDX-License-Identifier: Apache-2.0
// Integers as the agent hands them over.
#ifndef VSAN_MIB_VALUES_H
#define VSAN_MIB_VALUES_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "vsan_mib_agent.h"

// Whether an INTEGER or Unsigned32 value may have this length. The agent's own
// integer is a C long: 4 bytes on the 32-bit switch, 8 on 64-bit Linux, where a
// 32-bit value arrives in 8 bytes. Nothing between them is an integer.
constexpr bool integer_length_is_valid(size_t length) {
    return length <= 4 || length == sizeof(long);
}

// Reads an INTEGER or Unsigned32 value as one 32-bit word, from at most `length`
// bytes (a valid length). The values have 32 bits in the protocol: what an agent's
// wider long has above them is its own, and it cuts a wider number off there itself.
inline uint32_t integer_value(const u_char *value, size_t length) {
    uint32_t number = 0;
    memcpy(&number, value, length < sizeof number ? length : sizeof number);
    return number;
}
// The first word of a wider long is the one that counts.
static_assert(sizeof(long) == sizeof(uint32_t) || std::endian::native == std::endian::little);

#endif
