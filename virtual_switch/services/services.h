// SPDX-License-Identifier: Apache-2.0
// The room `services`: who answers which request, and the records that requests and replies carry.
// A service decodes, asks the model or has changes made, and encodes; it knows no socket. May include
// changes/, model/ and contract/.
#ifndef VSWITCH_SERVICES_H
#define VSWITCH_SERVICES_H

#include <cstdint>
#include <span>

#include "services/request.h"
#include "services/served_switch.h"

namespace vswitch {

// One row of a service's request table. It has either `answer`, which only looks, or
// `change`; the operator's commands all come through `change`, also those that only look.
// Either appends the reply's data, if it has any, and returns the status. It is called only
// with a payload whose length the row allows.
struct Operation {
    uint32_t opcode;
    uint32_t kind;
    bool has_payload;
    uint32_t min_length;
    uint32_t max_length;
    uint32_t (*answer)(const ServedSwitch &, const Request &, Buffer &data);
    uint32_t (*change)(ServedSwitch &, const Request &, Buffer &data) = nullptr;
};

// The services' request tables: the managers' in a file each, the operator's in operator/commands.cpp,
// the others' in services.cpp.
std::span<const Operation> vsan_manager_operations();
std::span<const Operation> port_manager_operations();
std::span<const Operation> operator_operations();
std::span<const Operation> role_service_operations();
std::span<const Operation> distribution_service_operations();

// Answers one request and counts it. `reply` is overwritten; its buffer is reused. The
// events of a change are published, and wait to be delivered. A manager's refusal carries no
// data; that of the switch's own service may.
void answer_request(ServedSwitch &the_switch, const Request &request, Reply &reply);

} // namespace vswitch

#endif
