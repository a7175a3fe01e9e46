// SPDX-License-Identifier: Apache-2.0
// How the commands of the tool are declared. The files commands_*.cpp have them; this header stays with
// those, since the command line's library is heavy.
#ifndef VSWITCHCTL_COMMANDS_H
#define VSWITCHCTL_COMMANDS_H

#include <CLI/CLI.hpp>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tool/command_line.h"
#include "tool/print.h"
#include "tool/words.h"

namespace vswitchctl {

using Printer = std::function<void(const Json &)>;

// What can stand in an option's place, for who has a word of the command line completed.
struct Values {
    enum class Kind { words, vsans, ports, roles, files, folders, condition };
    Kind kind = Kind::words;
    std::vector<std::string> words; // of that kind; there may be others, as numbers beside words
};

// What a command makes of its words: the arguments that the switch is asked with.
struct CommandRow {
    std::string name; // "vsan create"
    CLI::App *app = nullptr;
    Json initial = Json::object();              // arguments that no words give
    Json arguments;                             // of the words that are read just now
    std::map<std::string, std::string> options; // the word of each argument: "mtu" is "--mtu"
    std::map<const CLI::Option *, Values> values;
    std::function<void(Json &)> finish; // or nothing
    std::string change;                 // the switch's command, of one that is part of the configuration
    Printer print;                      // of the reply to it
    std::function<void(const Json &)> run;
};

// Names and numbers as the command line takes them. Each throws UsageError, which names the option.
[[noreturn]] void wrong_value(const std::string &option, const std::string &text, const std::string &wanted);
// A number, decimal or after 0x hexadecimal, or a word that stands for one. `range` is what a
// complaint says; numbers beyond it are the switch's to refuse.
struct Bounds {
    uint32_t least = 0;
    uint32_t greatest = UINT32_MAX;
};
inline constexpr Bounds vsan_number_bounds = {VSAN_NUMBER_MIN, VSAN_NUMBER_MAX};
uint32_t read_number(const std::string &option, const std::string &text, Words words = {}, Bounds range = {});
bool read_on_or_off(const std::string &option, const std::string &text);
// A port as the switch takes it: its ifIndex, or its name.
Json read_port(const std::string &option, const std::string &text);
// One of these words.
std::string read_word(const std::string &option, const std::string &text, const std::vector<std::string> &words);

// The tree of commands.
class Commands {
  public:
    explicit Commands(GlobalOptions *options);

    // A command that only groups others. Given alone, it does what its first one does.
    void group(const std::string &name, const std::string &description, const std::string &examples);
    // A command: its name, whose last word is its own and whose others are a group's or a command's.
    CommandRow &add(const std::string &name, const std::string &description, const std::string &examples);

    ParsedCommand parse(const std::vector<std::string> &words);
    // The words that may follow a name.
    std::vector<std::string> words_below(const std::string &name) const;

    // What the last of the words, which may be empty, can be completed to: "words" and these, or "files"
    // or "folders" alone. The switch is asked for its names and numbers, for a short time, and done
    // without where it does not answer.
    std::vector<std::string> complete(std::vector<std::string> words) const;

  private:
    struct Node {
        CLI::App *app = nullptr;
        std::string first; // the command that a group alone does
        std::unique_ptr<CommandRow> row;
    };

    // The command that a name stands for: its own, or the first one of a group. Null when there is none.
    const CommandRow *row_of(const Node &node) const;
    friend class Completion;

    CLI::App &add_app(const std::string &name, const std::string &description, const std::string &examples);
    [[noreturn]] void no_such_command(const std::string &above, const std::string &word) const;
    [[noreturn]] void no_such_option(const std::string &name, const CLI::App &app, const std::string &option) const;
    // Whether the words may stand in a command, as far as their beginnings say. Throws UsageError.
    void check_words(const std::string &name, const CLI::App &app, const std::vector<std::string> &words) const;
    ParsedCommand read(CommandRow &row, const std::vector<std::string> &words) const;
    // What stands in front of a command; that may be a command itself, as --version is.
    std::optional<ParsedCommand> read_leading(const std::vector<std::string> &words);

    CLI::App root_;
    GlobalOptions *options_;
    std::map<std::string, Node> nodes_;
};

// One command while it is declared.
class Command {
  public:
    using Convert = std::function<Json(const std::string &option, const std::string &text)>;

    // `examples` are lines of two blanks and a command each.
    Command(Commands &commands, const std::string &name, const std::string &description, const std::string &examples)
        : row_(commands.add(name, description, examples)) {}

    // An option, or without dashes a word that stands in its place. Its text becomes an argument of the
    // switch's command, `key`.
    CLI::Option *option(const std::string &option, const char *key, const std::string &help, const char *type,
                        Convert convert);
    CLI::Option *number(const std::string &option, const char *key, const std::string &help, Words words = {},
                        Bounds range = {});
    CLI::Option *text(const std::string &option, const char *key, const std::string &help, const char *type = "TEXT");
    CLI::Option *on_off(const std::string &option, const char *key, const std::string &help);
    CLI::Option *port(const std::string &option, const std::string &help);
    CLI::Option *word(const std::string &option, const char *key, const std::string &help, const char *type,
                      const std::vector<std::string> &words);
    // Texts separated by commas.
    CLI::Option *texts(const std::string &option, const char *key, const std::string &help, const char *type);
    // All words that stand in the command's place for them.
    CLI::Option *words(const std::string &name, const char *key, const std::string &help, const char *type);
    void flag(const std::string &option, const char *key, const std::string &help);
    // An argument that every such command has.
    void always(const char *key, const Json &value) { row_.initial[key] = value; }

    // Looks at all arguments together, and may make others of them. Throws UsageError.
    void finish(std::function<void(Json &)> look) { row_.finish = std::move(look); }

    // The values of an option whose type does not say them.
    CLI::Option *completes(CLI::Option *option, Values values) {
        row_.values[option] = std::move(values);
        return option;
    }

    // What the command does.
    void run(std::function<void(const Json &)> action) { row_.run = std::move(action); }
    void looks(const char *command, const Printer &print);
    void lists(const char *command, const char *key, const char *after, const Printer &print);
    // A change of the configuration, which can be part of a transaction.
    void changes(const char *command, const Printer &print);
    // A change of anything else.
    void orders(const char *command, const Printer &print);

  private:
    CommandRow &row_;
};

void add_show(Commands &commands);
void add_vsan(Commands &commands);
void add_port(Commands &commands);
void add_system(Commands &commands);
void add_role(Commands &commands);
void add_timers(Commands &commands);
void add_tdx(Commands &commands);
void add_agent(Commands &commands);
void add_counters(Commands &commands);
void add_fault(Commands &commands);
void add_watch(Commands &commands);
void add_wait_until(Commands &commands);
void add_transfer(Commands &commands);
void add_play(Commands &commands);

} // namespace vswitchctl

#endif
