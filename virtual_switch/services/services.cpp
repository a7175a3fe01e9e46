// SPDX-License-Identifier: Apache-2.0
#include "services/services.h"

#include "contract/frames.h"
#include "contract/records.h"
#include "contract/status_codes.h"

namespace vswitch {

namespace {

// Clients choose the numbers that are counted, so the table is bounded; what no
// longer fits is counted under service, opcode and kind 0.
constexpr size_t max_counted_requests = 256;

void count_request(Counters &counters, const Request &request) {
    const Counters::Key key{request.service, request.opcode, request.kind};
    const auto known = counters.requests.find(key);
    if (known != counters.requests.end()) {
        ++known->second;
    } else if (counters.requests.size() < max_counted_requests) {
        counters.requests.emplace(key, 1);
    } else {
        ++counters.requests[{0, 0, 0}];
    }
}

std::span<const Operation> operations_of(uint32_t service) {
    switch (service) {
    case MTS_SERVICE_VSAN:
        return vsan_manager_operations();
    case MTS_SERVICE_PORT:
        return port_manager_operations();
    case MTS_SERVICE_SWITCH:
        return operator_operations();
    case MTS_SERVICE_ROLES:
        return role_service_operations();
    case MTS_SERVICE_TDX:
        return distribution_service_operations();
    default:
        return {};
    }
}

// Finds the request's row and runs it; each way in which a request can be wrong has
// its own status.
uint32_t perform(ServedSwitch &the_switch, const Request &request, Buffer &data) {
    const auto operations = operations_of(request.service);
    if (operations.empty()) {
        return STATUS_NO_SUCH_SERVICE;
    }
    bool known_opcode = false;
    for (const Operation &operation : operations) {
        if (operation.opcode != request.opcode) {
            continue;
        }
        known_opcode = true;
        if (operation.kind != request.kind) {
            continue;
        }
        const size_t payload_length = operation.has_payload ? request.length : 0;
        if (request.length < operation.min_length || request.length > operation.max_length ||
            request.payload.size() != payload_length) {
            return STATUS_BAD_LENGTH;
        }
        return operation.answer ? operation.answer(the_switch, request, data)
                                : operation.change(the_switch, request, data);
    }
    return known_opcode ? STATUS_NO_SUCH_KIND : STATUS_NO_SUCH_OPCODE;
}

std::string_view text_of(Bytes bytes) {
    return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

uint32_t answer_role_of_user(const ServedSwitch &the_switch, const Request &request, Buffer &data) {
    const Permission *permission = the_switch.roles.find(text_of(request.payload));
    append_word(data, permission ? 1 : 0);
    const Permission none;
    const Permission &granted = permission ? *permission : none;
    data.insert(data.end(), granted.vsans.begin(), granted.vsans.end());
    append_word(data, static_cast<uint32_t>(granted.interfaces.size()));
    for (const auto &[first, last] : granted.interfaces) {
        append_word(data, first);
        append_word(data, last);
    }
    return STATUS_SUCCESS;
}

uint32_t answer_distribution_state(const ServedSwitch &the_switch, const Request &request, Buffer &data) {
    const bool known = text_of(request.payload) == MTS_TDX_TIMERS;
    append_word(data, known && the_switch.model.settings().tdx_enabled);
    append_word(data, known && the_switch.model.settings().tdx_show_run);
    return STATUS_SUCCESS;
}

constexpr Operation role_operations[] = {
    {MTS_OP_ROLE_OF_USER, MTS_KIND_GET, true, 0, MTS_WIRE_MAX_USER, answer_role_of_user},
};
constexpr Operation distribution_operations[] = {
    {MTS_OP_TDX_STATE, MTS_KIND_GET, true, 0, MTS_WIRE_MAX_USER, answer_distribution_state},
};

} // namespace

std::span<const Operation> role_service_operations() {
    return role_operations;
}
std::span<const Operation> distribution_service_operations() {
    return distribution_operations;
}

void answer_request(ServedSwitch &the_switch, const Request &request, Reply &reply) {
    if (request.service != MTS_SERVICE_SWITCH) {
        count_request(the_switch.counters, request);
    }
    reply.data.clear();
    reply.status = perform(the_switch, request, reply.data);
    if (reply.status != STATUS_SUCCESS && request.service != MTS_SERVICE_SWITCH) {
        reply.data.clear();
    }
    reply.has_data = !reply.data.empty();
}

} // namespace vswitch
