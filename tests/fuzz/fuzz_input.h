// SPDX-License-Identifier: Apache-2.0
// What the fuzz targets share: reading an input piece by piece, and saying what broke.
#ifndef FUZZ_INPUT_H
#define FUZZ_INPUT_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>

// The bytes of one input, taken from the front. Behind the end there are zeros.
class fuzz_input {
  public:
    fuzz_input(const uint8_t *data, size_t size) : at_(data), end_(data + size) {}

    bool empty() const { return at_ == end_; }
    uint8_t byte() { return empty() ? uint8_t{0} : *at_++; }
    uint32_t word16() {
        const uint32_t high = byte();
        return high << 8 | byte();
    }

  private:
    const uint8_t *at_;
    const uint8_t *end_;
};

// Ends the process, so that the fuzzer keeps the input, unless `condition` holds.
inline void require(bool condition, const char *what = "something that always holds") {
    if (condition) {
        return;
    }
    fprintf(stderr, "broken: %s\n", what);
    abort();
}

// How many descriptors this process has open; the one that counts is among them.
inline ptrdiff_t open_descriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
}

#endif
