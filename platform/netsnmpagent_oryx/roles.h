// SPDX-License-Identifier: Apache-2.0
// What a user may touch. The switch knows (MTS_SERVICE_ROLES, see contract/records.h). What it
// said is believed for as long as it publishes that nothing has changed; where it does
// not publish that, it is asked once for each PDU that needs to know.
#ifndef NETSNMPAGENT_ORYX_ROLES_H
#define NETSNMPAGENT_ORYX_ROLES_H

#include <cstdint>

#include "context.h"
#include "contract/records.h"

namespace oryx {

// Interfaces `first` to `last`, both included, by ifIndex.
struct InterfaceRange {
    uint32_t first;
    uint32_t last;
};

// What a user may touch: all that their roles allow.
struct Permission {
    // False: everything is allowed and the rest says nothing.
    bool restricted;

    uint8_t vsans[VSAN_BITMAP_SIZE];

    // Ascending, and none reaches into the next.
    uint32_t range_count;
    InterfaceRange ranges[ROLE_MAX_RANGES];
};

// Reads the switch's reply of `length` bytes; its layout is in contract/records.h.
//
// Returns true when the reply is exactly one well-formed role. Otherwise `permission` is
// restricted to nothing.
bool permission_decode(const uint8_t *reply, uint32_t length, Permission &permission);

// What the requester of `pdu` may touch: restricted to nothing when the switch cannot
// be asked or its answer makes no sense. Valid until the next call.
const Permission &permission_of(const PduContext &pdu);

} // namespace oryx

#endif
