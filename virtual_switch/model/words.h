// SPDX-License-Identifier: Apache-2.0
// The words that configuration files and commands have for numbers.
#ifndef VSWITCH_WORDS_H
#define VSWITCH_WORDS_H

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "contract/attributes.h"

namespace vswitch {

struct Word {
    const char *text;
    uint32_t value;
};
using Words = std::span<const Word>;

#define VSWITCH_WORD(number, name, text) {text, number},
inline constexpr Word admin_state_words[] = {ADMIN_STATES(VSWITCH_WORD)};
inline constexpr Word oper_state_words[] = {OPER_STATES(VSWITCH_WORD)}; // those of links, too
inline constexpr Word load_balancing_words[] = {LOAD_BALANCINGS(VSWITCH_WORD)};
#undef VSWITCH_WORD

// What a word stands for, or nothing when it is none of these.
constexpr std::optional<uint32_t> value_of(Words words, std::string_view text) {
    for (const Word &word : words) {
        if (text == word.text) {
            return word.value;
        }
    }
    return std::nullopt;
}

// The word that stands for a value, or "" when none does.
constexpr const char *word_of(Words words, uint32_t value) {
    for (const Word &word : words) {
        if (value == word.value) {
            return word.text;
        }
    }
    return "";
}

} // namespace vswitch

#endif
