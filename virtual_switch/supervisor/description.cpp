// SPDX-License-Identifier: Apache-2.0
#include "supervisor/description.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fmt/format.h>
#include <fstream>
#include <unistd.h>

namespace supervisor {

namespace {

class Reader {
  public:
    Reader(std::istream &text, const std::string &place) : text_(text), place_(place) {}

    std::vector<Program> read() {
        for (std::string line; std::getline(text_, line);) {
            ++line_;
            if (!line.empty() && line[0] != '#') {
                take(line);
            }
        }
        if (text_.bad()) {
            throw Problem(fmt::format("cannot read {}", place_));
        }
        if (programs_.empty()) {
            throw Problem(fmt::format("{} describes no program", place_));
        }
        finish();
        return std::move(programs_);
    }

  private:
    [[noreturn]] void fail(const std::string &what) const {
        throw Problem(fmt::format("line {} of {}: {}", line_, place_, what));
    }

    void take(const std::string &line) {
        const size_t blank = std::min(line.find(' '), line.size());
        const std::string key = line.substr(0, blank);
        const std::string value = line.substr(std::min(blank + 1, line.size()));
        if (key == "program") {
            begin(value);
        } else if (programs_.empty()) {
            fail(fmt::format("\"{}\" stands before the first program", key));
        } else if (key == "run") {
            programs_.back().words.push_back(value);
        } else if (key == "attend") {
            programs_.back().attendant.push_back(value);
        } else if (key == "tells") {
            programs_.back().tells = descriptor(value);
        } else if (key == "output") {
            programs_.back().output = descriptor(value);
        } else if (key == "log") {
            programs_.back().log = value;
        } else {
            fail(fmt::format("there is no key \"{}\"", key));
        }
    }

    void begin(const std::string &name) {
        if (!programs_.empty()) {
            finish();
        }
        if (name.empty()) {
            fail("a program needs a name");
        }
        if (std::ranges::any_of(programs_, [&](const Program &program) { return program.name == name; })) {
            fail(fmt::format("there is a program {} already", name));
        }
        programs_.emplace_back().name = name;
    }

    // What is only known of a program when all its lines have been read.
    void finish() const {
        const Program &program = programs_.back();
        if (program.words.empty()) {
            fail(fmt::format("the program {} has no command line", program.name));
        }
        if (!program.attendant.empty() && !program.tells) {
            fail(fmt::format("the attendant of {} has no descriptor to tell on", program.name));
        }
    }

    int descriptor(const std::string &value) const {
        int number = -1;
        const auto result = std::from_chars(value.data(), value.data() + value.size(), number);
        if (result.ec != std::errc() || result.ptr != value.data() + value.size() || number <= STDERR_FILENO) {
            fail(fmt::format("a descriptor is a number from 3 on, not \"{}\"", value));
        }
        return number;
    }

    std::istream &text_;
    const std::string &place_;
    std::vector<Program> programs_;
    unsigned line_ = 0;
};

} // namespace

std::vector<Program> read_description(std::istream &text, const std::string &place) {
    return Reader(text, place).read();
}

std::vector<Program> read_description_file(const std::string &path) {
    std::ifstream file(path);
    if (!file) {
        throw Problem(fmt::format("cannot read {}: {}", path, std::strerror(errno)));
    }
    return read_description(file, path);
}

} // namespace supervisor
