// SPDX-License-Identifier: Apache-2.0
// The room `supervisor`: vswitch-supervisor, which starts, watches and restarts the programs of a switch. It
// knows them by contract/ and by what it is told to start.
#ifndef SUPERVISOR_SUPERVISOR_H
#define SUPERVISOR_SUPERVISOR_H

#include <asio.hpp>
#include <list>
#include <string>
#include <vector>

#include "supervisor/child.h"

namespace supervisor {

struct Options {
    bool restart = true;
    std::string report; // the file of --report; empty: none
};

// Starts programs, one when the one before serves, and ends them in the opposite order. Sentences for the user
// go to standard error. Sleeps while nothing happens.
class Supervisor : private ChildOwner {
  public:
    Supervisor(const std::vector<Program> &programs, Options options);

    // Returns when all of them have ended: true when a signal has asked for that, false when one program could
    // not be started for the first time, has ended and is not to be restarted, or too often.
    bool run();

  private:
    void serves(Child &child, bool first) override;
    void has_ended(Child &child, int wait_status) override;
    void could_not_start(Child &child, const std::string &why) override;

    void await_signal();
    void reap();
    void start_next();
    void go_on(Child &child, const std::string &what);
    void stop(bool as_asked);
    void end_next();

    Options options_;
    asio::io_context context_{1};
    asio::signal_set signals_;
    std::list<Child> children_;
    bool stopping_ = false;
    bool as_asked_ = false;
    Child *ending_ = nullptr; // the last of those that are left
};

} // namespace supervisor

#endif
