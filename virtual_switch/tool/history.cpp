// SPDX-License-Identifier: Apache-2.0
#include "tool/history.h"

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <memory>
#include <set>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "run_directory.h"
#include "sdwrap/history_line.h"

namespace vswitchctl {

namespace {

// A file may be larger than it should be; only so much of it is looked at.
constexpr size_t max_history_file = size_t{8} * HISTORY_FILE_MAX;

// How often to read both files when one takes the other's place meanwhile.
constexpr int read_attempts = 8;

[[noreturn]] void fail_reading(const std::string &path, const char *reason) {
    throw Refusal(fmt::format("Cannot read {}: {}.", path, reason));
}

// A file's identity and what it holds; nothing when there is none.
struct Content {
    ino_t inode = 0;
    std::string text;
};

Content read_file(const std::string &path) {
    Content content;
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (descriptor == -1 && errno == ENOENT) {
        return content;
    }
    struct stat status {};
    if (descriptor == -1 || fstat(descriptor, &status) != 0) {
        fail_reading(path, std::strerror(errno));
    }
    content.inode = status.st_ino;
    content.text.resize(S_ISREG(status.st_mode) ? max_history_file : 0);
    const ssize_t length = read(descriptor, content.text.data(), content.text.size());
    close(descriptor);
    if (length < 0 || !S_ISREG(status.st_mode)) {
        fail_reading(path, S_ISREG(status.st_mode) ? std::strerror(errno) : "it is no event history");
    }
    content.text.resize(static_cast<size_t>(length));
    return content;
}

// Both files of a process, the older one in front. Where the agent has put another file in
// the older one's place between the two, something would be missing.
std::string read_lines(const std::string &path) {
    std::string lines;
    for (int attempt = 0; attempt < read_attempts; ++attempt) {
        const Content old = read_file(path + HISTORY_OLD_SUFFIX);
        lines = old.text + read_file(path).text;
        if (read_file(path + HISTORY_OLD_SUFFIX).inode == old.inode) {
            break;
        }
    }
    return lines;
}

// The processes that have left a history.
std::set<std::string> history_names(const std::string &directory) {
    const std::unique_ptr<DIR, int (*)(DIR *)> folder(opendir(directory.c_str()), closedir);
    if (!folder) {
        fail_reading(directory, std::strerror(errno));
    }
    std::set<std::string> names;
    while (const dirent *entry = readdir(folder.get())) {
        std::string_view name = entry->d_name;
        if (name.ends_with(HISTORY_OLD_SUFFIX)) {
            name.remove_suffix(sizeof HISTORY_OLD_SUFFIX - 1);
        }
        if (name.starts_with(HISTORY_FILE_PREFIX) && name.size() >= sizeof HISTORY_FILE_PREFIX) {
            names.emplace(name.substr(sizeof HISTORY_FILE_PREFIX - 1));
        }
    }
    return names;
}

// The records among the lines. A line that somebody else has written is passed over.
Json read_records(std::string_view lines, const HistoryQuestion &question) {
    Json records = Json::array();
    while (!lines.empty()) {
        const std::string_view line = lines.substr(0, lines.find('\n'));
        lines.remove_prefix(std::min(lines.size(), line.size() + 1));
        history_line record;
        if (!history_line_read(line, record) || (question.event_class && record.event_class != *question.event_class)) {
            continue;
        }
        records.push_back({{"time", record.time},
                           {"pid", record.process_id},
                           {"module", record.module_id},
                           {"class", record.event_class},
                           {"text", record.text}});
    }
    if (question.last > 0 && records.size() > question.last) {
        records.erase(records.begin(), records.end() - static_cast<ptrdiff_t>(question.last));
    }
    return records;
}

} // namespace

Json read_histories(const HistoryQuestion &question) {
    const std::string directory = run_directory();
    std::set<std::string> names = history_names(directory);
    if (!question.name.empty()) {
        if (!names.contains(question.name)) {
            throw Refusal(fmt::format("There is no history named \"{}\" in {}.", question.name, directory));
        }
        names = {question.name};
    }
    Json histories = Json::array();
    for (const std::string &name : names) {
        const std::string lines = read_lines(fmt::format("{}/{}{}", directory, HISTORY_FILE_PREFIX, name));
        histories.push_back({{"name", name}, {"records", read_records(lines, question)}});
    }
    return {{"histories", std::move(histories)}};
}

} // namespace vswitchctl
