// SPDX-License-Identifier: Apache-2.0
#include "tool/captured_output.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fmt/format.h>
#include <sys/mman.h>
#include <unistd.h>

#include "tool/client.h"

namespace vswitchctl {

CapturedOutput::CapturedOutput() : kept_(memfd_create("output", MFD_CLOEXEC)), former_(dup(STDOUT_FILENO)) {
    std::fflush(stdout);
    if (kept_ < 0 || former_ < 0 || dup2(kept_, STDOUT_FILENO) < 0) {
        const int reason = errno;
        close(kept_);
        close(former_);
        throw Refusal(fmt::format("Cannot keep what a command prints: {}.", std::strerror(reason)));
    }
}

CapturedOutput::~CapturedOutput() {
    std::fflush(stdout);
    dup2(former_, STDOUT_FILENO);
    close(former_);
    close(kept_);
}

std::string CapturedOutput::text() const {
    std::fflush(stdout);
    std::string text;
    char piece[4096];
    for (ssize_t length; (length = pread(kept_, piece, sizeof piece, static_cast<off_t>(text.size()))) > 0;) {
        text.append(piece, static_cast<size_t>(length));
    }
    return text;
}

} // namespace vswitchctl
