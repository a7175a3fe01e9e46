// SPDX-License-Identifier: Apache-2.0
// Text tables for a terminal of 80 columns.
#ifndef VSWITCHCTL_TABLE_H
#define VSWITCHCTL_TABLE_H

#include <cstddef>
#include <string>
#include <vector>

namespace vswitchctl {

constexpr size_t line_width = 80;

// A text from outside as it may be printed: without anything that moves the cursor. What is UTF-8
// stays so.
std::string printable(const std::string &text);

// How many characters a text of UTF-8 has.
size_t length_of(const std::string &text);

// The text cut to `width` characters, with "..." where something is missing.
std::string shortened(const std::string &text, size_t width);

class Table {
  public:
    struct Column {
        std::string title;
        bool is_number = false; // aligned to the right
    };

    explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

    // One text a column.
    void add(std::vector<std::string> row);

    // Prints the titles and the rows to standard output, columns two blanks apart. The last
    // column is cut where the line would be longer than 80 characters.
    void print() const;

  private:
    std::vector<Column> columns_;
    std::vector<std::vector<std::string>> rows_;
};

} // namespace vswitchctl

#endif
