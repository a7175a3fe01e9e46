/* Words in network byte order, at any alignment. */
#ifndef BIG_ENDIAN_H
#define BIG_ENDIAN_H

#include <stdint.h>

/* The 32-bit big-endian word at `bytes`, which has at least four bytes. */
static inline uint32_t read_be32(const uint8_t *bytes) {
    return (static_cast<uint32_t>(bytes[0]) << 24) | (static_cast<uint32_t>(bytes[1]) << 16) |
           (static_cast<uint32_t>(bytes[2]) << 8) | static_cast<uint32_t>(bytes[3]);
}

/* Stores `word` big-endian into the four bytes at `bytes`. */
static inline void write_be32(uint8_t *bytes, uint32_t word) {
    bytes[0] = static_cast<uint8_t>(word >> 24);
    bytes[1] = static_cast<uint8_t>(word >> 16);
    bytes[2] = static_cast<uint8_t>(word >> 8);
    bytes[3] = static_cast<uint8_t>(word);
}

#endif
