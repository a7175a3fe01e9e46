// SPDX-License-Identifier: Apache-2.0
#include "services/faults.h"

#include <algorithm>

#include "services/records.h"

namespace vswitch {

namespace {

// What the record of a request names.
struct Named {
    std::optional<uint32_t> vsan;
    std::optional<uint32_t> if_index;
};

Named named_in(const Request &request) {
    Named named;
    if (request.service == MTS_SERVICE_VSAN && request.opcode == MTS_OP_VSAN) {
        named.vsan = vsan_of_block(request.payload);
    } else if (request.service == MTS_SERVICE_VSAN && request.opcode == MTS_OP_INTERFACE) {
        const auto record = decode_interface_record(request.payload);
        if (record) {
            named = {record->vsan, record->if_index};
        }
    } else if (request.service == MTS_SERVICE_VSAN && request.opcode == MTS_OP_TIMER) {
        const auto record = decode_timer_record(request.payload);
        if (record && record->per_vsan) {
            named.vsan = record->vsan;
        }
    } else if (request.service == MTS_SERVICE_PORT && request.opcode == MTS_OP_PORT_MEMBERSHIP) {
        const auto member = decode_membership_record(request.payload);
        if (member) {
            named = {member->vsan, member->if_index};
        }
    } else if (request.service == MTS_SERVICE_PORT && request.opcode == MTS_OP_PORT) {
        named.if_index = load_word(request.payload, 0);
    }
    return named;
}

bool matches(const FaultMatch &match, const Request &request, const Named &named) {
    const auto agrees = [](std::optional<uint32_t> wanted, std::optional<uint32_t> found) {
        return !wanted || wanted == found;
    };
    return agrees(match.service, request.service) && agrees(match.opcode, request.opcode) &&
           agrees(match.kind, request.kind) && agrees(match.vsan, named.vsan) && agrees(match.if_index, named.if_index);
}

} // namespace

uint32_t Faults::add(Fault fault) {
    if (faults_.size() >= max_faults) {
        return 0;
    }
    fault.number = ++last_number_;
    fault.applied = 0;
    faults_.push_back(fault);
    return fault.number;
}

bool Faults::clear(uint32_t number) {
    return std::erase_if(faults_, [&](const Fault &fault) { return fault.number == number; }) > 0;
}

size_t Faults::clear() {
    const size_t count = faults_.size();
    faults_.clear();
    return count;
}

std::optional<Fault> Faults::take(const Request &request) {
    if (faults_.empty() || request.service == MTS_SERVICE_SWITCH) {
        return std::nullopt;
    }
    const Named named = named_in(request);
    const auto found = std::find_if(faults_.begin(), faults_.end(),
                                    [&](const Fault &fault) { return matches(fault.match, request, named); });
    if (found == faults_.end()) {
        return std::nullopt;
    }
    ++applied_;
    ++found->applied;
    if (found->remaining) {
        --*found->remaining;
    }
    const Fault taken = *found;
    if (taken.remaining == 0u) {
        faults_.erase(found);
    }
    return taken;
}

} // namespace vswitch
