// SPDX-License-Identifier: Apache-2.0
// What is measured: a stream of operations of one kind, run for a slice of time at a time.
#ifndef BENCH_STREAM_H
#define BENCH_STREAM_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <stdexcept>

namespace bench {

using Clock = std::chrono::steady_clock;

// Why nothing can be measured: no answer, a wrong one, a bad description.
class Failure : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// When a slice ends: at a time, or after a number of operations.
struct Limit {
    Clock::time_point until = Clock::time_point::max();
    uint64_t operations = UINT64_MAX;

    bool reached(uint64_t started) const {
        return started >= operations || (until != Clock::time_point::max() && Clock::now() >= until);
    }
};

class Stream {
  public:
    virtual ~Stream() = default;

    // Starts operations until the limit is reached, and returns when the last of them is
    // done: the number of items (varbinds, commits) that were carried out. Goes on where the
    // slice before has ended. Throws Failure when one does not end as it must.
    virtual uint64_t run(const Limit &limit) = 0;

    // How many operations take a stream once through all of its instances.
    virtual uint64_t operations_per_pass() const = 0;
};

// The stream that a description names, as snmp_load --help explains. Throw Failure or
// nlohmann::json::exception.
std::unique_ptr<Stream> make_snmp_stream(const nlohmann::json &description);
std::unique_ptr<Stream> make_commit_stream(const nlohmann::json &description);

} // namespace bench

#endif
