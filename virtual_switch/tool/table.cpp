// SPDX-License-Identifier: Apache-2.0
#include "tool/table.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fmt/format.h>

#include "tool/client.h"

namespace vswitchctl {

namespace {

// Whether a character of UTF-8 goes on at this byte.
bool goes_on(char byte) {
    return (static_cast<uint8_t>(byte) & 0xc0) == 0x80;
}

} // namespace

std::string printable(const std::string &text) {
    const bool ascii_only = !is_utf8(text);
    std::string shown = text;
    for (size_t at = 0; at < shown.size(); ++at) {
        const auto byte = static_cast<uint8_t>(shown[at]);
        if (byte < ' ' || byte == 0x7f || (byte > 0x7f && ascii_only)) {
            shown[at] = '?';
        } else if (byte == 0xc2 && static_cast<uint8_t>(shown[at + 1]) < 0xa0) { // control characters, too
            shown.replace(at, 2, "?");
        }
    }
    return shown;
}

size_t length_of(const std::string &text) {
    return text.size() - static_cast<size_t>(std::ranges::count_if(text, goes_on));
}

std::string shortened(const std::string &text, size_t width) {
    if (length_of(text) <= width) {
        return text;
    }
    const size_t kept = width <= 3 ? width : width - 3;
    size_t end = 0;
    for (size_t characters = 0; end < text.size() && (characters < kept || goes_on(text[end])); ++end) {
        characters += end + 1 == text.size() || !goes_on(text[end + 1]);
    }
    return text.substr(0, end) + (width <= 3 ? "" : "...");
}

void Table::add(std::vector<std::string> row) {
    for (std::string &cell : row) {
        cell = printable(cell);
    }
    rows_.push_back(std::move(row));
}

void Table::print() const {
    std::vector<size_t> widths;
    for (size_t column = 0; column < columns_.size(); ++column) {
        size_t width = columns_[column].title.size();
        for (const auto &row : rows_) {
            width = std::max(width, length_of(row[column]));
        }
        widths.push_back(width);
    }
    const auto print_line = [&](auto &&cell_of) {
        std::string line;
        for (size_t column = 0; column < columns_.size(); ++column) {
            std::string cell = cell_of(column);
            if (column > 0) {
                line += "  ";
            }
            if (column + 1 == columns_.size() && length_of(line) < line_width) {
                cell = shortened(cell, line_width - length_of(line));
            }
            const std::string blanks(widths[column] - std::min(widths[column], length_of(cell)), ' ');
            line += columns_[column].is_number ? blanks + cell : cell + blanks;
        }
        line.erase(line.find_last_not_of(' ') + 1);
        fmt::print("{}\n", line);
    };
    print_line([&](size_t column) { return columns_[column].title; });
    for (const auto &row : rows_) {
        print_line([&](size_t column) { return row[column]; });
    }
}

} // namespace vswitchctl
