// SPDX-License-Identifier: Apache-2.0
#include "tool/nearest.h"

#include <algorithm>
#include <fmt/format.h>
#include <numeric>

namespace vswitchctl {

namespace {

// How many letters must be changed, put in or taken out to make one text the other.
size_t distance(std::string_view one, std::string_view other) {
    std::vector<size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < one.size(); ++i) {
        size_t diagonal = row[0]++;
        for (size_t j = 0; j < other.size(); ++j) {
            const size_t changed = diagonal + (one[i] == other[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, diagonal + 1});
        }
    }
    return row.back();
}

} // namespace

std::string nearest(std::string_view text, const std::vector<std::string> &words) {
    constexpr size_t longest_word = 64;
    text = text.substr(0, longest_word);
    std::string found;
    // With more than half of the letters wrong it is another word.
    size_t least = text.size() / 2 + 1;
    for (const std::string &word : words) {
        const bool begins_so = !text.empty() && word.starts_with(text);
        const size_t wrong = begins_so ? 0 : distance(text, word);
        if (wrong < least) {
            least = wrong;
            found = word;
        }
    }
    return found;
}

std::string or_nearest(std::string_view text, const std::vector<std::string> &words) {
    const std::string word = nearest(text, words);
    return word.empty() ? "" : fmt::format("; the nearest is '{}'", word);
}

} // namespace vswitchctl
