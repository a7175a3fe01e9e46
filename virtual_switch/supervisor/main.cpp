// SPDX-License-Identifier: Apache-2.0
// vswitch-supervisor: command line, and what it was started with.
#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <fmt/format.h>

#include "supervisor/supervisor.h"

namespace {

constexpr int exit_ended = 1;
constexpr int exit_usage = 2;

// What programs get as their output is nobody else's.
void keep_outputs(const std::vector<supervisor::Program> &programs) {
    for (const supervisor::Program &program : programs) {
        if (program.output && fcntl(*program.output, F_SETFD, FD_CLOEXEC) != 0) {
            throw supervisor::Problem(
                fmt::format("there is no descriptor {} for the output of {}", *program.output, program.name));
        }
    }
}

} // namespace

int main(int argc, char **argv) {
    std::string description;
    bool no_restart = false;
    supervisor::Options options;
    CLI::App app("Starts a switch and its agent, starts either again when it ends, and ends both when it is told to "
                 "(SIGINT, SIGTERM, SIGHUP).",
                 "vswitch-supervisor");
    app.add_option("DESCRIPTION", description, "File that says what is started and how")->required();
    app.add_flag("--no-restart", no_restart, "End with the first of them that ends");
    app.add_option("--report", options.report,
                   "File that gets the name and the status of a program that ends and is not started again, "
                   "instead of a sentence on standard error")
        ->type_name("FILE");
    app.set_version_flag("--version", "vswitch-supervisor " VSWITCH_VERSION);
    app.footer("Ends with 0 when it was told to, with 1 when a program could not be started, or ended too often, and\n"
               "with 2 when the command line or the description is wrong.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : exit_usage;
    }
    options.restart = !no_restart;
    // Nobody may be left to read what it says.
    std::signal(SIGPIPE, SIG_IGN);
    try {
        const auto programs = supervisor::read_description_file(description);
        keep_outputs(programs);
        return supervisor::Supervisor(programs, options).run() ? 0 : exit_ended;
    } catch (const std::exception &error) {
        std::fputs(fmt::format("vswitch-supervisor: {}\n", error.what()).c_str(), stderr);
        return exit_usage;
    }
}
