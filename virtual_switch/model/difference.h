// SPDX-License-Identifier: Apache-2.0
// What leads from one configuration of a switch to another.
#ifndef VSWITCH_DIFFERENCE_H
#define VSWITCH_DIFFERENCE_H

#include "model/switch_data.h"

namespace vswitch {

// The change that makes `before` what `after` is. What went to and fro between the two is not in it: a
// VSAN that was deleted and created again is one that has changed, or has not, and a moment of a last
// change is that of `before` where nothing else is different. REQUIRES: both have the same ports, and
// a session's values are of VSANs that are there.
Change difference(const SwitchData &before, const SwitchData &after);

// Whether a change changes nothing.
bool is_empty(const Change &change);

} // namespace vswitch

#endif
