// SPDX-License-Identifier: Apache-2.0
// Commands about the file that the switch shares with the agent in the run directory: the
// filters of its trace.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "model/files.h"
#include "operator/command_table.h"
#include "sdwrap/debug_filters.h"

namespace vswitch {

namespace {

using Json = JsonReader::Json;

constexpr const char *filter_file = "debug.conf";
constexpr size_t max_filter_file = 8192; // the agent reads no more

const std::string &required_run_directory(const Call &call) {
    if (call.the_switch.run_directory.empty()) {
        throw Refusal(STATUS_NO_INSTANCE, "The switch has no run directory.");
    }
    return call.the_switch.run_directory;
}

void show_filters(Call &call) {
    const std::string path = required_run_directory(call) + "/" + filter_file;
    const std::string text = read_file(path, max_filter_file).value_or("");
    debug_filters filters{};
    const debug_filters_errors errors = debug_filters_parse({text.data(), text.size()}, filters);
    // These two classes are the module's own.
    for (const uint32_t known : {100u, 101u}) {
        if (std::none_of(filters.classes, filters.classes + filters.count,
                         [&](const debug_filter &filter) { return filter.event_class == known; }) &&
            filters.count < DEBUG_FILTERS_MAX) {
            filters.classes[filters.count] = debug_filters_of({}, known);
            ++filters.count;
        }
    }
    std::sort(filters.classes, filters.classes + filters.count,
              [](const debug_filter &left, const debug_filter &right) { return left.event_class < right.event_class; });
    call.reply["classes"] = Json::array();
    for (size_t at = 0; at < filters.count; ++at) {
        call.reply["classes"].push_back({{"class", filters.classes[at].event_class},
                                         {"history", filters.classes[at].history},
                                         {"debug", filters.classes[at].debug}});
    }
    call.reply["unusableLines"] = errors.count;
}

// Whether a line of the filter file is a setting of `what` for `event_class`.
bool sets(std::string_view line, std::string_view what, uint32_t event_class) {
    const size_t start = line.find_first_not_of(" \t\r");
    debug_filters filters{};
    return start != std::string_view::npos && line.substr(start).starts_with(what) &&
           debug_filters_parse({line.data(), line.size()}, filters).count == 0 && filters.count == 1 &&
           filters.classes[0].event_class == event_class;
}

// Sets one filter. The file's other lines stay, those that somebody wrote by hand, too.
void set_filter(Call &call) {
    const std::string path = required_run_directory(call) + "/" + filter_file;
    const uint32_t event_class = call.arguments.required_number("class", any_number);
    constexpr Word kinds[] = {{"history", 0}, {"debug", 1}};
    const char *what = word_of(kinds, call.arguments.required_word("what", kinds));
    const char *state = call.arguments.required_flag("on") ? "on" : "off";

    const std::string former = read_file(path, max_filter_file).value_or("");
    std::string text;
    for (std::string_view rest = former; !rest.empty();) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(rest.size(), line.size() + 1));
        if (!sets(line, what, event_class)) {
            text += fmt::format("{}\n", line);
        }
    }
    text += fmt::format("{} {} {}\n", what, event_class, state);
    debug_filters filters{};
    debug_filters_parse({text.data(), text.size()}, filters);
    const auto known = [&] {
        return std::any_of(filters.classes, filters.classes + filters.count,
                           [&](const debug_filter &filter) { return filter.event_class == event_class; });
    };
    if (text.size() > max_filter_file || !known()) {
        throw Refusal(
            fmt::format("{} has no room for another setting; it may name {} classes.", path, DEBUG_FILTERS_MAX));
    }
    replace_file(path, text, Readers::folder_group);
    show_filters(call);
}

const Command commands[] = {
    {"debug.show", MTS_KIND_GET, show_filters, {}},
    {"debug.set", MTS_KIND_SET, set_filter, {"class", "what", "on"}},
};

} // namespace

std::span<const Command> agent_file_commands() {
    return commands;
}

} // namespace vswitch
