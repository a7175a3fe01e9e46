// SPDX-License-Identifier: Apache-2.0
// Why something is not done: the one exception of the switch.
#ifndef VSWITCH_REFUSAL_H
#define VSWITCH_REFUSAL_H

#include <cstdint>
#include <stdexcept>
#include <string>

#include "contract/status_codes.h"

namespace vswitch {

// The switch cannot run, a file cannot be used or a command is refused. The text is one sentence for
// the operator; where it is about a file, it names it, and says what to do where that is not obvious.
class Refusal : public std::runtime_error {
  public:
    explicit Refusal(const std::string &sentence) : Refusal(STATUS_BAD_RECORD, sentence) {}
    Refusal(uint32_t why, const std::string &sentence) : std::runtime_error(sentence), status(why) {}

    const uint32_t status; // what a refused command is answered
};

} // namespace vswitch

#endif
