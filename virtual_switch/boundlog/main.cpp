// SPDX-License-Identifier: Apache-2.0
// boundlog FILE: writes standard input to a log until its end, and keeps the log from filling
// the disk, whatever the programs behind it say and whoever makes them say it:
//
// - FILE never holds more than `max_size` bytes. When the next line would not fit, FILE becomes
//   FILE.old, in the place of the former one, and begins anew.
// - Beyond its first `small_size` bytes FILE grows only while the disk has `reserve` bytes left:
//   those are the database's, which lies on the same disk. What is not written is counted, and
//   the count is written when there is room again.
//
// It goes on reading whatever happens to FILE, so that nobody waits for a log.
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace {

constexpr uint64_t max_size = uint64_t{4} << 20;
constexpr uint64_t small_size = uint64_t{64} << 10;
constexpr uint64_t reserve = uint64_t{64} << 20;

class BoundedLog {
  public:
    explicit BoundedLog(std::string path) : path_(std::move(path)) { open_file(); }
    ~BoundedLog() { close_file(); }
    BoundedLog(const BoundedLog &) = delete;
    BoundedLog &operator=(const BoundedLog &) = delete;

    void write(std::string_view text);

  private:
    void open_file();
    void close_file();
    void begin_anew();
    bool has_room(size_t length) const;
    void append(std::string_view text);
    size_t append_once(std::string_view text);

    std::string path_;
    int file_ = -1; // none while the file cannot be opened
    uint64_t size_ = 0;
    uint64_t left_out_ = 0; // bytes since the last that were written
};

void BoundedLog::open_file() {
    // Without O_NONBLOCK, opening a FIFO would wait for a reader.
    file_ = open(path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
    struct stat status {};
    if (file_ >= 0 && (fstat(file_, &status) != 0 || !S_ISREG(status.st_mode))) {
        close_file();
    }
    size_ = file_ >= 0 ? static_cast<uint64_t>(status.st_size) : 0;
}

void BoundedLog::close_file() {
    if (file_ >= 0) {
        close(file_);
    }
    file_ = -1;
}

void BoundedLog::begin_anew() {
    close_file();
    // Should it keep its name, it is emptied: it is the bound that counts.
    if (rename(path_.c_str(), (path_ + ".old").c_str()) != 0 && truncate(path_.c_str(), 0) != 0) {
        unlink(path_.c_str());
    }
    size_ = 0;
}

bool BoundedLog::has_room(size_t length) const {
    struct statvfs disk {};
    return size_ + length <= small_size || (size_ + length <= max_size && fstatvfs(file_, &disk) == 0 &&
                                            uint64_t{disk.f_bavail} * disk.f_frsize >= reserve + length);
}

// Writes what the disk takes, and returns how much that was.
size_t BoundedLog::append_once(std::string_view text) {
    if (file_ < 0) {
        open_file();
    }
    if (file_ < 0 || !has_room(text.size())) {
        return 0;
    }
    ssize_t written;
    do {
        written = ::write(file_, text.data(), text.size());
    } while (written < 0 && errno == EINTR);
    const size_t length = written > 0 ? static_cast<size_t>(written) : 0;
    size_ += length;
    return length;
}

void BoundedLog::append(std::string_view text) {
    if (left_out_ != 0) {
        const std::string gap = "boundlog: " + std::to_string(left_out_) + " bytes were left out, for want of room\n";
        if (append_once(gap) == gap.size()) {
            left_out_ = 0;
        }
    }
    left_out_ += text.size() - (left_out_ == 0 ? append_once(text) : 0);
}

// A log ends where a line does, where it can.
void BoundedLog::write(std::string_view text) {
    while (!text.empty()) {
        const uint64_t room = max_size - std::min(size_, max_size);
        std::string_view part = text.substr(0, static_cast<size_t>(std::min<uint64_t>(room, text.size())));
        if (part.size() < text.size()) {
            part = part.substr(0, part.rfind('\n') + 1);
        }
        if (part.empty()) {
            begin_anew();
            continue;
        }
        append(part);
        text.remove_prefix(part.size());
    }
}

} // namespace

int main(int argc, char **argv) {
    if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
        std::puts("boundlog " VSWITCH_VERSION);
        return 0;
    }
    if (argc != 2 || argv[1][0] == '-') {
        std::fputs("Usage: boundlog FILE\n", stderr);
        return 2;
    }
    // A file that may not grow is an error of the call.
    std::signal(SIGXFSZ, SIG_IGN);
    BoundedLog log(argv[1]);
    char text[16384];
    size_t size = 0;
    for (;;) {
        const ssize_t got = read(STDIN_FILENO, text + size, sizeof text - size);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        size += got > 0 ? static_cast<size_t>(got) : 0;
        // A line is written as a whole, unless it is longer than this or never ends.
        const size_t end = std::string_view(text, size).rfind('\n') + 1;
        const size_t whole = got <= 0 || (end == 0 && size == sizeof text) ? size : end;
        log.write({text, whole});
        if (got <= 0) {
            return 0;
        }
        size -= whole;
        std::memmove(text, text + whole, size);
    }
}
