// SPDX-License-Identifier: Apache-2.0
// Faults of the agent's clients as JSON. Stays in the room, like the JSON library.
#ifndef VSWITCH_OPERATOR_CLIENT_FAULTS_H
#define VSWITCH_OPERATOR_CLIENT_FAULTS_H

#include "model/json_reader.h"
#include "services/client_faults.h"
#include "services/served_switch.h"

namespace vswitch {

// A row of fault.list, and the reply of fault.add-client.
JsonReader::Json client_fault_json(const ClientFault &fault);

// Tells the agents that the list is another one.
void publish_client_faults(ServedSwitch &the_switch);

// How many agents are told when the list changes.
size_t agents_told_of_faults(const ServedSwitch &the_switch);

} // namespace vswitch

#endif
