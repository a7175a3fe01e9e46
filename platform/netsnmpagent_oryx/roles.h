/*
 * What a user may touch. The switch knows (MTS_SERVICE_ROLES, see mts_wire.h). What it
 * said is believed for as long as it publishes that nothing has changed; where it does
 * not publish that, it is asked once for each PDU that needs to know.
 */
#ifndef NETSNMPAGENT_ORYX_ROLES_H
#define NETSNMPAGENT_ORYX_ROLES_H

#include <stdint.h>

#include "context.h"
#include "mts_wire.h"

namespace oryx {

constexpr uint32_t VSAN_BITMAP_BYTES = 512;
constexpr uint32_t HIGHEST_VSAN = 8 * VSAN_BITMAP_BYTES - 1;

/* Interfaces `first` to `last`, both included, by ifIndex. */
struct InterfaceRange {
    uint32_t first;
    uint32_t last;
};

struct Role {
    /* False: everything is allowed and the rest says nothing. */
    bool restricted;

    /* VSAN v is bit 0x80 >> (v % 8) of byte v / 8. */
    uint8_t vsans[VSAN_BITMAP_BYTES];

    /* Ascending, and none reaches into the next. */
    uint32_t range_count;
    InterfaceRange ranges[MTS_ROLE_MAX_RANGES];
};

/*
 * Reads the switch's reply of `length` bytes; its layout is in mts_wire.h.
 *
 * Returns true when the reply is exactly one well-formed role. Otherwise `role` is
 * restricted to nothing.
 */
bool role_decode(const uint8_t *reply, uint32_t length, Role &role);

/* The role of the requester of `pdu`: restricted to nothing when the switch cannot
 * be asked or its answer makes no sense. Valid until the next call. */
const Role &role_of(const PduContext &pdu);

} // namespace oryx

#endif
