// SPDX-License-Identifier: Apache-2.0
#include "network/socket_place.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <grp.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include "contract/run_directory.h"
#include "model/switch_data.h"

namespace vswitch {

namespace {

std::optional<gid_t> find_group(const std::string &name) {
    if (name.empty()) {
        return std::nullopt;
    }
    const struct group *entry = getgrnam(name.c_str());
    if (!entry) {
        throw Refusal(fmt::format("There is no group named {}.", name));
    }
    return entry->gr_gid;
}

// The supplementary groups of the process at the other end; none when they are not known.
std::vector<gid_t> groups_of_peer(int descriptor) {
    std::vector<gid_t> groups(64);
    for (;;) {
        auto size = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
        const int result = getsockopt(descriptor, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size);
        if (result != 0 && errno != ERANGE) {
            return {};
        }
        groups.resize(size / sizeof(gid_t));
        if (result == 0) {
            return groups;
        }
    }
}

// Whether a process listens on a socket: its kernel refuses nobody then, though there may be
// no room for us, or no right to enter.
bool is_served(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int visitor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (visitor < 0) {
        throw Refusal(fmt::format("Cannot make a socket: {}.", std::strerror(errno)));
    }
    const bool served = connect(visitor, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 ||
                        (errno != ECONNREFUSED && errno != ENOENT);
    close(visitor);
    return served;
}

} // namespace

SocketPlace::SocketPlace(const std::string &run_directory, const std::string &group)
    : path_(run_directory + "/" MTS_SOCKET_NAME), group_(find_group(group)) {
    if (path_.size() >= sizeof(sockaddr_un::sun_path)) {
        throw Refusal(fmt::format("The socket's path {} is too long: {} bytes where {} are possible; choose a "
                                  "shorter run directory.",
                                  path_, path_.size(), sizeof(sockaddr_un::sun_path) - 1));
    }
    const bool made = ensure_directory(run_directory, "run directory");
    const std::string busy =
        fmt::format("Another vswitchd serves {}; stop it first or choose another run directory.", path_);
    lock_.emplace(Lock::On::file, run_directory + "/socket.lock", busy);
    if (group_) {
        admit_group(run_directory, made);
    }
    struct stat status {};
    if (lstat(path_.c_str(), &status) == 0) {
        if (!S_ISSOCK(status.st_mode)) {
            throw Refusal(fmt::format("The file {} is in the socket's place; move it away.", path_));
        }
        // The lock does not tell when somebody has removed its file.
        if (is_served(path_)) {
            throw Refusal(busy);
        }
        remove();
    }
}

void SocketPlace::set_permissions() const {
    // Should others write in the run directory, they may have put a link there.
    if ((group_ && lchown(path_.c_str(), static_cast<uid_t>(-1), *group_) != 0) ||
        fchmodat(AT_FDCWD, path_.c_str(), group_ ? 0660 : 0600, AT_SYMLINK_NOFOLLOW) != 0) {
        throw Refusal(fmt::format("Cannot set the permissions of {}: {}.", path_, std::strerror(errno)));
    }
}

void SocketPlace::remove() const {
    unlink(path_.c_str());
}

bool SocketPlace::may_connect(int descriptor, const ucred &peer) const {
    if (peer.uid == 0 || peer.uid == geteuid()) {
        return true;
    }
    if (!group_) {
        return false;
    }
    if (peer.gid == *group_) {
        return true;
    }
    const auto groups = groups_of_peer(descriptor);
    return std::find(groups.begin(), groups.end(), *group_) != groups.end();
}

// Lets the group enter. A folder that is not ours alone stays as it is: somebody else has
// already decided who may enter it.
void SocketPlace::admit_group(const std::string &directory, bool made) const {
    struct stat status {};
    if (stat(directory.c_str(), &status) != 0) {
        throw Refusal(fmt::format("Cannot read {}: {}.", directory, std::strerror(errno)));
    }
    if (!made && (status.st_uid != geteuid() || (status.st_mode & 07) != 0)) {
        return;
    }
    if (chown(directory.c_str(), static_cast<uid_t>(-1), *group_) != 0 || chmod(directory.c_str(), 0750) != 0) {
        throw Refusal(fmt::format("Cannot set the permissions of {}: {}.", directory, std::strerror(errno)));
    }
}

} // namespace vswitch
