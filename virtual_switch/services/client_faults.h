// SPDX-License-Identifier: Apache-2.0
// Faults that the agent's clients meet: the switch keeps the list, which the agent fetches and goes by
// (contract/client_faults.h). Like the switch's own faults they live in memory only.
#ifndef VSWITCH_CLIENT_FAULTS_H
#define VSWITCH_CLIENT_FAULTS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "contract/client_faults.h"
#include "services/request.h"

namespace vswitch {

// An address as it lies in packets, 4 or 16 bytes, of which only the first `bits` count.
struct AddressRange {
    std::vector<uint8_t> bytes;
    uint32_t bits = 0;
};

// Which messages a fault is for; what is not set matches all that its action is about.
struct ClientFaultMatch {
    uint32_t pdus = 0; // a sum of client_fault_pdu, not 0
    std::vector<uint32_t> oid;
    std::optional<std::string> user;
    std::optional<AddressRange> address;
};

struct ClientFault {
    uint32_t number = 0;
    client_fault_action action = CLIENT_FAULT_LOSE_ANSWER;
    uint32_t value = 0;
    uint32_t detail = 0;
    ClientFaultMatch match;
    uint32_t times = 0; // 0: until cleared
    uint32_t after = 0;
    uint32_t percent = 100;
    uint32_t seed = 1;
    uint32_t applied = 0; // by the agent that fetched last
};

class ClientFaults {
  public:
    ClientFaults();

    // Adds a fault behind the others; its number is greater than theirs. False when there are
    // CLIENT_FAULTS_MAX already.
    bool add(ClientFault fault);

    // Removes one fault; false when there is none of that number.
    bool clear(uint32_t number);

    // Removes all. Returns how many there were.
    size_t clear();

    // Answers the two requests of MTS_OP_CLIENT_FAULTS: appends the list to `data`, and takes an
    // agent's counts. Either returns the status.
    uint32_t hand_over(Bytes payload, Buffer &data);
    uint32_t take_counts(Bytes payload);

    const std::vector<ClientFault> &list() const { return faults_; }

    // Whether an agent goes by the list as it is now.
    bool is_in_force() const { return edition_in_force_ == edition_; }

    // Another agent has come, which does not have the list yet.
    void expect_agent() { edition_in_force_.reset(); }

    // How often any fault has applied since the start.
    uint64_t applied() const { return applied_; }

  private:
    using Number = std::array<uint8_t, 8>;

    void note(uint32_t number, uint32_t applied);

    std::vector<ClientFault> faults_;
    Number switch_;
    Number agent_ = {};
    uint32_t edition_ = 0;
    std::optional<uint32_t> edition_in_force_; // not set: no agent has said
    uint64_t applied_ = 0;
};

} // namespace vswitch

#endif
