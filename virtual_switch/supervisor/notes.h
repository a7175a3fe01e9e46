// SPDX-License-Identifier: Apache-2.0
// What a program tells the supervisor (contract/supervisor.h), over a pipe that lives as long as the program.
#ifndef SUPERVISOR_NOTES_H
#define SUPERVISOR_NOTES_H

#include <asio.hpp>
#include <chrono>
#include <functional>
#include <string>

namespace supervisor {

class Notes {
  public:
    // `ready` is called from the loop, or from read(), each time that readiness is told.
    Notes(asio::io_context &context, std::function<void()> ready);

    // Begins anew with a pipe of which nothing has been read, and returns the end to write to, which is
    // closed by close_writer(). Throws Problem.
    int open();

    // To be called when the process has its own: the end of what is told is seen then.
    void close_writer();

    // Reads what has been told so far; for one who has ended that is all.
    void read();

    // Nothing more is heard.
    void close();

    // How long the program has said that it will stay away, in seconds; 0 when it has not.
    std::chrono::seconds away() const { return away_; }

  private:
    void wait();
    void take(const char *data, size_t size);
    void take_line(const std::string &line);

    asio::posix::stream_descriptor reader_;
    asio::posix::stream_descriptor writer_;
    std::function<void()> ready_;
    std::string line_;
    std::chrono::seconds away_{0};
    unsigned opened_ = 0; // tells a pipe from former ones
};

} // namespace supervisor

#endif
