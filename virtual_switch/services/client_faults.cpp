// SPDX-License-Identifier: Apache-2.0
#include "services/client_faults.h"

#include <algorithm>
#include <random>

#include "contract/status_codes.h"

namespace vswitch {

namespace {

void append_record(Buffer &data, const ClientFault &fault) {
    const size_t at = data.size();
    data.resize(at + CLIENT_FAULT_RECORD_SIZE);
    const auto store = [&](client_fault_record_at field, size_t word) {
        store_word(data, at + field, static_cast<uint32_t>(word));
    };
    store(CLIENT_FAULT_NUMBER, fault.number);
    store(CLIENT_FAULT_ACTION, fault.action);
    store(CLIENT_FAULT_VALUE, fault.value);
    store(CLIENT_FAULT_DETAIL, fault.detail);
    store(CLIENT_FAULT_PDU, fault.match.pdus);
    store(CLIENT_FAULT_TIMES, fault.times);
    store(CLIENT_FAULT_AFTER, fault.after);
    store(CLIENT_FAULT_PERCENT, fault.percent);
    store(CLIENT_FAULT_SEED, fault.seed);
    const auto place = [&](client_fault_record_at field) { return data.begin() + static_cast<ptrdiff_t>(at + field); };
    if (const auto &user = fault.match.user) {
        store(CLIENT_FAULT_OF_USER, 1);
        store(CLIENT_FAULT_USER_LENGTH, user->size());
        std::copy(user->begin(), user->end(), place(CLIENT_FAULT_USER));
    }
    if (const auto &address = fault.match.address) {
        store(CLIENT_FAULT_ADDRESS_LENGTH, address->bytes.size());
        store(CLIENT_FAULT_ADDRESS_BITS, address->bits);
        std::copy(address->bytes.begin(), address->bytes.end(), place(CLIENT_FAULT_ADDRESS));
    }
    store(CLIENT_FAULT_OID_LENGTH, fault.match.oid.size());
    for (size_t i = 0; i < fault.match.oid.size(); ++i) {
        store_word(data, at + CLIENT_FAULT_OID + 4 * i, fault.match.oid[i]);
    }
}

} // namespace

ClientFaults::ClientFaults() {
    std::random_device random;
    std::generate(switch_.begin(), switch_.end(), [&] { return static_cast<uint8_t>(random()); });
}

bool ClientFaults::add(ClientFault fault) {
    if (faults_.size() >= CLIENT_FAULTS_MAX) {
        return false;
    }
    faults_.push_back(std::move(fault));
    ++edition_;
    return true;
}

bool ClientFaults::clear(uint32_t number) {
    const bool found = std::erase_if(faults_, [&](const ClientFault &fault) { return fault.number == number; }) > 0;
    edition_ += found;
    return found;
}

size_t ClientFaults::clear() {
    const size_t count = faults_.size();
    faults_.clear();
    edition_ += count > 0;
    return count;
}

uint32_t ClientFaults::hand_over(Bytes payload, Buffer &data) {
    if (!std::equal(payload.begin(), payload.end(), agent_.begin(), agent_.end())) {
        std::copy_n(payload.begin(), agent_.size(), agent_.begin());
        for (ClientFault &fault : faults_) {
            fault.applied = 0;
        }
    }
    data.insert(data.end(), switch_.begin(), switch_.end());
    append_word(data, edition_);
    append_word(data, static_cast<uint32_t>(faults_.size()));
    for (const ClientFault &fault : faults_) {
        append_record(data, fault);
    }
    return STATUS_SUCCESS;
}

uint32_t ClientFaults::take_counts(Bytes payload) {
    const Bytes counts = payload.subspan(CLIENT_FAULT_COUNTS_FIXED);
    if (counts.size() % CLIENT_FAULT_COUNT_SIZE != 0) {
        return STATUS_BAD_LENGTH;
    }
    const auto is_at = [&](client_fault_counts_at field, const Number &number) {
        return std::equal(number.begin(), number.end(), payload.begin() + field);
    };
    if (!is_at(CLIENT_FAULT_COUNTS_AGENT, agent_) || !is_at(CLIENT_FAULT_COUNTS_SWITCH, switch_)) {
        return STATUS_BAD_RECORD;
    }
    edition_in_force_ = load_word(payload, CLIENT_FAULT_COUNTS_EDITION);
    for (size_t at = 0; at < counts.size(); at += CLIENT_FAULT_COUNT_SIZE) {
        note(*load_word(counts, at), *load_word(counts, at + 4));
    }
    return STATUS_SUCCESS;
}

void ClientFaults::note(uint32_t number, uint32_t applied) {
    const auto fault = std::find_if(faults_.begin(), faults_.end(),
                                    [&](const ClientFault &candidate) { return candidate.number == number; });
    // The agent may tell of a fault that has been cleared meanwhile.
    if (fault == faults_.end() || applied <= fault->applied) {
        return;
    }
    applied_ += applied - fault->applied;
    fault->applied = applied;
    // The agent knows that this one is used up: the list is still the one that it has.
    if (fault->times != 0 && applied >= fault->times) {
        faults_.erase(fault);
    }
}

} // namespace vswitch
