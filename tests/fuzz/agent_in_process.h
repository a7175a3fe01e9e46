// SPDX-License-Identifier: Apache-2.0
// A whole SNMP agent inside a fuzz target: Net-SNMP's agent library, the agent extension
// library and the module, on a transport that is a function call. It has no address and
// grants every community everything; the community is the user whom the switch judges.
#ifndef AGENT_IN_PROCESS_H
#define AGENT_IN_PROCESS_H

#include <cstdint>
#include <vector>

// Starts the agent; call it once.
void start_agent();

// Hands a message to the agent as if it had just been received, and returns what the
// agent has sent when it is done with it.
std::vector<std::vector<uint8_t>> exchange(const std::vector<uint8_t> &message);

#endif
