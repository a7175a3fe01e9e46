// SPDX-License-Identifier: Apache-2.0
#include "tool/files.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tool/client.h"

namespace vswitchctl {

namespace {

[[noreturn]] void fail_reading(const std::string &path, const char *reason) {
    throw Refusal(fmt::format("Cannot read {}: {}.", path == "-" ? "standard input" : path, reason));
}

class Input {
  public:
    explicit Input(const std::string &path)
        : is_own_(path != "-"), descriptor_(is_own_ ? open(path.c_str(), O_RDONLY | O_CLOEXEC) : STDIN_FILENO) {
        if (descriptor_ < 0) {
            fail_reading(path, std::strerror(errno));
        }
    }
    ~Input() {
        if (is_own_) {
            close(descriptor_);
        }
    }
    Input(const Input &) = delete;
    Input &operator=(const Input &) = delete;
    int get() const { return descriptor_; }

  private:
    bool is_own_;
    int descriptor_;
};

// While it lives, what ends the program waits. That a file may not grow is an error of the call.
class Uninterrupted {
  public:
    Uninterrupted() {
        std::signal(SIGXFSZ, SIG_IGN);
        sigset_t signals;
        sigemptyset(&signals);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
            sigaddset(&signals, signal);
        }
        sigprocmask(SIG_BLOCK, &signals, &former_);
    }
    ~Uninterrupted() { sigprocmask(SIG_SETMASK, &former_, nullptr); }
    Uninterrupted(const Uninterrupted &) = delete;
    Uninterrupted &operator=(const Uninterrupted &) = delete;

  private:
    sigset_t former_;
};

// Each returns false with errno set when it fails.

bool write_to(int descriptor, const std::string &content) {
    size_t written = 0;
    while (written < content.size()) {
        const ssize_t result = write(descriptor, content.data() + written, content.size() - written);
        if (result < 0 && errno != EINTR) {
            return false;
        }
        written += static_cast<size_t>(std::max<ssize_t>(result, 0));
    }
    return fsync(descriptor) == 0;
}

bool put_in_place(const std::string &draft, const std::string &path, bool replace) {
    if (replace) {
        return rename(draft.c_str(), path.c_str()) == 0;
    }
    if (renameat2(AT_FDCWD, draft.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE) == 0) {
        return true;
    }
    // Not every file system can do that; others have no hard links.
    return (errno == EINVAL || errno == ENOSYS) && link(draft.c_str(), path.c_str()) == 0 && unlink(draft.c_str()) == 0;
}

void sync_folder_of(const std::string &path) {
    const std::string folder = std::filesystem::path(path).parent_path().string();
    const int descriptor = open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor >= 0) {
        fsync(descriptor);
        close(descriptor);
    }
}

[[noreturn]] void fail_existing(const std::string &path) {
    throw Refusal(fmt::format("{} exists; --force replaces it.", path));
}

} // namespace

std::string read_input(const std::string &path, size_t most) {
    const Input input(path);
    const auto too_large = [&] { fail_reading(path, fmt::format("it is larger than {} bytes", most).c_str()); };
    struct stat status {};
    if (fstat(input.get(), &status) == 0 && S_ISREG(status.st_mode) && static_cast<uint64_t>(status.st_size) > most) {
        too_large();
    }
    std::string content;
    char chunk[65536];
    for (;;) {
        const ssize_t got = read(input.get(), chunk, sizeof chunk);
        if (got < 0 && errno != EINTR) {
            fail_reading(path, std::strerror(errno));
        }
        if (got == 0) {
            return content;
        }
        content.append(chunk, static_cast<size_t>(std::max<ssize_t>(got, 0)));
        if (content.size() > most) {
            too_large();
        }
    }
}

void require_absent(const std::string &path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) == 0) {
        fail_existing(path);
    }
}

void write_whole(const std::string &path, const std::string &content, bool replace) {
    struct stat status {};
    if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        throw Refusal(fmt::format("{} is no regular file, and stays as it is.", path));
    }
    const Uninterrupted uninterrupted;
    std::string draft = path + ".XXXXXX";
    const int descriptor = mkostemp(draft.data(), O_CLOEXEC);
    if (descriptor < 0) {
        throw Refusal(fmt::format("Cannot write {}: {}.", path, std::strerror(errno)));
    }
    const bool written = write_to(descriptor, content);
    int error = errno;
    close(descriptor);
    if (!written || !put_in_place(draft, path, replace)) {
        error = written ? errno : error;
        unlink(draft.c_str());
        if (error == EEXIST) {
            fail_existing(path);
        }
        throw Refusal(fmt::format("Cannot write {}: {}.", path, std::strerror(error)));
    }
    sync_folder_of(path);
}

} // namespace vswitchctl
