// SPDX-License-Identifier: Apache-2.0
// What the debug filters' file may contain.
#include <cstdlib>
#include <vector>

#include "sdwrap/debug_filters.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::vector<char> text(data, data + size);
    debug_filters filters;
    const debug_filters_errors errors = debug_filters_parse(text, filters);
    if (filters.count > DEBUG_FILTERS_MAX || errors.first_line > size + 1 ||
        (errors.count == 0) != (errors.first_line == 0)) {
        abort();
    }
    return debug_filters_of(filters, 101).event_class == 101 ? 0 : -1;
}
