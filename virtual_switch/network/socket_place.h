// SPDX-License-Identifier: Apache-2.0
// Where the daemon listens, and whom it lets in.
#ifndef VSWITCH_SOCKET_PLACE_H
#define VSWITCH_SOCKET_PLACE_H

#include <optional>
#include <string>
#include <sys/socket.h>
#include <sys/types.h>

#include "model/files.h"

namespace vswitch {

// The run directory, its lock and the socket's name in it, for as long as one serves.
class SocketPlace {
  public:
    // `group` names who else may connect; empty for nobody. Throws Refusal.
    SocketPlace(const std::string &run_directory, const std::string &group);
    ~SocketPlace() { remove(); }
    SocketPlace(const SocketPlace &) = delete;
    SocketPlace &operator=(const SocketPlace &) = delete;

    const std::string &path() const { return path_; }

    // Binding left the socket to the umask; from here on it has its final permissions.
    void set_permissions() const;

    void remove() const;

    // Whether a process may use the switch: one of root, of the daemon's own user, or of
    // the group that the operator has named.
    bool may_connect(int descriptor, const ucred &peer) const;

  private:
    void admit_group(const std::string &directory, bool made) const;

    std::string path_;
    std::optional<gid_t> group_;
    std::optional<Lock> lock_;
};

} // namespace vswitch

#endif
