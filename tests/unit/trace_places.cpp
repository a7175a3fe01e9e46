// SPDX-License-Identifier: Apache-2.0
#include "trace_places.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <vector>

namespace {

constexpr size_t longest_history_text = 511;

using source_lines = std::vector<std::string>;

std::vector<source_lines> read_sources() {
    std::vector<source_lines> sources;
    for (const auto &file : std::filesystem::directory_iterator(MODULE_SOURCES)) {
        if (file.path().extension() != ".cpp" && file.path().extension() != ".h") {
            continue;
        }
        std::ifstream stream(file.path());
        source_lines &lines = sources.emplace_back();
        for (std::string line; std::getline(stream, line);) {
            lines.push_back(line);
        }
    }
    return sources;
}

bool knows(const source_lines &lines, const std::string &name) {
    return std::any_of(lines.begin(), lines.end(),
                       [&](const std::string &line) { return line.find(name) != std::string::npos; });
}

bool ends_a_statement(const std::string &line) {
    return line.empty() || line.ends_with("},") || std::string(";:{}").find(line.back()) != std::string::npos;
}

bool names_a_member(const std::string &line) {
    const size_t first = line.find_first_not_of(' ');
    return first != std::string::npos && line[first] == '.';
}

// The statement, or the member of a table, that a line belongs to; lines count from 1.
std::string statement_at(const source_lines &lines, size_t number) {
    size_t at = number - 1;
    while (at > 0 && !names_a_member(lines[at]) && !ends_a_statement(lines[at - 1])) {
        --at;
    }
    std::string statement = lines[at];
    while (!ends_a_statement(lines[at]) && at + 1 < lines.size()) {
        statement += lines[++at];
    }
    return statement;
}

// The first string literal of a statement, with those that only blanks divide from it.
std::string first_literal(const std::string &statement) {
    static const std::regex literal(R"re("((?:[^"\\]|\\.)*)"\s*)re");
    std::string text;
    std::smatch found;
    auto at = statement.begin();
    auto flags = std::regex_constants::match_default;
    while (std::regex_search(at, statement.end(), found, literal, flags)) {
        text += found[1];
        at = found[0].second;
        flags = std::regex_constants::match_continuous;
    }
    return text;
}

// What a printf format, as it is written in a source, can become.
std::regex outcome_of(const std::string &format) {
    std::string pattern;
    for (size_t i = 0; i < format.size(); ++i) {
        if (format[i] == '%' && i + 1 < format.size()) {
            pattern += format[++i] == 's' ? "[^]*" : "-?[0-9a-f]+";
        } else if (format[i] == '\\' || std::string("^$.*+?()[]{}|").find(format[i]) == std::string::npos) {
            pattern += format[i];
        } else {
            pattern += std::string("\\") + format[i];
        }
    }
    return std::regex(pattern);
}

bool stands_at(const source_lines &lines, size_t number, const std::string &text) {
    const std::string statement = statement_at(lines, number);
    const std::string format = first_literal(statement);
    if (format.empty()) {
        return statement.find("__func__, __LINE__") != std::string::npos;
    }
    return std::regex_match(text, outcome_of(format));
}

} // namespace

bool stands_where_it_says(const std::string &text) {
    static const std::vector<source_lines> sources = read_sources();
    static const std::regex place(R"re((?:\w+ : )?((\w+)\((\d+)\)))re");
    static std::set<std::string> seen;

    std::smatch found;
    if (!std::regex_search(text, found, place, std::regex_constants::match_continuous) ||
        text.size() == longest_history_text || seen.count(found[1]) != 0) {
        return true;
    }
    const size_t number = std::stoul(found[3]);
    const bool stands = std::any_of(sources.begin(), sources.end(), [&](const source_lines &lines) {
        return number >= 1 && number <= lines.size() && knows(lines, found[2]) && stands_at(lines, number, text);
    });
    if (stands) {
        seen.insert(found[1]);
    }
    return stands;
}
