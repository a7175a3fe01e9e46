// SPDX-License-Identifier: Apache-2.0
// The room `network`: sockets, frames, conversations and shared memory; bytes in, bytes out.
// May include services/, below it changes/, model/ and contract/, and the memory's layout of
// the platform.
//
// The daemon's socket: one Unix stream socket, one thread, one loop. It serves processes
// of root, of the daemon's own user and, when the operator has named one, of a group;
// others are disconnected, whatever the file permissions let through.
#ifndef VSWITCH_SERVER_H
#define VSWITCH_SERVER_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "services/served_switch.h"

namespace vswitch {

struct ServerOptions {
    std::string run_directory; // made when missing; holds the socket and its lock file
    std::string group;         // who else may connect; empty for nobody
    // Beyond so many, a new client gets the place of one that has been silent for so long.
    size_t max_connections = 512;
    std::chrono::milliseconds idle_time{1000};
    // A client that leaves a frame unfinished, or its answers unread, for so long is dropped.
    std::chrono::milliseconds stall_timeout{30000};
};

class Server {
  public:
    // Listens. Replaces a socket that a killed daemon left behind, never one that
    // another daemon serves. Throws Refusal. `the_switch` must outlive the server.
    Server(ServedSwitch &the_switch, ServerOptions options);
    ~Server();
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    // Serves until SIGTERM, SIGINT or stop(), then closes all connections and removes
    // the socket. `reload` is called on SIGHUP and must not throw.
    void run(const std::function<void()> &reload);

    // Ends run(), now or as soon as it is called. May be called on any thread.
    void stop();

    const std::string &socket_path() const;

  private:
    class Loop;
    std::unique_ptr<Loop> loop_;
};

} // namespace vswitch

#endif
