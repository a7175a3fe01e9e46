// SPDX-License-Identifier: Apache-2.0
#include "supervisor/process.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "supervisor/description.h"

namespace supervisor {

namespace {

constexpr int exit_not_executed = 127;

// Signals that this process handles or ignores, and a new one is not to.
constexpr int own_signals[] = {SIGCHLD, SIGHUP, SIGINT, SIGPIPE, SIGTERM};

// All signals wait while this lives: one that came to a new process before it is on its own would be
// taken for one to this process, whose handlers it still has.
class SignalsHeld {
  public:
    SignalsHeld() {
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_SETMASK, &all, &former_);
    }
    ~SignalsHeld() { release(); }
    SignalsHeld(const SignalsHeld &) = delete;
    SignalsHeld &operator=(const SignalsHeld &) = delete;
    void release() const { sigprocmask(SIG_SETMASK, &former_, nullptr); }

  private:
    sigset_t former_;
};

void place_descriptors(const Descriptors &descriptors) {
    if (descriptors.output) {
        dup2(*descriptors.output, STDOUT_FILENO);
        dup2(*descriptors.output, STDERR_FILENO);
    }
    // One that is in its place already would still be closed by exec.
    if (descriptors.telling == descriptors.telling_as) {
        fcntl(descriptors.telling_as, F_SETFD, 0);
    } else if (descriptors.telling) {
        dup2(*descriptors.telling, descriptors.telling_as);
    }
}

[[noreturn]] void become(const std::vector<char *> &words, const Descriptors &descriptors, pid_t parent,
                         const SignalsHeld &held) {
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) {
        _exit(exit_not_executed); // it has ended before it could be known to end
    }
    place_descriptors(descriptors);
    for (const int number : own_signals) {
        std::signal(number, SIG_DFL);
    }
    held.release();
    execvp(words[0], words.data());
    dprintf(STDERR_FILENO, "cannot start %s: %s\n", words[0], std::strerror(errno));
    _exit(exit_not_executed);
}

} // namespace

void Process::start(const std::vector<std::string> &words, const Descriptors &descriptors) {
    std::vector<char *> pointers;
    pointers.reserve(words.size() + 1);
    for (const std::string &word : words) {
        pointers.push_back(const_cast<char *>(word.c_str()));
    }
    pointers.push_back(nullptr);
    if (!is_gone()) {
        signal(SIGKILL);
    }
    const pid_t parent = getpid();
    const SignalsHeld held;
    const pid_t process = fork();
    if (process == 0) {
        become(pointers, descriptors, parent, held);
    }
    if (process < 0) {
        throw Problem(fmt::format("cannot start {}: {}", words[0], std::strerror(errno)));
    }
    setpgid(process, process); // whoever of the two comes first
    leader_ = group_ = process;
}

int Process::reap() {
    // Before: its number may be another group's after.
    signal(SIGTERM);
    int status = 0;
    waitpid(leader_, &status, 0);
    leader_ = -1;
    return status;
}

void Process::signal(int number) const {
    if (group_ > 0) {
        kill(-group_, number);
    }
}

bool Process::is_gone() {
    if (!is_running() && group_ > 0 && kill(-group_, 0) != 0 && errno == ESRCH) {
        group_ = -1;
    }
    return group_ < 0;
}

std::string how_it_ended(int wait_status) {
    return WIFSIGNALED(wait_status) ? fmt::format("was ended by signal {}", WTERMSIG(wait_status))
                                    : fmt::format("ended with status {}", WEXITSTATUS(wait_status));
}

int shell_status(int wait_status) {
    return WIFSIGNALED(wait_status) ? 128 + WTERMSIG(wait_status) : WEXITSTATUS(wait_status);
}

} // namespace supervisor
