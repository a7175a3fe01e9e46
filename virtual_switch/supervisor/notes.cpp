// SPDX-License-Identifier: Apache-2.0
#include "supervisor/notes.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <string_view>
#include <unistd.h>
#include <utility>

#include "contract/supervisor.h"
#include "supervisor/description.h"

namespace supervisor {

namespace {

// No line that means anything is longer.
constexpr size_t longest_line = 64;

constexpr std::string_view away_word = SUPERVISOR_AWAY " ";

} // namespace

Notes::Notes(asio::io_context &context, std::function<void()> ready)
    : reader_(context), writer_(context), ready_(std::move(ready)) {}

int Notes::open() {
    close();
    line_.clear();
    away_ = std::chrono::seconds(0);
    // A program that tells more than is read must not wait for that.
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
        throw Problem(fmt::format("cannot make a pipe: {}", std::strerror(errno)));
    }
    reader_.assign(ends[0]);
    writer_.assign(ends[1]);
    wait();
    return ends[1];
}

void Notes::close_writer() {
    asio::error_code ignored;
    writer_.close(ignored);
}

void Notes::close() {
    ++opened_;
    asio::error_code ignored;
    reader_.close(ignored);
    close_writer();
}

void Notes::wait() {
    reader_.async_wait(asio::posix::stream_descriptor::wait_read,
                       [this, opened = opened_](const asio::error_code &error) {
                           if (!error && opened == opened_) {
                               read();
                               if (opened == opened_ && reader_.is_open()) {
                                   wait();
                               }
                           }
                       });
}

void Notes::read() {
    const unsigned opened = opened_;
    char data[256];
    // What is read may lead to another pipe, or to none.
    while (opened == opened_ && reader_.is_open()) {
        const ssize_t size = ::read(reader_.native_handle(), data, sizeof data);
        if (size > 0) {
            take(data, static_cast<size_t>(size));
        } else if (size == 0 || (errno != EINTR && errno != EAGAIN)) {
            asio::error_code ignored;
            reader_.close(ignored);
        } else if (errno == EAGAIN) {
            return;
        }
    }
}

void Notes::take(const char *data, size_t size) {
    const unsigned opened = opened_;
    for (size_t i = 0; i < size && opened == opened_; ++i) {
        if (data[i] == '\n') {
            take_line(std::exchange(line_, ""));
        } else if (line_.size() <= longest_line) {
            line_ += data[i];
        }
    }
}

void Notes::take_line(const std::string &line) {
    if (line == SUPERVISOR_READY) {
        ready_();
        return;
    }
    unsigned seconds = 0;
    const char *end = line.data() + line.size();
    if (line.starts_with(away_word) && std::from_chars(line.data() + away_word.size(), end, seconds).ptr == end) {
        away_ = std::chrono::seconds(std::min(seconds, SUPERVISOR_AWAY_MAX));
    }
}

} // namespace supervisor
