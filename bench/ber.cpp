// SPDX-License-Identifier: Apache-2.0
#include "ber.h"

#include <charconv>
#include <stdexcept>
#include <string>

namespace ber {

namespace {

constexpr size_t short_length = 0x80; // from here on a length takes octets of its own
constexpr size_t max_length_octets = 4;

} // namespace

Octets element(uint8_t tag, View content) {
    Octets result = {tag};
    if (content.size() < short_length) {
        result.push_back(static_cast<uint8_t>(content.size()));
    } else {
        result.push_back(0x82);
        result.push_back(static_cast<uint8_t>(content.size() >> 8));
        result.push_back(static_cast<uint8_t>(content.size()));
    }
    result.insert(result.end(), content.begin(), content.end());
    return result;
}

void append_arc(Octets &content, uint32_t arc) {
    for (int shift = 28; shift > 0; shift -= 7) {
        if (arc >> shift) {
            content.push_back(static_cast<uint8_t>(0x80 | (arc >> shift & 0x7f)));
        }
    }
    content.push_back(static_cast<uint8_t>(arc & 0x7f));
}

Octets oid_content(std::string_view dotted) {
    std::vector<uint32_t> arcs;
    const char *at = dotted.data();
    const char *const end = at + dotted.size();
    while (true) {
        uint32_t arc = 0;
        const auto [next, error] = std::from_chars(at, end, arc);
        if (error != std::errc()) {
            break;
        }
        arcs.push_back(arc);
        if (next == end) {
            break;
        }
        if (*next != '.') {
            break;
        }
        at = next + 1;
    }
    if (arcs.size() < 2 || arcs[0] > 2 || arcs[1] > 39 || dotted.back() < '0' || dotted.back() > '9') {
        throw std::invalid_argument("'" + std::string(dotted) + "' is no object identifier");
    }
    Octets content;
    append_arc(content, arcs[0] * 40 + arcs[1]);
    for (size_t i = 2; i < arcs.size(); ++i) {
        append_arc(content, arcs[i]);
    }
    return content;
}

std::optional<View> Reader::take(uint8_t tag) {
    if (rest_.size() < 2 || rest_[0] != tag) {
        return std::nullopt;
    }
    size_t length = rest_[1];
    size_t header = 2;
    if (length >= short_length) {
        const size_t octets = length - short_length;
        header += octets;
        if (octets == 0 || octets > max_length_octets || header > rest_.size()) {
            return std::nullopt;
        }
        length = 0;
        for (size_t i = 2; i < header; ++i) {
            length = length << 8 | rest_[i];
        }
    }
    if (length > rest_.size() - header) {
        return std::nullopt;
    }
    const View content = rest_.subspan(header, length);
    rest_ = rest_.subspan(header + length);
    return content;
}

std::optional<int64_t> Reader::take_integer() {
    const auto content = take(tag_integer);
    if (!content || content->empty() || content->size() > sizeof(int64_t)) {
        return std::nullopt;
    }
    uint64_t value = (*content)[0] & 0x80 ? UINT64_MAX : 0;
    for (const uint8_t octet : *content) {
        value = value << 8 | octet;
    }
    return static_cast<int64_t>(value);
}

} // namespace ber
