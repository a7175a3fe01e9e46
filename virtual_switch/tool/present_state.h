// SPDX-License-Identifier: Apache-2.0
// The switch's state as the objects that its events change.
#ifndef VSWITCHCTL_PRESENT_STATE_H
#define VSWITCHCTL_PRESENT_STATE_H

#include <string>
#include <vector>

#include "tool/client.h"
#include "tool/event_words.h"

namespace vswitchctl {

// What `watch` can tell changes of.
struct PresentState {
    Json vsans;   // rows of vsan.list
    Json ports;   // rows of port.list
    Json timers;  // the reply of timers.show
    Json session; // the reply of tdx.show
    Json system;  // the reply of system.show
};

// Asks the switch. Throws Refusal.
PresentState read_present_state();

// `ports` are rows of port.list.
PortNames port_names(const Json &ports);

// The state as objects like those of the events, each with "present": true and without what was
// before. They stand between {"event": "state", "part": "begin", ...} and {..., "part": "end"}.
std::vector<Json> state_objects(const PresentState &state);

// The state in words, a line each: VSANs and ports with the same state together, so that there are
// few lines whatever the size of the switch.
std::vector<std::string> state_lines(const PresentState &state);

} // namespace vswitchctl

#endif
