// SPDX-License-Identifier: Apache-2.0
// Chance that repeats itself: what is drawn follows from the seed alone, on every machine and with
// every library.
#ifndef VSWITCHCTL_CHANCE_H
#define VSWITCHCTL_CHANCE_H

#include <cstdint>

namespace vswitchctl {

// The generator SplitMix64: a counter that steps by the golden ratio, and is mixed. It is eight bytes, so
// that each line of a scenario has one of its own, and what one line draws does not hang on the others.
class Chance {
  public:
    // Another sequence for each seed and each line.
    Chance(uint64_t seed, uint32_t line) : state_(mixed(seed) + line) { state_ = mixed(state_); }

    // The next number, from 0 to `count` - 1; `count` is 1 at least. It is the upper half of the generator's
    // number, times `count`, divided by 2 to the 32nd.
    uint32_t below(uint32_t count) {
        state_ += step;
        return static_cast<uint32_t>((mixed(state_) >> 32) * count >> 32);
    }

  private:
    static constexpr uint64_t step = 0x9E3779B97F4A7C15u;

    static constexpr uint64_t mixed(uint64_t value) {
        value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9u;
        value = (value ^ (value >> 27)) * 0x94D049BB133111EBu;
        return value ^ (value >> 31);
    }

    uint64_t state_;
};

} // namespace vswitchctl

#endif
