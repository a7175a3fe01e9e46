// SPDX-License-Identifier: Apache-2.0
// How a change comes into force; for the functions of changes.h.
#ifndef VSWITCH_COMMIT_H
#define VSWITCH_COMMIT_H

#include <cstdint>

#include "changes/changes.h"

namespace vswitch {

// Writes a change to the database, brings it into force and publishes its events: what
// has become of the VSANs and ports follows from the state before and after. Returns
// STATUS_SUCCESS or, with nothing changed, STATUS_STORE_FAILED.
uint32_t commit(Switch &the_switch, const Change &change);

// The two halves of it. The first only writes, and is undone by writing what leads back. The second
// cannot fail, and REQUIRES that the change is written.
uint32_t keep(const Switch &the_switch, const Change &change, const SwitchData &present);
void bring_into_force(Switch &the_switch, const Change &change);

// Sets the time of the VSAN table's last change in a change of that table.
void touch_vsan_table(const Switch &the_switch, Change &change);

// Why there is no VSAN of this number.
uint32_t missing_vsan(uint32_t id);

// The requester's restrictions, or null when there are none.
const Permission *restrictions(const Switch &the_switch, const Requester &requester);

// STATUS_SUCCESS, or why the requester may not change this.
uint32_t check_vsan_right(const Switch &the_switch, const Requester &requester, uint32_t vsan);
uint32_t check_interface_right(const Switch &the_switch, const Requester &requester, uint32_t if_index);
uint32_t check_switch_right(const Switch &the_switch, const Requester &requester);

} // namespace vswitch

#endif
