// SPDX-License-Identifier: Apache-2.0
#include "debug_filters.h"

#include "contract/run_directory.h"
#include "words.h"

namespace {

debug_filter default_of(uint32_t event_class) {
    return {event_class, event_class != TRACE_CLASS_TRACE, false};
}

// The entry of a class, made if need be; null when there is no room.
debug_filter *entry_of(debug_filters &filters, uint32_t event_class) {
    for (size_t i = 0; i < filters.count; ++i) {
        if (filters.classes[i].event_class == event_class) {
            return &filters.classes[i];
        }
    }
    if (filters.count == DEBUG_FILTERS_MAX) {
        return nullptr;
    }
    debug_filter *entry = &filters.classes[filters.count++];
    *entry = default_of(event_class);
    return entry;
}

bool read_line(std::string_view line, debug_filters &filters) {
    line = front(line, line.find('#'));
    const std::string_view what = next_word(line);
    if (what.empty()) {
        return true;
    }
    uint32_t event_class = 0;
    const bool is_class = read_number(next_word(line), event_class);
    const std::string_view state = next_word(line);
    if ((what != "history" && what != "debug") || !is_class || (state != "on" && state != "off") ||
        !next_word(line).empty()) {
        return false;
    }
    debug_filter *entry = entry_of(filters, event_class);
    if (entry == nullptr) {
        return false;
    }
    (what == "history" ? entry->history : entry->debug) = state == "on";
    return true;
}

} // namespace

debug_filter debug_filters_of(const debug_filters &filters, uint32_t event_class) {
    for (size_t i = 0; i < filters.count; ++i) {
        if (filters.classes[i].event_class == event_class) {
            return filters.classes[i];
        }
    }
    return default_of(event_class);
}

debug_filters_errors debug_filters_parse(std::span<const char> text, debug_filters &filters) {
    filters = {};
    debug_filters_errors errors = {};
    std::string_view rest(text.data(), text.size());
    for (unsigned number = 1; !rest.empty(); ++number) {
        const size_t length = rest.find('\n');
        if (!read_line(front(rest, length), filters) && errors.count++ == 0) {
            errors.first_line = number;
        }
        rest.remove_prefix(length == std::string_view::npos ? rest.size() : length + 1);
    }
    return errors;
}
