// SPDX-License-Identifier: Apache-2.0
#ifndef AGENT_PLAIN_TEXT_H
#define AGENT_PLAIN_TEXT_H

#include <cstddef>
#include <cstdint>

namespace switch_agent {

// Whether `length` bytes are a text that the switch keeps (contract/interfaces.h): UTF-8 as RFC 3629
// has it, no character in more bytes than it needs, no surrogate, none above 10FFFF; and no control
// characters. No bytes are a text, too.
inline bool is_plain_text(const uint8_t *bytes, size_t length) {
    // By the bytes that follow the first; 80 to 9F are control characters.
    static constexpr uint32_t least[] = {0, 0xa0, 0x800, 0x10000};
    for (size_t at = 0; at < length;) {
        const uint8_t first = bytes[at++];
        if (first < 0x80) {
            if (first < 0x20 || first == 0x7f) {
                return false;
            }
            continue;
        }
        const size_t more = first < 0xe0 ? 1 : first < 0xf0 ? 2 : 3;
        if (first < 0xc2 || first > 0xf4 || length - at < more) {
            return false;
        }
        uint32_t character = first & (0x3fu >> more);
        for (size_t i = 0; i < more; ++i) {
            const uint8_t next = bytes[at++];
            if ((next & 0xc0) != 0x80) {
                return false;
            }
            character = character << 6 | (next & 0x3fu);
        }
        if (character < least[more] || character > 0x10ffff || (character >= 0xd800 && character <= 0xdfff)) {
            return false;
        }
    }
    return true;
}

} // namespace switch_agent

#endif
