// SPDX-License-Identifier: Apache-2.0
#include "tool/command_line.h"

#include <algorithm>
#include <cctype>
#include <fmt/format.h>
#include <utility>

#include "tool/commands.h"
#include "tool/nearest.h"

namespace vswitchctl {

namespace {

// A sentence of the switch, without what only those know who write requests: its commands and their keys.
std::string in_words_of(const CommandRow &row, std::string sentence) {
    if (sentence.starts_with("Cannot use the command ")) {
        sentence.erase(0, sentence.find(": ") + 2);
    }
    for (const auto &[key, option] : row.options) {
        const std::string quoted = fmt::format("\"{}\"", key);
        for (size_t at = sentence.find(quoted); at != std::string::npos; at = sentence.find(quoted, at)) {
            sentence.replace(at, quoted.size(), option);
            at += option.size();
        }
    }
    // What begins with two capitals, as VSAN does, is a name.
    if (sentence.size() > 1 && std::islower(static_cast<unsigned char>(sentence[1]))) {
        sentence[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(sentence[0])));
    }
    return fmt::format("{}: {}", row.name, sentence);
}

// Runs the row's action on its arguments.
void carry_out(const CommandRow &row, const Json &arguments) {
    try {
        row.run(arguments);
    } catch (const Unreachable &) {
        throw;
    } catch (const PlacedRefusal &) {
        throw;
    } catch (const Refusal &refusal) {
        throw Refusal(in_words_of(row, refusal.what()));
    }
}

std::string last_word(const std::string &name) {
    return name.substr(name.rfind(' ') + 1);
}

// The names of an application's options that have dashes.
std::vector<std::string> option_names(const CLI::App &app) {
    std::vector<std::string> names;
    for (const CLI::Option *option : app.get_options()) {
        for (const std::string &name : option->get_lnames()) {
            names.push_back("--" + name);
        }
    }
    return names;
}

bool asks_for_help(const std::string &word) {
    return word == "--help" || word == "-h";
}

// Gives an application words that it has the options for. Throws UsageError.
void parse_options(CLI::App &app, std::vector<std::string> words) {
    std::reverse(words.begin(), words.end());
    try {
        app.parse(words);
    } catch (const CLI::ExtrasError &) {
        throw UsageError(fmt::format("'{}' is one word too many", words.back()));
    } catch (const CLI::RequiredError &error) {
        throw UsageError(fmt::format("{}; --help tells more", error.what()));
    } catch (const CLI::ParseError &error) {
        throw UsageError(error.what());
    }
}

ParsedCommand help_of(const CLI::App &app, const std::string &name) {
    const size_t blank = name.rfind(' ');
    const std::string above = blank == std::string::npos ? "vswitchctl" : "vswitchctl " + name.substr(0, blank);
    return {nullptr, nullptr, nullptr, [&app, above] { fmt::print("{}", app.help(above)); }, name};
}

} // namespace

Commands::Commands(GlobalOptions *options)
    : root_("Shows and changes the running virtual switch.", "vswitchctl"), options_(options) {
    if (options_) {
        root_
            .add_option("--run", options_->run_directory,
                        "Run directory; default $" RUN_DIRECTORY_VARIABLE " or " RUN_DIRECTORY_DEFAULT)
            ->type_name("DIR");
        root_.add_flag("--json", options_->json, "Print JSON");
        root_.add_flag_callback(
            "--version", [] {}, "Print which release this is");
    }
    root_.footer("'vswitchctl COMMAND --help' has examples of each command.\n"
                 "Changes with -- between them are one: all of them are made, or none.\n"
                 "Ends with 0 when done, 1 when the switch refused or did not answer, 2 when the\n"
                 "command line is wrong.");
}

CLI::App &Commands::add_app(const std::string &name, const std::string &description, const std::string &examples) {
    const size_t blank = name.rfind(' ');
    CLI::App *above = &root_;
    if (blank != std::string::npos) {
        Node &group = nodes_.at(name.substr(0, blank));
        above = group.app;
        group.first = group.first.empty() ? name : group.first;
    }
    CLI::App *app = above->add_subcommand(last_word(name), description);
    app->footer("Examples:\n" + examples);
    nodes_[name].app = app;
    return *app;
}

void Commands::group(const std::string &name, const std::string &description, const std::string &examples) {
    add_app(name, description, examples);
}

CommandRow &Commands::add(const std::string &name, const std::string &description, const std::string &examples) {
    CLI::App &app = add_app(name, description, examples);
    if (options_) {
        app.add_option("--run", options_->run_directory, "Run directory")->type_name("DIR");
        app.add_flag("--json", options_->json, "Print JSON");
    }
    auto &row = nodes_[name].row;
    row = std::make_unique<CommandRow>();
    row->name = name;
    row->app = &app;
    return *row;
}

std::vector<std::string> Commands::words_below(const std::string &name) const {
    std::vector<std::string> words;
    const std::string beginning = name.empty() ? "" : name + " ";
    for (const auto &[candidate, node] : nodes_) {
        if (candidate.starts_with(beginning) && candidate.find(' ', beginning.size()) == std::string::npos) {
            words.push_back(candidate.substr(beginning.size()));
        }
    }
    return words;
}

