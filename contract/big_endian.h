/* SPDX-License-Identifier: Apache-2.0 */
/* Words in network byte order, at any alignment. */
#ifndef BIG_ENDIAN_H
#define BIG_ENDIAN_H

#include <stdint.h>

/* The 32-bit big-endian word at `bytes`, which has at least four bytes. */
static inline uint32_t read_be32(const uint8_t *bytes) {
    return ((uint32_t)bytes[0] << 24) | ((uint32_t)bytes[1] << 16) | ((uint32_t)bytes[2] << 8) | (uint32_t)bytes[3];
}

/* Stores `word` big-endian into the four bytes at `bytes`. */
static inline void write_be32(uint8_t *bytes, uint32_t word) {
    bytes[0] = (uint8_t)(word >> 24);
    bytes[1] = (uint8_t)(word >> 16);
    bytes[2] = (uint8_t)(word >> 8);
    bytes[3] = (uint8_t)(word);
}

#endif
