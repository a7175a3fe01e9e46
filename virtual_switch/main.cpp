// SPDX-License-Identifier: Apache-2.0
// vswitchd, the virtual switch's daemon: command line, start and stop.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fmt/format.h>
#include <optional>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>
#include <sys/stat.h>
#include <unistd.h>

#include "contract/supervisor.h"
#include "model/configuration.h"
#include "model/files.h"
#include "model/state_folder.h"
#include "model/store.h"
#include "network/server.h"

namespace {

constexpr int exit_refused = 1;
constexpr int exit_usage = 2;

// Does without, where nobody can be told: standard error may be a full disk.
void tell(const std::string &line) {
    std::fputs(line.c_str(), stderr);
}

struct Options {
    std::string state_directory;
    std::string run_directory; // empty: the state folder
    std::string initial_file;
    bool empty = false;
    std::string socket_group;
    std::string log_level = "info";
    std::optional<int> tell;
};

// One line for a supervisor, if there is one. It may have ended, and nobody else could be told.
void tell_supervisor(const Options &options, const std::string &words) {
    const std::string line = words + "\n";
    if (options.tell && write(*options.tell, line.data(), line.size()) < 0) {
        spdlog::debug("the supervisor cannot be told");
    }
}

vswitch::Configuration new_switch(const Options &options) {
    vswitch::Configuration configuration;
    if (!options.initial_file.empty()) {
        configuration = vswitch::load_configuration(options.initial_file);
    } else {
        configuration.data = options.empty ? vswitch::empty_configuration() : vswitch::demo_configuration();
    }
    vswitch::give_identity(configuration.data);
    return configuration;
}

// Makes the database, and the role file where the configuration has roles: that first, so that a switch
// with a database has both. `roles` are those of the file.
void create_switch(vswitch::Store &store, const std::string &role_file, const Options &options, vswitch::Roles &roles) {
    const vswitch::Configuration configuration = new_switch(options);
    if (configuration.roles) {
        vswitch::replace_file(role_file, vswitch::format_roles(configuration.roles->list()));
        roles = *configuration.roles;
    }
    store.create(configuration.data);
}

// Why a folder will not do, or nothing when it will: it is named in lines of the log.
std::string folder_problem(const std::string &folder) {
    const auto is_control = [](unsigned char byte) { return byte < ' ' || byte == 0x7f; };
    return std::any_of(folder.begin(), folder.end(), is_control) ? "a path without control characters is needed" : "";
}

// Why a descriptor will not do, or nothing when it will: another file would be written to.
std::string tell_problem(const std::string &number) {
    struct stat status {};
    const bool is_pipe = fstat(std::atoi(number.c_str()), &status) == 0 && S_ISFIFO(status.st_mode);
    return is_pipe ? "" : "the descriptor of a pipe is needed";
}

// The folder without slashes at its end, so that paths in it read well.
std::string tidy(std::string folder) {
    while (folder.size() > 1 && folder.back() == '/') {
        folder.pop_back();
    }
    return folder;
}

void serve(const Options &options) {
    vswitch::ensure_directory(options.state_directory, "state folder");
    vswitch::check_state_folder(options.state_directory);
    vswitch::Store store(options.state_directory);
    const std::string role_file = options.state_directory + "/roles.json";
    vswitch::Roles roles = vswitch::load_roles(role_file);
    if (!store.exists()) {
        create_switch(store, role_file, options, roles);
    } else if (options.empty || !options.initial_file.empty()) {
        spdlog::info("{} exists; the initial configuration is ignored", store.path());
    }
    vswitch::ServedSwitch the_switch(store.open(), std::move(roles), &store, role_file);

    vswitch::ServerOptions server_options;
    server_options.run_directory = options.run_directory.empty() ? options.state_directory : options.run_directory;
    server_options.group = options.socket_group;
    the_switch.run_directory = server_options.run_directory;
    the_switch.crash = [&](uint32_t away) {
        tell_supervisor(options, fmt::format(SUPERVISOR_AWAY " {}", away));
        _exit(vswitch::fault_exit_status);
    };
    vswitch::Server server(the_switch, server_options);

    // Whoever started the daemon waits for this line, so no log level hides it.
    tell(fmt::format("ready {}\n", server.socket_path()));
    tell_supervisor(options, SUPERVISOR_READY);
    server.run([&] {
        try {
            the_switch.roles = vswitch::load_roles(role_file);
            spdlog::info("read the roles again: {} users are restricted", the_switch.roles.user_count());
        } catch (const vswitch::Refusal &refusal) {
            spdlog::error("{} The former roles stay in force.", refusal.what());
        }
    });
    spdlog::info("stopped");
}

void start_log(const std::string &level) {
    auto logger = std::make_shared<spdlog::logger>("vswitchd", std::make_shared<spdlog::sinks::stderr_sink_st>());
    logger->set_pattern("%Y-%m-%dT%H:%M:%S.%e%z %l: %v");
    logger->set_level(spdlog::level::from_str(level));
    logger->flush_on(spdlog::level::debug);
    spdlog::set_default_logger(logger);
}

void declare_options(CLI::App &app, Options &options) {
    app.add_option("--state", options.state_directory, "Folder of the database and of roles.json; made when missing")
        ->required()
        ->check(folder_problem)
        ->type_name("DIR");
    app.add_option("--run", options.run_directory, "Folder of the socket; by default the state folder")
        ->check(folder_problem)
        ->type_name("DIR");
    auto *empty = app.add_flag("--empty", options.empty, "Start a new switch with VSAN 1 only");
    app.add_option("--initial", options.initial_file,
                   "Start a new switch with the configuration in this JSON file, - for standard input")
        ->type_name("FILE")
        ->excludes(empty);
    app.add_option("--socket-group", options.socket_group, "Group whose members may connect")->type_name("GROUP");
    app.add_option("--log-level", options.log_level, "Least important messages to log")
        ->check(CLI::IsMember({"debug", "info", "warning", "error", "off"}))
        ->capture_default_str();
    app.add_option("--tell", options.tell,
                   "Descriptor on which a supervisor is told that the switch serves, and how long it stays away")
        ->check(tell_problem)
        ->type_name("NUMBER");
    app.set_version_flag("--version", "vswitchd " VSWITCH_VERSION);
}

} // namespace

int main(int argc, char **argv) {
    Options options;
    CLI::App app("The virtual Fibre Channel switch: VSAN manager and port manager on one socket.", "vswitchd");
    declare_options(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : exit_usage;
    }

    start_log(options.log_level);
    umask(077);
    // A client that goes away, and a file that may not grow, are errors of the call.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    options.state_directory = tidy(options.state_directory);
    options.run_directory = tidy(options.run_directory);
    try {
        serve(options);
        return 0;
    } catch (const std::exception &error) {
        tell(fmt::format("vswitchd: {}\n", error.what()));
        return exit_refused;
    }
}
