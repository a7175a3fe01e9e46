// SPDX-License-Identifier: Apache-2.0
#include "model/files.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "model/switch_data.h"

namespace vswitch {

namespace {

class Descriptor {
  public:
    explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
    ~Descriptor() {
        if (descriptor_ >= 0) {
            close(descriptor_);
        }
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    int get() const { return descriptor_; }
    int release() {
        const int descriptor = descriptor_;
        descriptor_ = -1;
        return descriptor;
    }

  private:
    int descriptor_;
};

} // namespace

namespace {

// All that comes from a descriptor; `path` names it in errors.
std::string read_all(int file, const std::string &path, size_t max_size) {
    std::string content;
    char chunk[16384];
    for (;;) {
        const ssize_t got = read(file, chunk, sizeof chunk);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            throw Refusal(fmt::format("Cannot read {}: {}.", path, std::strerror(errno)));
        }
        if (got == 0) {
            return content;
        }
        content.append(chunk, static_cast<size_t>(got));
        if (content.size() > max_size) {
            throw Refusal(fmt::format("Cannot use {}: it is larger than {} bytes.", path, max_size));
        }
    }
}

} // namespace

std::optional<std::string> read_file(const std::string &path, size_t max_size) {
    // Without O_NONBLOCK, opening a FIFO would wait for a writer.
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW));
    if (file.get() < 0) {
        if (errno == ENOENT) {
            return std::nullopt;
        }
        throw Refusal(fmt::format("Cannot read {}: {}.", path, errno == ELOOP ? "it is a link" : std::strerror(errno)));
    }
    struct stat status {};
    if (fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        throw Refusal(fmt::format("Cannot read {}: it is not a regular file.", path));
    }
    return read_all(file.get(), path, max_size);
}

std::string read_standard_input(size_t max_size) {
    return read_all(STDIN_FILENO, "standard input", max_size);
}

namespace {

void sync(const std::string &path, int flags) {
    const Descriptor opened(open(path.c_str(), O_RDONLY | O_CLOEXEC | flags));
    if (opened.get() < 0) {
        throw Refusal(fmt::format("Cannot open {}: {}.", path, std::strerror(errno)));
    }
    if (fsync(opened.get()) != 0) {
        throw Refusal(fmt::format("Cannot write {}: {}.", path, std::strerror(errno)));
    }
}

} // namespace

void sync_file(const std::string &path) {
    sync(path, O_NOFOLLOW);
}

void sync_directory(const std::string &directory) {
    sync(directory, O_DIRECTORY);
}

namespace {

// Each returns false with errno set when it fails.

bool write_all(int file, std::string_view content) {
    while (!content.empty()) {
        const ssize_t written = write(file, content.data(), content.size());
        if (written < 0 && errno != EINTR) {
            return false;
        }
        if (written > 0) {
            content.remove_prefix(static_cast<size_t>(written));
        }
    }
    return true;
}

bool admit_group_of(const std::string &folder, int file) {
    struct stat status {};
    if (stat(folder.c_str(), &status) != 0) {
        return false;
    }
    return (status.st_mode & S_IXGRP) == 0 ||
           (fchown(file, static_cast<uid_t>(-1), status.st_gid) == 0 && fchmod(file, 0640) == 0);
}

} // namespace

FileDraft::FileDraft(const std::string &path, std::string_view content, Readers readers)
    : path_(path), draft_(path + ".new") {
    const std::string folder = std::filesystem::path(path).parent_path().string();
    unlink(draft_.c_str());
    const Descriptor file(open(draft_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (file.get() < 0) {
        throw Refusal(fmt::format("Cannot write {}: {}.", path, std::strerror(errno)));
    }
    if ((readers == Readers::folder_group && !admit_group_of(folder, file.get())) || !write_all(file.get(), content) ||
        fsync(file.get()) != 0) {
        const int error = errno;
        unlink(draft_.c_str());
        throw Refusal(fmt::format("Cannot write {}: {}.", path, std::strerror(error)));
    }
}

FileDraft::~FileDraft() {
    if (!draft_.empty()) {
        unlink(draft_.c_str());
    }
}

void FileDraft::take_place() {
    if (rename(draft_.c_str(), path_.c_str()) != 0) {
        throw Refusal(fmt::format("Cannot write {}: {}.", path_, std::strerror(errno)));
    }
    draft_.clear();
    sync_directory(std::filesystem::path(path_).parent_path().string());
}

void replace_file(const std::string &path, std::string_view content, Readers readers) {
    FileDraft(path, content, readers).take_place();
}

bool ensure_directory(const std::string &path, const char *purpose) {
    std::error_code error;
    const bool made = std::filesystem::create_directories(path, error);
    if (error) {
        throw Refusal(fmt::format("Cannot make the {} {}: {}.", purpose, path, error.message()));
    }
    return made;
}

std::optional<FileState> file_state(const std::string &path) {
    // The call whose numbers have 64 bits on every machine.
    struct statx status {};
    if (statx(AT_FDCWD, path.c_str(), 0, STATX_INO | STATX_SIZE | STATX_MTIME, &status) != 0) {
        return std::nullopt;
    }
    return FileState{status.stx_dev_major, status.stx_dev_minor,    status.stx_ino,
                     status.stx_size,      status.stx_mtime.tv_sec, status.stx_mtime.tv_nsec};
}

Lock::Lock(On what, const std::string &path, const std::string &busy) : descriptor_(-1) {
    Descriptor file(what == On::folder ? open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)
                                       : open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (file.get() < 0) {
        throw Refusal(fmt::format("Cannot open {}: {}.", path, std::strerror(errno)));
    }
    if (flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK) {
            throw Refusal(busy);
        }
        throw Refusal(fmt::format("Cannot lock {}: {}.", path, std::strerror(errno)));
    }
    descriptor_ = file.release();
}

Lock::~Lock() {
    close(descriptor_);
}

} // namespace vswitch
