/* Commands about the files that the switch shares with the agent in the run directory: the
 * agent's event history, and the filters of its trace. */
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

#include "command_table.h"
#include "files.h"
#include "sdwrap/debug_filters.h"
#include "sdwrap/history_ring.h"

namespace vswitch {

namespace {

using Json = JsonReader::Json;

constexpr std::string_view history_prefix = "history.";
constexpr const char *filter_file = "debug.conf";
constexpr std::size_t max_filter_file = 8192; /* the agent reads no more */
constexpr std::size_t max_name = 128;

const std::string &required_run_directory(const Call &call) {
    if (call.target.run_directory.empty())
        throw CommandRefused(STATUS_NO_INSTANCE, "The switch has no run directory.");
    return call.target.run_directory;
}

std::vector<std::string> history_names(const std::string &directory) {
    std::vector<std::string> names;
    const std::unique_ptr<DIR, int (*)(DIR *)> folder(opendir(directory.c_str()), closedir);
    if (!folder)
        throw Refusal(fmt::format("Cannot read {}: {}.", directory, std::strerror(errno)));
    while (const dirent *entry = readdir(folder.get())) {
        const std::string_view name = entry->d_name;
        if (name.starts_with(history_prefix) && name.size() > history_prefix.size())
            names.emplace_back(name.substr(history_prefix.size()));
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string time_text(const history_record &record) {
    const auto seconds = static_cast<std::time_t>(record.seconds);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:06}Z", std::int64_t{parts.tm_year} + 1900,
                       parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                       record.nanoseconds / 1000);
}

/* Without "name": whose histories there are. With it: the records of one, oldest first.
 * "after" is the "position" of a reply that had more. */
void show_history(Call &call) {
    const std::string &directory = required_run_directory(call);
    const auto names = history_names(directory);
    const auto name = call.arguments.text("name", max_name);
    if (!name) {
        Page page(call, "histories");
        for (const std::string &known : names)
            if (!page.add(known))
                break;
        return;
    }
    if (std::find(names.begin(), names.end(), *name) == names.end())
        throw CommandRefused(STATUS_NO_INSTANCE,
                             fmt::format("There is no history named \"{}\".", JsonReader::printable(*name)));
    const std::string path = fmt::format("{}/{}{}", directory, history_prefix, *name);
    const auto ring = std::make_unique<history_ring>();
    if (history_ring_load(path.c_str(), *ring) != 0)
        throw Refusal(fmt::format("Cannot read {}: {}.", path,
                                  errno == EINVAL ? "it is no event history" : std::strerror(errno)));
    const auto wanted_class = call.arguments.number("class", 0, UINT32_MAX);
    const auto after = call.arguments.number("after", 0, UINT32_MAX);
    std::uint32_t position = ring->begin;
    /* A position that has been overwritten meanwhile is before the oldest record. */
    if (after && *after - ring->begin <= ring->end - ring->begin)
        position = *after;
    Page page(call, "records");
    history_record record;
    std::uint32_t next = position;
    while (history_ring_next(*ring, next, record)) {
        if ((!wanted_class || record.event_class == *wanted_class) && !page.add({{"time", time_text(record)},
                                                                                 {"pid", record.process_id},
                                                                                 {"module", record.module_id},
                                                                                 {"class", record.event_class},
                                                                                 {"text", record.text}}))
            break;
        position = next;
    }
    call.reply["position"] = position;
}

void show_filters(Call &call) {
    const std::string path = required_run_directory(call) + "/" + filter_file;
    const std::string text = read_file(path, max_filter_file).value_or("");
    debug_filters filters{};
    const debug_filters_errors errors = debug_filters_parse({text.data(), text.size()}, filters);
    /* These two classes are the module's own. */
    for (const std::uint32_t known : {100u, 101u})
        if (std::none_of(filters.classes, filters.classes + filters.count,
                         [&](const debug_filter &filter) { return filter.event_class == known; }) &&
            filters.count < DEBUG_FILTERS_MAX) {
            filters.classes[filters.count] = debug_filters_of({}, known);
            ++filters.count;
        }
    std::sort(filters.classes, filters.classes + filters.count,
              [](const debug_filter &left, const debug_filter &right) { return left.event_class < right.event_class; });
    call.reply["classes"] = Json::array();
    for (std::size_t at = 0; at < filters.count; ++at)
        call.reply["classes"].push_back({{"class", filters.classes[at].event_class},
                                         {"history", filters.classes[at].history},
                                         {"debug", filters.classes[at].debug}});
    call.reply["unusableLines"] = errors.count;
}

/* Replaces a file of the run directory in one step. Whoever may enter the directory as a
 * member of its group may read the file. */
void replace_file(const std::string &directory, const std::string &path, const std::string &text) {
    struct stat place {};
    if (stat(directory.c_str(), &place) != 0)
        throw Refusal(fmt::format("Cannot read {}: {}.", directory, std::strerror(errno)));
    const std::string draft = path + ".new";
    unlink(draft.c_str());
    const int file = open(draft.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
    bool done = file != -1;
    const bool shared = (place.st_mode & S_IXGRP) != 0;
    if (done && shared)
        done = fchown(file, static_cast<uid_t>(-1), place.st_gid) == 0 && fchmod(file, 0640) == 0;
    if (done)
        done = write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    if (file != -1)
        done = close(file) == 0 && done;
    if (!done || rename(draft.c_str(), path.c_str()) != 0) {
        const int reason = errno;
        unlink(draft.c_str());
        throw Refusal(fmt::format("Cannot write {}: {}.", path, std::strerror(reason)));
    }
}

/* Whether a line of the filter file is a setting of `what` for `event_class`. */
bool sets(std::string_view line, std::string_view what, std::uint32_t event_class) {
    const std::size_t start = line.find_first_not_of(" \t\r");
    debug_filters filters{};
    return start != std::string_view::npos && line.substr(start).starts_with(what) &&
           debug_filters_parse({line.data(), line.size()}, filters).count == 0 && filters.count == 1 &&
           filters.classes[0].event_class == event_class;
}

/* Sets one filter. The file's other lines stay, those that somebody wrote by hand, too. */
void set_filter(Call &call) {
    const std::string &directory = required_run_directory(call);
    const std::string path = directory + "/" + filter_file;
    const std::uint32_t event_class = call.arguments.required_number("class", 0, UINT32_MAX);
    constexpr std::pair<const char *, std::uint32_t> kinds[] = {{"history", 0}, {"debug", 1}};
    const char *what = kinds[call.arguments.required_word("what", kinds)].first;
    const char *state = call.arguments.required_flag("on") ? "on" : "off";

    const std::string former = read_file(path, max_filter_file).value_or("");
    std::string text;
    for (std::string_view rest = former; !rest.empty();) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(rest.size(), line.size() + 1));
        if (!sets(line, what, event_class))
            text += fmt::format("{}\n", line);
    }
    text += fmt::format("{} {} {}\n", what, event_class, state);
    debug_filters filters{};
    debug_filters_parse({text.data(), text.size()}, filters);
    const auto known = [&] {
        return std::any_of(filters.classes, filters.classes + filters.count,
                           [&](const debug_filter &filter) { return filter.event_class == event_class; });
    };
    if (text.size() > max_filter_file || !known())
        throw Refusal(
            fmt::format("{} has no room for another setting; it may name {} classes.", path, DEBUG_FILTERS_MAX));
    replace_file(directory, path, text);
    show_filters(call);
}

const Command commands[] = {
    {"history.show", kind_get, show_history, {"name", "class", "after", "limit"}},
    {"debug.show", kind_get, show_filters, {}},
    {"debug.set", kind_set, set_filter, {"class", "what", "on"}},
};

} // namespace

std::span<const Command> agent_file_commands() {
    return commands;
}

} // namespace vswitch
