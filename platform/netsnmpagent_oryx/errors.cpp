// SPDX-License-Identifier: Apache-2.0
#include "errors.h"

#include <cstring>

#include "syserr.h"

namespace oryx {
namespace {

LastError last = {};

// Remembers an error and writes its line. `text` ends at a NUL or after `size` bytes.
void record_error(uint32_t code, uint32_t number, const char *text, size_t size) {
    static_assert(sizeof(snmp_error_record::text) < sizeof(LastError::text));
    const size_t length = strnlen(text, size < sizeof(last.text) - 1 ? size : sizeof(last.text) - 1);
    last.code = code;
    last.number = number;
    // One error is one line of the log, whatever its text holds.
    for (size_t i = 0; i < length; ++i) {
        const unsigned char character = static_cast<unsigned char>(text[i]);
        last.text[i] = character < ' ' || character == 0x7f ? '?' : text[i];
    }
    last.text[length] = '\0';
    snmp_log(LOG_WARNING, "netsnmpagent_oryx: request failed: %s (status 0x%08x, origin %u)\n", last.text, code,
             number);
}

} // namespace

const LastError &last_error() {
    return last;
}

} // namespace oryx

extern "C" {

void log_set_error(uint32_t code, uint32_t number) {
    oryx::record_error(code, number, syserr_format(code), sizeof(oryx::LastError::text));
}

void log_snmp_error(const snmp_error_record *record) {
    if (record) {
        oryx::record_error(record->code, 0, record->text, sizeof(record->text));
    }
}

} // extern "C"
