// SPDX-License-Identifier: Apache-2.0
// The switch behind the agent of agent_in_process.h: the virtual switch's own managers,
// reached by a function call in place of the message service, and the rest of the platform.
#ifndef SWITCH_IN_PROCESS_H
#define SWITCH_IN_PROCESS_H

#include <cstdint>
#include <optional>

#include "services/services.h"

// How a request goes wrong.
enum class failure {
    refused,    // nothing is carried out
    unanswered, // nothing is carried out, and the wait times out
    lost,       // carried out; the reply is lost
    cut         // carried out; half of the reply's data is missing
};

struct switch_in_process {
    std::optional<vswitch::ServedSwitch> target;

    // Which request from now on goes wrong, counted from 1; 0 for none.
    unsigned failing = 0;
    failure how = failure::refused;

    unsigned requests = 0; // sent so far
    unsigned changes = 0;  // those that ask for a change
    int listed = 0;        // records on the module's lists
};

extern switch_in_process the_switch;

// Whether the agent has told the system manager that it may block, and not taken it back.
bool agent_is_blocking();

#endif
