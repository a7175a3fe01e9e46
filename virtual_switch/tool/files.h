// SPDX-License-Identifier: Apache-2.0
// Files that the operator names.
#ifndef VSWITCHCTL_FILES_H
#define VSWITCHCTL_FILES_H

#include <cstddef>
#include <string>

namespace vswitchctl {

// The whole content of a file, or of standard input for "-". Throws Refusal where it cannot be read, or has
// more than `most` bytes, of which no more are read.
std::string read_input(const std::string &path, size_t most);

// Throws Refusal when there is something under that name.
void require_absent(const std::string &path);

// Writes a file that only its owner may read. It appears under its name when it is on the disk, and not
// at all when that fails; being interrupted waits for that. What is there already stays, and Refusal is
// thrown, unless it may be replaced.
void write_whole(const std::string &path, const std::string &content, bool replace);

} // namespace vswitchctl

#endif
