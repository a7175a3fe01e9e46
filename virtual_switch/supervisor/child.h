// SPDX-License-Identifier: Apache-2.0
// The life of one program:
//
//   idle -> preparing -> running -> idle -> waiting -> preparing ...
//
// It is prepared while its attendant has not said that it may be started; without attendant it runs at
// once. Between two lives it is idle until its owner decides, and waiting until the time for the next has
// come. Whatever its state, halt() makes it halted, and nothing is started any more.
#ifndef SUPERVISOR_CHILD_H
#define SUPERVISOR_CHILD_H

#include <asio.hpp>
#include <optional>
#include <sys/types.h>

#include "supervisor/description.h"
#include "supervisor/notes.h"
#include "supervisor/process.h"
#include "supervisor/restart_policy.h"

namespace supervisor {

class Child;

// What the owner of a child learns of it.
class ChildOwner {
  public:
    // It serves: told once in each of its lives, and whether this is the first in which it does.
    virtual void serves(Child &child, bool first) = 0;

    // It has ended, with this status of waitpid.
    virtual void has_ended(Child &child, int wait_status) = 0;

    // It could not be started; `why` is empty where its attendant did not let it, who has said why.
    virtual void could_not_start(Child &child, const std::string &why) = 0;

  protected:
    ~ChildOwner() = default;
};

class Child {
  public:
    // All three outlive it.
    Child(asio::io_context &context, const Program &program, ChildOwner &owner);
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    const Program &program() const { return program_; }

    // Whether it has ever served.
    bool has_served() const { return has_served_; }

    // Begins a life, now. The child must be idle.
    void start();

    // Begins the next life as soon as the rules allow; returns how long that takes, or nothing when it has been
    // too often. The child must be idle.
    std::optional<std::chrono::milliseconds> start_again();

    // A process has ended: reaps it where it is one of this child's, else returns false.
    bool reap(pid_t process);

    // No life begins any more, and the owner learns nothing more.
    void halt();

    // Asks all of its processes to end, and insists after ten seconds. It must be halted.
    void end();

    // Whether none of its processes is left.
    bool is_gone();

  private:
    enum class State { idle, preparing, running, waiting, halted };

    void prepare();
    void run();
    void told_ready();
    void attendant_ended(int wait_status);
    void program_ended(int wait_status);
    void note_serving();
    void fail(const std::string &why);

    const Program &program_;
    ChildOwner &owner_;
    asio::steady_timer timer_;
    Notes notes_;
    RestartPolicy policy_;
    Process process_;
    Process attendant_;
    State state_ = State::idle;
    bool serves_ = false; // in this life
    bool has_served_ = false;
};

} // namespace supervisor

#endif
