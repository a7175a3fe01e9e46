// SPDX-License-Identifier: Apache-2.0
// Faults: what the operator wants the switch to do wrong, so that a management
// application's handling of errors can be tested. They live in memory only; a switch
// that starts has none.
#ifndef VSWITCH_FAULTS_H
#define VSWITCH_FAULTS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "services/request.h"

namespace vswitch {

// Which requests a fault is for; what is not set matches all. A request names a VSAN or
// an interface when the record of its opcode does, whether or not they exist.
struct FaultMatch {
    std::optional<uint32_t> service = std::nullopt;
    std::optional<uint32_t> opcode = std::nullopt;
    std::optional<uint32_t> kind = std::nullopt;
    std::optional<uint32_t> vsan = std::nullopt;
    std::optional<uint32_t> if_index = std::nullopt;
};

enum class FaultAction {
    status,      // answers `value` as status; without data, the request is not carried out
    delay,       // serves the request `value` milliseconds later
    no_data,     // carries the request out and answers status 0 without data
    short_reply, // carries the request out and cuts the reply's data to `value` bytes
    drop,        // neither carries the request out nor answers it
    close,       // closes the connection instead
    exit         // ends the daemon at once, as a crash would, to stay away for `value` seconds
};

struct Fault {
    uint32_t number = 0; // what the operator calls it; given by Faults::add
    FaultMatch match;
    FaultAction action = FaultAction::drop;
    uint32_t value = 0;
    bool with_data = false;            // of `status`: carry the request out and answer its data too
    std::optional<uint32_t> remaining; // how often it still applies; not set: until cleared
    uint64_t applied = 0;              // how often it has applied
};

class Faults {
  public:
    static constexpr size_t max_faults = 256;
    static constexpr uint32_t max_delay = 600000; // milliseconds

    // Adds a fault behind the others and returns its number, or 0 when there are
    // max_faults already.
    uint32_t add(Fault fault);

    // The number of a fault that is kept elsewhere: none of this list's, and none twice.
    uint32_t take_number() { return ++last_number_; }

    // Removes one fault; false when there is none of that number.
    bool clear(uint32_t number);

    // Removes all. Returns how many there were.
    size_t clear();

    // The first fault that matches the request, counted as applied; one that has applied
    // as often as it should is gone afterwards. Requests to the switch's own service
    // match none, so that faults can always be cleared.
    std::optional<Fault> take(const Request &request);

    const std::vector<Fault> &list() const { return faults_; }

    // How often any fault has applied since the start.
    uint64_t applied() const { return applied_; }

  private:
    std::vector<Fault> faults_;
    uint32_t last_number_ = 0;
    uint64_t applied_ = 0;
};

// The exit status of a daemon that a fault ended.
constexpr int fault_exit_status = 3;

} // namespace vswitch

#endif
