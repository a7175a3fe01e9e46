// SPDX-License-Identifier: Apache-2.0
// Lines and words of a scenario, and its file.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fmt/format.h>
#include <memory>

#include "tool/client.h"
#include "tool/scenario.h"
#include "tool/table.h"

namespace vswitchctl {

namespace {

bool is_blank(char letter) {
    return letter == ' ' || letter == '\t';
}

// The word that begins at `at`, which is moved behind it.
std::string next_word(std::string_view line, size_t &at) {
    std::string word;
    while (at < line.size() && !is_blank(line[at])) {
        const char letter = line[at++];
        if (letter != '\'' && letter != '"') {
            word += letter;
            continue;
        }
        const size_t end = line.find(letter, at);
        if (end == std::string_view::npos) {
            throw UsageError(fmt::format("The quotation mark {} has no second one.", letter));
        }
        word += line.substr(at, end - at);
        at = end + 1;
    }
    return word;
}

} // namespace

std::string scenario_name(const std::string &path) {
    return path == "-" ? "standard input" : printable(path);
}

std::string at_line(const std::string &name, uint32_t line, const std::string &sentence) {
    return fmt::format("{}:{}: {}", name, line, sentence);
}

std::string read_scenario_file(const std::string &path) {
    errno = 0;
    const bool is_input = path == "-";
    const std::unique_ptr<FILE, int (*)(FILE *)> file(is_input ? stdin : std::fopen(path.c_str(), "re"),
                                                      is_input ? std::fflush : std::fclose);
    // A byte more than there may be tells whether there is more.
    std::string text(max_scenario_bytes + 1, '\0');
    const size_t length = file ? std::fread(text.data(), 1, text.size(), file.get()) : 0;
    if (!file || std::ferror(file.get())) {
        throw Refusal(fmt::format("Cannot read {}: {}.", scenario_name(path), std::strerror(errno)));
    }
    text.resize(length);
    if (length > max_scenario_bytes) {
        const auto lines = std::count(text.begin(), text.end() - 1, '\n');
        throw UsageError(
            at_line(scenario_name(path), static_cast<uint32_t>(lines + 1),
                    fmt::format("Here the file has {} bytes, and a scenario may not have more.", max_scenario_bytes)));
    }
    return text;
}

std::vector<std::string> split_words(std::string_view line) {
    std::vector<std::string> words;
    for (size_t at = 0; at < line.size();) {
        if (is_blank(line[at])) {
            ++at;
        } else if (line[at] == '#') {
            break;
        } else {
            words.push_back(next_word(line, at));
        }
    }
    return words;
}

std::string line_text(const std::vector<std::string> &words) {
    std::string line;
    for (const std::string &word : words) {
        const bool is_plain = !word.empty() && word.find_first_of(" \t'\"") == std::string::npos && word[0] != '#';
        const char *mark = is_plain ? "" : word.find('\'') == std::string::npos ? "'" : "\"";
        line += fmt::format("{}{}{}{}", line.empty() ? "" : " ", mark, printable(word), mark);
    }
    return line;
}

std::vector<std::string> with_value(const std::vector<std::string> &words, std::string_view placeholder,
                                    const std::string &value) {
    std::vector<std::string> replaced = words;
    for (std::string &word : replaced) {
        for (size_t at = word.find(placeholder); at != std::string::npos;
             at = word.find(placeholder, at + value.size())) {
            word.replace(at, placeholder.size(), value);
        }
    }
    return replaced;
}

} // namespace vswitchctl
