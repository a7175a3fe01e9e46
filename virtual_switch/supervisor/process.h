// SPDX-License-Identifier: Apache-2.0
// Processes that lead groups of their own, so that a Ctrl-C reaches none of them and each can be ended with
// all that it has started.
#ifndef SUPERVISOR_PROCESS_H
#define SUPERVISOR_PROCESS_H

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace supervisor {

// What a new process gets beside the descriptors that this one hands on to all. They stay the caller's.
struct Descriptors {
    std::optional<int> output;  // becomes its standard output and standard error
    std::optional<int> telling; // becomes its descriptor `telling_as`
    int telling_as;
};

// A process and its group. The group may outlive the process that leads it.
class Process {
  public:
    bool is_running() const { return leader_ > 0; }
    bool is_leader(pid_t process) const { return is_running() && process == leader_; }

    // Starts `words`, the first of which names the program. It gets SIGTERM when this process ends, however
    // that ends. One that cannot be executed says so on its standard error and ends with 127. Throws Problem
    // when there can be no more processes. It must not be running; who is left of its former group is killed.
    void start(const std::vector<std::string> &words, const Descriptors &descriptors);

    // The leader has ended: reaps it, after telling who is left of its group to end, too. Returns its status as
    // waitpid does.
    int reap();

    // Sends a signal to all of the group.
    void signal(int number) const;

    // Whether nobody of the group is left. Whose parents have ended must have been reaped.
    bool is_gone();

  private:
    pid_t leader_ = -1; // while it runs
    pid_t group_ = -1;  // while there may be somebody in it
};

// What the status of waitpid says: "was ended by signal 9", "ended with status 1".
std::string how_it_ended(int wait_status);

// The same as shells number it: 128 and more for signals.
int shell_status(int wait_status);

} // namespace supervisor

#endif
