// SPDX-License-Identifier: Apache-2.0
#ifndef VSWITCHCTL_CAPTURED_OUTPUT_H
#define VSWITCHCTL_CAPTURED_OUTPUT_H

#include <string>

namespace vswitchctl {

// While it lives, what is printed to standard output is kept instead. One at a time.
class CapturedOutput {
  public:
    // Throws Refusal when there is no descriptor or no memory for it.
    CapturedOutput();
    ~CapturedOutput();
    CapturedOutput(const CapturedOutput &) = delete;
    CapturedOutput &operator=(const CapturedOutput &) = delete;

    // All that was printed so far.
    std::string text() const;

  private:
    int kept_;   // a file without a name
    int former_; // what standard output is otherwise
};

} // namespace vswitchctl

#endif
