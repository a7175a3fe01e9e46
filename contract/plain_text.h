/* SPDX-License-Identifier: Apache-2.0 */
/* Texts that people give: what the agent takes is what the switch keeps. */
#ifndef CONTRACT_PLAIN_TEXT_H
#define CONTRACT_PLAIN_TEXT_H

#include <stddef.h>
#include <stdint.h>

/*
 * The character at bytes[*at], which is less than `length`; *at becomes where the next one begins.
 * UINT32_MAX when no character is there: UTF-8 as RFC 3629 has it, none in more bytes than it
 * needs, no surrogate, none above 10FFFF.
 */
static inline uint32_t take_utf8(const uint8_t *bytes, size_t length, size_t *at) {
    static const uint32_t least[] = {0, 0x80, 0x800, 0x10000}; /* by the bytes that follow the first */
    const uint8_t first = bytes[(*at)++];
    if (first < 0x80) {
        return first;
    }
    const size_t more = first < 0xe0 ? 1 : first < 0xf0 ? 2 : 3;
    if (first < 0xc2 || first > 0xf4 || length - *at < more) {
        return UINT32_MAX;
    }
    uint32_t character = first & (0x3fu >> more);
    for (size_t i = 0; i < more; ++i) {
        const uint8_t next = bytes[(*at)++];
        if ((next & 0xc0) != 0x80) {
            return UINT32_MAX;
        }
        character = character << 6 | (next & 0x3fu);
    }
    return character < least[more] || character > 0x10ffff || (character >= 0xd800 && character <= 0xdfff) ? UINT32_MAX
                                                                                                           : character;
}

/* Whether `length` bytes are UTF-8 without control characters. No bytes are a text, too. */
static inline int is_plain_text(const uint8_t *bytes, size_t length) {
    for (size_t at = 0; at < length;) {
        const uint32_t character = take_utf8(bytes, length, &at);
        if (character == UINT32_MAX || character < 0x20 || (character >= 0x7f && character < 0xa0)) {
            return 0;
        }
    }
    return 1;
}

#endif
