// SPDX-License-Identifier: Apache-2.0
// Bytes as they come and go: words in them are big-endian, and nothing is read past their end.
#ifndef VSWITCH_BYTES_H
#define VSWITCH_BYTES_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "contract/big_endian.h"

namespace vswitch {

using Bytes = std::span<const uint8_t>;
using Buffer = std::vector<uint8_t>;

// The word at `offset`, or nothing when the bytes end before it does.
inline std::optional<uint32_t> load_word(Bytes bytes, size_t offset) {
    if (offset > bytes.size() || bytes.size() - offset < 4) {
        return std::nullopt;
    }
    return read_be32(bytes.data() + offset);
}

// Overwrites the word at `offset`. REQUIRES: the buffer reaches offset + 4.
inline void store_word(Buffer &buffer, size_t offset, uint32_t word) {
    write_be32(buffer.data() + offset, word);
}

// Appends one word.
inline void append_word(Buffer &buffer, uint32_t word) {
    buffer.resize(buffer.size() + 4);
    store_word(buffer, buffer.size() - 4, word);
}

} // namespace vswitch

#endif
