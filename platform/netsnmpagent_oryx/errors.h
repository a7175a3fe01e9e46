// SPDX-License-Identifier: Apache-2.0
// Why a request failed, for the agent's log: an SNMP error status is one of eighteen
// words, the platform's status says what happened.
#ifndef NETSNMPAGENT_ORYX_ERRORS_H
#define NETSNMPAGENT_ORYX_ERRORS_H

#include <cstdint>

#include "netsnmpagent_oryx.h"

namespace oryx {

struct LastError {
    uint32_t code;   // the platform's status
    uint32_t number; // where it comes from: 200 or 584; 0 for an error record

    // Its text, NUL-terminated, without control characters.
    char text[sizeof(snmp_error_record::text) + 1];
};

// The last error that was recorded; all zero before the first.
const LastError &last_error();

} // namespace oryx

#endif
