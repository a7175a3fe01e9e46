// SPDX-License-Identifier: Apache-2.0
#ifndef VSWITCHCTL_USAGE_ERROR_H
#define VSWITCHCTL_USAGE_ERROR_H

#include <stdexcept>

namespace vswitchctl {

// What was typed is no command. The text is one sentence for who typed it.
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

} // namespace vswitchctl

#endif