void Commands::no_such_command(const std::string &above, const std::string &word) const {
    const std::string before = above.empty() ? "" : above + " ";
    const std::string near = nearest(word, words_below(above));
    throw UsageError(fmt::format("There is no command '{}{}'; {}.", before, word,
                                 near.empty() ? fmt::format("'vswitchctl {}--help' names those there are", before)
                                              : fmt::format("the nearest is '{}{}'", before, near)));
}

void Commands::no_such_option(const std::string &name, const CLI::App &app, const std::string &option) const {
    const auto above = nodes_.find(name.substr(0, name.rfind(' ')));
    if (above != nodes_.end() && above->second.row && above->second.app->get_option_no_throw(option)) {
        throw UsageError(fmt::format("the option '{}' is for '{}'", option, above->first));
    }
    throw UsageError(fmt::format("there is no option '{}'{}", option, or_nearest(option, option_names(app))));
}

void Commands::check_words(const std::string &name, const CLI::App &app, const std::vector<std::string> &words) const {
    for (const std::string &word : words) {
        if (word == "--") {
            return;
        }
        const std::string option = word.substr(0, word.find('='));
        const bool is_option = word.starts_with("--") || (word.size() > 1 && word[0] == '-' && !std::isdigit(word[1]));
        if (is_option && !app.get_option_no_throw(option)) {
            no_such_option(name, app, option);
        }
        if (nodes_.contains(fmt::format("{} {}", name, word))) {
            throw UsageError(fmt::format("'{}' must stand before the options", word));
        }
    }
}

ParsedCommand Commands::read(CommandRow &row, const std::vector<std::string> &words) const {
    try {
        check_words(row.name, *row.app, words);
        row.arguments = row.initial;
        parse_options(*row.app, words);
        if (row.finish) {
            row.finish(row.arguments);
        }
    } catch (const UsageError &error) {
        throw UsageError(fmt::format("{}: {}.", row.name, error.what()));
    }
    ParsedCommand command{nullptr, row.print, nullptr, nullptr, row.name};
    command.explain = [&row](const std::string &sentence) { return in_words_of(row, sentence); };
    if (!row.change.empty()) {
        command.change = row.arguments;
        command.change["command"] = row.change;
    }
    command.run = [&row, arguments = row.arguments] { carry_out(row, arguments); };
    return command;
}

std::optional<ParsedCommand> Commands::read_leading(const std::vector<std::string> &words) {
    try {
        check_words("", root_, words);
    } catch (const UsageError &error) {
        throw UsageError(fmt::format("In front of the command {}.", error.what()));
    }
    if (std::any_of(words.begin(), words.end(), asks_for_help)) {
        return ParsedCommand{nullptr, nullptr, nullptr, [this] { fmt::print("{}", root_.help()); }, ""};
    }
    if (std::find(words.begin(), words.end(), "--version") != words.end()) {
        return ParsedCommand{nullptr, nullptr, nullptr, [] { fmt::print("vswitchctl {}\n", VSWITCH_VERSION); }, ""};
    }
    parse_options(root_, words);
    return std::nullopt;
}

const CommandRow *Commands::row_of(const Node &node) const {
    return node.row || node.first.empty() ? node.row.get() : nodes_.at(node.first).row.get();
}

ParsedCommand Commands::parse(const std::vector<std::string> &words) {
    if (!words.empty() && words.front() == completion_command) {
        return {nullptr, nullptr, nullptr,
                [this, rest = std::vector(words.begin() + 1, words.end())] {
                    for (const std::string &word : complete(rest)) {
                        fmt::print("{}\n", word);
                    }
                },
                completion_command};
    }
    auto next = words.begin();
    while (next != words.end() && next->starts_with('-')) {
        next += *next == "--run" && next + 1 != words.end() ? 2 : 1;
    }
    if (auto about_the_tool = read_leading({words.begin(), next})) {
        return *about_the_tool;
    }
    std::string name;
    Node *node = nullptr;
    for (; next != words.end(); ++next) {
        const auto below = nodes_.find(name.empty() ? *next : fmt::format("{} {}", name, *next));
        if (below == nodes_.end()) {
            break;
        }
        name = below->first;
        node = &below->second;
    }
    if (!node && next == words.end()) {
        throw UsageError("A command is missing; 'vswitchctl --help' names those there are.");
    }
    if (node && std::any_of(next, words.end(), asks_for_help)) {
        return help_of(*node->app, name);
    }
    if (!node || (!node->row && next != words.end() && !next->starts_with('-'))) {
        no_such_command(name, *next);
    }
    return read(*(node->row ? node : &nodes_.at(node->first))->row, {next, words.end()});
}

CommandLine::CommandLine(GlobalOptions *options) : commands_(std::make_unique<Commands>(options)) {
    add_show(*commands_);
    add_vsan(*commands_);
    add_port(*commands_);
    add_system(*commands_);
    add_role(*commands_);
    add_timers(*commands_);
    add_tdx(*commands_);
    add_agent(*commands_);
    add_counters(*commands_);
    add_fault(*commands_);
    add_watch(*commands_);
    add_wait_until(*commands_);
    add_transfer(*commands_);
    add_play(*commands_);
}

CommandLine::~CommandLine() = default;

std::vector<std::string> CommandLine::names() const {
    return commands_->words_below("");
}

ParsedCommand CommandLine::parse(const std::vector<std::string> &words) {
    return commands_->parse(words);
}

} // namespace vswitchctl
