// SPDX-License-Identifier: Apache-2.0
// Taking lines of text apart, without a C++ runtime.
#ifndef SDWRAP_WORDS_H
#define SDWRAP_WORDS_H

#include <cstddef>
#include <cstdint>

#include <string_view>

inline constexpr std::string_view BLANKS = " \t\r";

// The first `length` characters, or all. Unlike substr it needs no C++ runtime to
// report a position outside the text.
inline std::string_view front(std::string_view text, size_t length) {
    return {text.data(), length < text.size() ? length : text.size()};
}

// Takes the next word off the front of a line; empty at its end.
inline std::string_view next_word(std::string_view &line) {
    const size_t start = line.find_first_not_of(BLANKS);
    if (start == std::string_view::npos) {
        line = {};
        return {};
    }
    line.remove_prefix(start);
    const std::string_view word = front(line, line.find_first_of(BLANKS));
    line.remove_prefix(word.size());
    return word;
}

// Reads a decimal number of 32 bits. False when the word is none.
inline bool read_number(std::string_view word, uint32_t &number) {
    uint64_t value = 0;
    for (const char digit : word) {
        if (digit < '0' || digit > '9') {
            return false;
        }
        value = value * 10 + static_cast<uint64_t>(digit - '0');
        if (value > UINT32_MAX) {
            return false;
        }
    }
    number = static_cast<uint32_t>(value);
    return !word.empty();
}

#endif
