// SPDX-License-Identifier: Apache-2.0
// Commands for the configuration as a whole: out, in, and its database.
#include <cstdio>
#include <fmt/format.h>

#include "tool/commands.h"
#include "tool/files.h"
#include "tool/transfer.h"

namespace vswitchctl {

namespace {

constexpr size_t max_configuration = 8u << 20; // bytes; the switch takes no more

void import_file(const Json &arguments) {
    const std::string path = arguments.at("file");
    const bool dry_run = arguments.value("dryRun", false);
    const std::string source = path == "-" ? "standard input" : path;
    const Json reply = import_configuration(read_input(path, max_configuration), source, dry_run);
    if (dry_run) {
        print_changes(reply);
        return;
    }
    show(reply, [&](const Json &done) {
        fmt::print("The switch {} as {} says\n", done.at("changed").get<bool>() ? "is now" : "was already", source);
    });
}

void back_up(const Json &arguments) {
    const std::string path = arguments.at("file");
    const bool replace = arguments.value("force", false);
    if (!replace) {
        require_absent(path);
    }
    const std::string content = copy_database();
    write_whole(path, content, replace);
    show({{"file", path}, {"size", content.size()}},
         [&](const Json &) { fmt::print("{} holds the switch's database\n", path); });
}

} // namespace

void add_transfer(Commands &commands) {
    Command out(commands, "export", "Prints the configuration, as import and vswitchd --initial take it",
                "  vswitchctl export");
    out.run([](const Json &) { fmt::print("{}", export_configuration()); });
    Command in(commands, "import", "Makes the switch what a file says; what is not in it is removed",
               "  vswitchctl import switch.json --dry-run\n  vswitchctl import switch.json");
    in.text("file", "file", "The file, - for standard input", "FILE")->required();
    in.flag("--dry-run", "dryRun", "Tell what would change, and change nothing");
    in.run(import_file);
    Command backup(commands, "backup", "Copies the database while the switch runs",
                   "  vswitchctl backup /srv/backups/switch.db\n  vswitchctl backup /srv/backups/switch.db --force");
    backup.text("file", "file", "The file to be made", "FILE")->required();
    backup.flag("--force", "force", "Replace a file of that name");
    backup.run(back_up);
}

} // namespace vswitchctl
