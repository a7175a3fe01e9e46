// SPDX-License-Identifier: Apache-2.0
#include "tool/table.h"

#include <algorithm>
#include <cstdio>
#include <fmt/format.h>

namespace vswitchctl {

std::string printable(const std::string &text) {
    std::string shown = text;
    for (char &c : shown) {
        if (c < ' ' || c >= 0x7f) {
            c = '?';
        }
    }
    return shown;
}

std::string shortened(const std::string &text, size_t width) {
    if (text.size() <= width) {
        return text;
    }
    return width <= 3 ? text.substr(0, width) : text.substr(0, width - 3) + "...";
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
            width = std::max(width, row[column].size());
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
            if (column + 1 == columns_.size() && line.size() < line_width) {
                cell = shortened(cell, line_width - line.size());
            }
            line += columns_[column].is_number ? fmt::format("{:>{}}", cell, widths[column])
                                               : fmt::format("{:<{}}", cell, widths[column]);
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
