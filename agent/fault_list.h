// SPDX-License-Identifier: Apache-2.0
// The faults that the switch wants clients to meet (contract/client_faults.h), as this agent has
// fetched them, and how often each has applied.
#ifndef AGENT_FAULT_LIST_H
#define AGENT_FAULT_LIST_H

#include "client_fault.h"

namespace switch_agent {

// Begins to listen for changes of the list. The first comes as soon as the switch is there.
void fault_list_start();

// Forgets all faults and gives back what the agent holds of this.
void fault_list_stop();

// The first fault that a message agrees with, or the first behind `last`; null when there is no
// other. One that is used up is none.
Fault *next_fault(const Message &message, const Fault *last = nullptr);

// Like fault_applies; the switch will know.
bool applies(Fault &fault);

// Whether there is any fault about messages of these types, a sum of client_fault_pdu.
bool has_faults(uint32_t pdus);

// Another number whenever the faults are others: a Fault * from before counts for nothing.
unsigned fault_list_edition();

} // namespace switch_agent

#endif
