// SPDX-License-Identifier: Apache-2.0
// The tool's command line: words in, something to do out.
#ifndef VSWITCHCTL_COMMAND_LINE_H
#define VSWITCHCTL_COMMAND_LINE_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tool/client.h"
#include "tool/usage_error.h"

namespace vswitchctl {

class Commands;

// Options that are for every command and may stand anywhere.
struct GlobalOptions {
    std::string run_directory; // empty: the environment's, or the default
    bool json = false;
};

// The command that completion asks with the words of a command line, the last of which is begun.
inline constexpr const char *completion_command = "complete-words";

// A command that was read and found well formed, and has not been carried out.
struct ParsedCommand {
    // Where the command is one request that changes the switch's configuration: that request, for
    // instance {"command": "vsan.create", "id": 10}. Else null.
    Json change;
    // Prints the reply to `change` in words.
    std::function<void(const Json &)> print;
    // What a refusal of the switch says, in the words of the command line.
    std::function<std::string(const std::string &sentence)> explain;
    // Carries the command out by itself and prints what comes of it. Throws Refusal.
    std::function<void()> run;
    // What the command is called: "vsan create".
    std::string name;
};

class CommandLine {
  public:
    // With `options` commands take the global options, too, which are left there; it outlives this
    // object. Without, they take none.
    explicit CommandLine(GlobalOptions *options = nullptr);
    ~CommandLine();
    CommandLine(const CommandLine &) = delete;
    CommandLine &operator=(const CommandLine &) = delete;

    // Reads one command, for instance {"vsan", "create", "10"}. May be called again and again; what
    // it returns stays usable. --help makes a command that prints help. Throws UsageError.
    ParsedCommand parse(const std::vector<std::string> &words);

    // The words that a command can begin with.
    std::vector<std::string> names() const;

  private:
    std::unique_ptr<Commands> commands_;
};

} // namespace vswitchctl

#endif
