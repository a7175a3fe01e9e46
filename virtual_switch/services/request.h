// SPDX-License-Identifier: Apache-2.0
// What is asked of the switch, and what it answers.
#ifndef VSWITCH_REQUEST_H
#define VSWITCH_REQUEST_H

#include <cstdint>
#include <string_view>

#include "contract/services.h"
#include "model/bytes.h"

namespace vswitch {

// One request, as decoded from its frame. The views belong to the frame.
struct Request {
    uint32_t service = 0;
    uint32_t opcode = 0;
    uint32_t kind = 0;
    uint32_t length = 0; // as the caller gave it, also without payload
    Bytes payload;
    std::string_view user; // empty when there is none
};

struct Reply {
    uint32_t status = 0;
    bool has_data = false;
    Buffer data;
};

} // namespace vswitch

#endif
