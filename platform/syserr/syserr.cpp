// SPDX-License-Identifier: Apache-2.0
#include "syserr.h"

#include <cstdio>

#include "contract/status_codes.h"

namespace {

// The longest text that syserr_format may return, and its NUL.
constexpr size_t TEXT_SIZE = 201;

const char *text_of(uint32_t status) {
    switch (status) {
#define PLATFORM_STATUS_TEXT(code, name, text)                                                                         \
    case code:                                                                                                         \
        return text;
        PLATFORM_STATUS_CODES(PLATFORM_STATUS_TEXT)
#undef PLATFORM_STATUS_TEXT
    case UINT32_MAX:
        return "No status was obtained";
    default:
        return "Unknown status";
    }
}

} // namespace

const char *syserr_format(uint32_t status) {
    static char text[TEXT_SIZE];
    snprintf(text, sizeof text, "%s (0x%08x)", text_of(status), status);
    return text;
}

const char *syserr2str(uint32_t status) {
    return text_of(status);
}
