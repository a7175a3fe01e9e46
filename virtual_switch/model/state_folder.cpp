// SPDX-License-Identifier: Apache-2.0
#include "model/state_folder.h"

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "model/switch_data.h"

namespace vswitch {

namespace {

using Folder = std::unique_ptr<DIR, int (*)(DIR *)>;

std::string user_name(uid_t number) {
    const struct passwd *entry = getpwuid(number);
    return entry ? entry->pw_name : fmt::format("user {}", number);
}

// Opens a folder, but not what a link leads to. None if it has gone meanwhile.
Folder open_folder(int parent, const char *name, const std::string &path) {
    const int descriptor = openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    Folder folder(descriptor >= 0 ? fdopendir(descriptor) : nullptr, closedir);
    if (folder || (descriptor < 0 && errno == ENOENT)) {
        return folder;
    }
    const int error = errno;
    if (descriptor >= 0) {
        close(descriptor);
    }
    throw Refusal(fmt::format("Cannot read {}: {}.", path, std::strerror(error)));
}

void check_entry(const std::string &path, const struct stat &status, bool is_open) {
    if (S_ISLNK(status.st_mode)) {
        throw Refusal(fmt::format("{} is a link, and links in a state folder are not followed; put there what it "
                                  "leads to.",
                                  path));
    }
    if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode) && !S_ISSOCK(status.st_mode)) {
        throw Refusal(fmt::format("{} is no file, folder or socket.", path));
    }
    if (status.st_uid != geteuid() && status.st_uid != 0) {
        const std::string self = user_name(geteuid());
        throw Refusal(fmt::format("{} belongs to {}, and not to {}; look through it and make it yours (chown -R {}), "
                                  "or run this as {} or choose another --state.",
                                  path, user_name(status.st_uid), self, self, user_name(status.st_uid)));
    }
    if (is_open && (status.st_mode & (S_IWGRP | S_IWOTH)) != 0 && !S_ISSOCK(status.st_mode)) {
        throw Refusal(fmt::format("{} can be written by others than its owner; look at what it holds, then take that "
                                  "away (chmod go-w).",
                                  path));
    }
}

// The status of what a folder was opened as.
struct stat status_of(const Folder &folder, const std::string &path) {
    struct stat status {};
    if (fstat(dirfd(folder.get()), &status) != 0) {
        throw Refusal(fmt::format("Cannot read {}: {}.", path, std::strerror(errno)));
    }
    return status;
}

void check_folder(const Folder &folder, const std::string &path, bool is_open) {
    const int descriptor = dirfd(folder.get());
    check_entry(path, status_of(folder, path), is_open);
    while (const dirent *entry = readdir(folder.get())) {
        const std::string name = entry->d_name;
        const std::string inner_path = fmt::format("{}/{}", path, name);
        struct stat status {};
        // What comes and goes while an agent runs may have gone.
        if (name == "." || name == ".." || fstatat(descriptor, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
            continue;
        }
        check_entry(inner_path, status, is_open);
        if (!S_ISDIR(status.st_mode)) {
            continue;
        }
        if (const Folder inner = open_folder(descriptor, name.c_str(), inner_path)) {
            check_folder(inner, inner_path, is_open);
        }
    }
}

} // namespace

void check_state_folder(const std::string &given) {
    std::error_code error;
    const std::string path = std::filesystem::canonical(given, error).string();
    const Folder folder = open_folder(AT_FDCWD, path.c_str(), given);
    if (!folder) {
        throw Refusal(fmt::format("Cannot read {}: {}.", given, std::strerror(ENOENT)));
    }
    check_folder(folder, path, (status_of(folder, path).st_mode & (S_IRWXG | S_IRWXO)) != 0);
}

} // namespace vswitch
