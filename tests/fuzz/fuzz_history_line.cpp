// SPDX-License-Identifier: Apache-2.0
// What reading makes of a history file that anybody may have written.
#include <cstdint>
#include <cstdlib>

#include "sdwrap/history_line.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view line(reinterpret_cast<const char *>(data), size);
    history_line record;
    if (!history_line_read(line, record) || record.text.size() > HISTORY_MAX_TEXT) {
        return 0;
    }
    char written[HISTORY_MAX_LINE];
    const size_t length = history_line_write(record, written);
    history_line again;
    if (length == 0 || length > sizeof written || !history_line_read({written, length - 1}, again) || again != record) {
        abort();
    }
    return 0;
}
