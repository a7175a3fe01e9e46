// SPDX-License-Identifier: Apache-2.0
#include "history_line.h"

#include <cstring>

#include "words.h"

namespace {

// Where a time has digits, a d.
constexpr std::string_view TIME_FORM = "dddd-dd-ddTdd:dd:dd.ddddddZ";

bool is_time(std::string_view word) {
    if (word.size() != TIME_FORM.size()) {
        return false;
    }
    for (size_t i = 0; i < word.size(); ++i) {
        const bool is_digit = word[i] >= '0' && word[i] <= '9';
        if (TIME_FORM[i] == 'd' ? !is_digit : word[i] != TIME_FORM[i]) {
            return false;
        }
    }
    return true;
}

// Adds to what a line has already, and returns how much that is then.
size_t add(char *line, size_t length, std::string_view text) {
    memcpy(line + length, text.data(), text.size());
    return length + text.size();
}

size_t add(char *line, size_t length, uint32_t number) {
    char digits[10];
    size_t first = sizeof digits;
    do {
        digits[--first] = static_cast<char>('0' + number % 10);
        number /= 10;
    } while (number > 0);
    return add(line, length, std::string_view(digits + first, sizeof digits - first));
}

} // namespace

size_t history_line_write(const history_line &record, char (&line)[HISTORY_MAX_LINE]) {
    size_t length = add(line, 0, front(record.time, TIME_FORM.size()));
    for (const uint32_t number : {record.process_id, record.module_id, record.event_class}) {
        length = add(line, add(line, length, " "), number);
    }
    length = add(line, add(line, length, " "), front(record.text, HISTORY_MAX_TEXT));
    return add(line, length, "\n");
}

bool history_line_read(std::string_view line, history_line &record) {
    record.time = next_word(line);
    const bool is_record = is_time(record.time) && read_number(next_word(line), record.process_id) &&
                           read_number(next_word(line), record.module_id) &&
                           read_number(next_word(line), record.event_class);
    if (!line.empty()) {
        line.remove_prefix(1);
    }
    record.text = line;
    return is_record;
}
