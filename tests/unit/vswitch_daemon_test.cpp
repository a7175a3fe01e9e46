// SPDX-License-Identifier: Apache-2.0
// The daemon as its operator meets it: a process with a command line, signals, an exit
// code and lines on standard error.
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <grp.h>
#include <memory>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <vector>

#include "changes/changes.h"
#include "vswitch_test_support.h"

using namespace vswitch_test;

namespace {

class Daemon {
  public:
    explicit Daemon(std::vector<std::string> arguments, rlim_t descriptors = 0) {
        static const std::string program =
            (std::filesystem::read_symlink("/proc/self/exe").parent_path() / "vswitchd").string();
        arguments.insert(arguments.begin(), program);
        std::vector<char *> argv;
        for (std::string &argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) {
            throw std::runtime_error("no pipe");
        }
        process_ = fork();
        if (process_ == 0) {
            dup2(ends[1], STDERR_FILENO);
            dup2(ends[1], STDOUT_FILENO);
            if (descriptors != 0) {
                const rlimit limit{descriptors, descriptors};
                setrlimit(RLIMIT_NOFILE, &limit);
            }
            execv(program.c_str(), argv.data());
            _exit(127);
        }
        close(ends[1]);
        output_ = ends[0];
    }
    ~Daemon() {
        if (process_ > 0) {
            kill(process_, SIGKILL);
            waitpid(process_, nullptr, 0);
        }
        close(output_);
    }
    Daemon(const Daemon &) = delete;
    Daemon &operator=(const Daemon &) = delete;

    // Reads the daemon's output until it holds `text`; false when it ends first.
    bool says(const std::string &text) {
        while (!contains(said_, text)) {
            pollfd state{output_, POLLIN, 0};
            if (poll(&state, 1, Client::patience) != 1) {
                return false;
            }
            char chunk[4096];
            const ssize_t got = read(output_, chunk, sizeof chunk);
            if (got <= 0) {
                return false;
            }
            said_.append(chunk, static_cast<size_t>(got));
        }
        return true;
    }

    // All of its output, once it has ended; the exit code, or -1 for a signal.
    int exit_code() {
        while (says("\n(never said)")) {
        }
        int status = 0;
        waitpid(process_, &status, 0);
        process_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    const std::string &said() const { return said_; }
    void signal(int number) const { kill(process_, number); }
    pid_t process() const { return process_; }

    void kill_now() {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
        process_ = -1;
    }

  private:
    pid_t process_ = -1;
    int output_ = -1;
    std::string said_;
};

class DaemonTest : public testing::Test {
  protected:
    std::unique_ptr<Daemon> start(std::vector<std::string> more = {}, rlim_t descriptors = 0) {
        std::vector<std::string> arguments = {"--state", folder_ / "state"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return std::make_unique<Daemon>(arguments, descriptors);
    }

    std::unique_ptr<Daemon> start_ready(std::vector<std::string> more = {}, rlim_t descriptors = 0) {
        auto daemon = start(std::move(more), descriptors);
        EXPECT_TRUE(daemon->says("ready " + socket_path() + "\n")) << daemon->said();
        return daemon;
    }

    std::string socket_path() const { return folder_ / "state/mts.sock"; }
    Client connect() const { return Client(socket_path()); }

    TemporaryFolder folder_;
};

mode_t mode_of(const std::string &path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 0777 : 0;
}

TEST_F(DaemonTest, ServesTheDemoAndStopsCleanly) {
    for (const int signal : {SIGTERM, SIGINT}) {
        const auto daemon = start_ready();
        EXPECT_EQ(connect().vsan_count(), 7u);
        daemon->signal(signal);
        EXPECT_EQ(daemon->exit_code(), 0);
        EXPECT_FALSE(std::filesystem::exists(socket_path()));
    }
}

TEST_F(DaemonTest, SupervisorIsToldThatItServesAndHowLongAFaultKeepsItAway) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    auto daemon = start_ready({"--tell", std::to_string(ends[1])});
    close(ends[1]);
    Client client = connect();
    const std::string command = R"({"command": "fault.add", "action": "exit", "value": 7})";
    ASSERT_EQ(client.request(MTS_SERVICE_SWITCH, MTS_OP_SWITCH_COMMAND, MTS_KIND_SET, text_bytes(command)).status,
              STATUS_SUCCESS);
    client.send(request_frame(1, MANAGER_SAP_VSAN, 149, 1, vsan_block(1)));
    EXPECT_EQ(daemon->exit_code(), 3);
    std::string told;
    char text[64];
    for (ssize_t got; (got = read(ends[0], text, sizeof text)) > 0;) {
        told.append(text, static_cast<size_t>(got));
    }
    close(ends[0]);
    EXPECT_EQ(told, "ready\naway 7\n");
}

TEST_F(DaemonTest, SupervisorThatHasEndedIsNoConcern) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    auto daemon = start_ready({"--tell", std::to_string(ends[1])});
    close(ends[1]);
    daemon->signal(SIGTERM);
    EXPECT_EQ(daemon->exit_code(), 0);
}

TEST_F(DaemonTest, WhatIsToldGoesIntoAPipeAndNothingElse) {
    for (const std::string number : {"999", "-1", "x"}) {
        auto daemon = start({"--tell", number});
        EXPECT_EQ(daemon->exit_code(), 2) << number;
        EXPECT_TRUE(contains(daemon->said(), "--tell")) << daemon->said();
    }
}

TEST_F(DaemonTest, FilesAreForTheOwnerOnly) {
    const auto daemon = start_ready();
    EXPECT_EQ(mode_of(folder_ / "state"), 0700u);
    EXPECT_EQ(mode_of(folder_ / "state/switch.db"), 0600u);
    EXPECT_EQ(mode_of(socket_path()), 0600u);
}

TEST_F(DaemonTest, SocketGroupMayConnect) {
    const struct group *own = getgrgid(getegid());
    if (!own) {
        GTEST_SKIP() << "this process's group has no name";
    }
    const auto daemon = start_ready({"--socket-group", own->gr_name});
    EXPECT_EQ(mode_of(folder_ / "state"), 0750u);
    EXPECT_EQ(mode_of(socket_path()), 0660u);
    EXPECT_EQ(mode_of(folder_ / "state/switch.db"), 0600u);
}

// What a process of another user, and of these groups, gets from the daemon: its answer,
// or nothing at all.
enum class Welcome { answered, disconnected, failed };
Welcome visit_as_stranger(const std::string &socket_path, gid_t group, std::vector<gid_t> more_groups) {
    const pid_t visitor = fork();
    if (visitor == 0) {
        constexpr uid_t nobody = 65534;
        if (setgroups(more_groups.size(), more_groups.data()) != 0 || setgid(group) != 0 || setuid(nobody) != 0) {
            _exit(static_cast<int>(Welcome::failed));
        }
        try {
            Client client(socket_path);
            client.send(request_frame(1, MANAGER_SAP_VSAN, 125, 1, {}, 4));
            _exit(static_cast<int>(client.receive(1).empty() ? Welcome::disconnected : Welcome::answered));
        } catch (...) {
            _exit(static_cast<int>(Welcome::failed));
        }
    }
    int status = 0;
    waitpid(visitor, &status, 0);
    return WIFEXITED(status) ? static_cast<Welcome>(WEXITSTATUS(status)) : Welcome::failed;
}

TEST_F(DaemonTest, ProcessOfAStrangerIsRefusedWhateverTheFilePermissions) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can be somebody else";
    }
    const struct group *admitted = getgrnam("daemon");
    if (!admitted) {
        GTEST_SKIP() << "there is no group to admit";
    }
    constexpr gid_t nogroup = 65534;
    for (const bool with_group : {false, true}) {
        const auto daemon = with_group ? start_ready({"--socket-group", "daemon"}) : start_ready();
        for (const std::string &path : {folder_.path(), folder_ / "state", socket_path()}) {
            ASSERT_EQ(chmod(path.c_str(), 0777), 0);
        }
        EXPECT_EQ(visit_as_stranger(socket_path(), nogroup, {}), Welcome::disconnected);
        EXPECT_EQ(visit_as_stranger(socket_path(), nogroup, {}), Welcome::disconnected);
        const Welcome member = with_group ? Welcome::answered : Welcome::disconnected;
        EXPECT_EQ(visit_as_stranger(socket_path(), admitted->gr_gid, {}), member);
        EXPECT_EQ(visit_as_stranger(socket_path(), nogroup, {nogroup, admitted->gr_gid}), member);
        EXPECT_EQ(connect().vsan_count(), 7u) << "root is no stranger";
        daemon->signal(SIGTERM);
        daemon->exit_code();
        const std::string line = "user 65534 may not use this switch";
        const auto first = daemon->said().find(line);
        ASSERT_NE(first, std::string::npos);
        EXPECT_EQ(daemon->said().find(line, first + 1), std::string::npos) << "said once";
        // The next daemon would not take over a folder that others may write in.
        ASSERT_EQ(chmod((folder_ / "state").c_str(), 0700), 0);
    }
}

TEST_F(DaemonTest, AnsweredChangeSurvivesACrash) {
    auto daemon = start_ready({"--empty"});
    Buffer block;
    vswitch::append_vsan_block(block, 77, vswitch::new_vsan(77), 0);
    ASSERT_EQ(connect().request(MANAGER_SAP_VSAN, 149, 3, block).status, STATUS_SUCCESS);
    const auto change = connect().request(MANAGER_SAP_VSAN, 126, 1, {}, 8).data;
    daemon->kill_now();
    daemon = start_ready();
    const auto answer = connect().request(MANAGER_SAP_VSAN, 149, 1, vsan_block(77));
    EXPECT_EQ(answer.status, STATUS_SUCCESS);
    EXPECT_EQ(word(answer.data, VSAN_RECORD_AT + 28), 1u);
    EXPECT_EQ(connect().request(MANAGER_SAP_VSAN, 126, 1, {}, 8).data, change);
}

TEST_F(DaemonTest, FullDiskRefusesChangesAndTheSwitchGoesOn) {
    auto daemon = start_ready({"--empty"});
    rlimit former{};
    ASSERT_EQ(prlimit(daemon->process(), RLIMIT_FSIZE, nullptr, &former), 0);
    const rlimit tight{1, former.rlim_max};
    ASSERT_EQ(prlimit(daemon->process(), RLIMIT_FSIZE, &tight, nullptr), 0);
    Buffer block;
    vswitch::append_vsan_block(block, 77, vswitch::new_vsan(77), 0);
    for (int attempt = 0; attempt < 2; ++attempt) {
        EXPECT_EQ(connect().request(MANAGER_SAP_VSAN, 149, 3, block).status, STATUS_STORE_FAILED);
    }
    EXPECT_EQ(connect().vsan_count(), 1u);
    EXPECT_TRUE(daemon->says("Cannot write the database"));

    ASSERT_EQ(prlimit(daemon->process(), RLIMIT_FSIZE, &former, nullptr), 0);
    EXPECT_EQ(connect().request(MANAGER_SAP_VSAN, 149, 3, block).status, STATUS_SUCCESS);
    daemon->kill_now();
    daemon = start_ready();
    EXPECT_EQ(connect().vsan_count(), 2u);
}

TEST_F(DaemonTest, RunFolderIsWhereTheSocketIs) {
    Daemon daemon({"--state", folder_ / "state", "--run", folder_ / "run"});
    EXPECT_TRUE(daemon.says("ready " + folder_ / "run/mts.sock"));
    EXPECT_EQ(Client(folder_ / "run/mts.sock").vsan_count(), 7u);
    EXPECT_FALSE(std::filesystem::exists(socket_path()));
}

TEST_F(DaemonTest, RestartKeepsSwitchAndLastChange) {
    auto daemon = start_ready();
    const auto change = connect().request(MANAGER_SAP_VSAN, 126, 1, {}, 8).data;
    const auto name = connect().request(MANAGER_SAP_PORT, 1282, 1, {}).data;
    daemon->signal(SIGTERM);
    EXPECT_EQ(daemon->exit_code(), 0);
    daemon = start_ready();
    EXPECT_EQ(connect().request(MANAGER_SAP_VSAN, 126, 1, {}, 8).data, change);
    EXPECT_EQ(connect().request(MANAGER_SAP_PORT, 1282, 1, {}).data, name);
}

TEST_F(DaemonTest, SocketOfAKilledDaemonIsReplaced) {
    auto daemon = start_ready();
    daemon->kill_now();
    EXPECT_TRUE(std::filesystem::exists(socket_path()));
    daemon = start_ready();
    EXPECT_EQ(connect().vsan_count(), 7u);
}

TEST_F(DaemonTest, EmptyAndInitialApplyToANewSwitchOnly) {
    write_file(folder_ / "initial.json", R"({"vsans": [{"id": 2}, {"id": 3}]})");
    auto daemon = start_ready({"--initial", folder_ / "initial.json"});
    EXPECT_EQ(connect().vsan_count(), 3u);
    daemon->signal(SIGTERM);
    EXPECT_EQ(daemon->exit_code(), 0);
    daemon = start_ready({"--empty"});
    EXPECT_EQ(connect().vsan_count(), 3u);
    EXPECT_TRUE(contains(daemon->said(), "the initial configuration is ignored"));
}

TEST_F(DaemonTest, EmptySwitchHasOneVsan) {
    const auto daemon = start_ready({"--empty"});
    EXPECT_EQ(connect().vsan_count(), 1u);
}

TEST_F(DaemonTest, SecondDaemonOnTheStateFolderIsRefusedAndTheFirstGoesOn) {
    const auto first = start_ready();
    const auto second = start({"--run", folder_ / "elsewhere"});
    EXPECT_EQ(second->exit_code(), 1);
    EXPECT_TRUE(contains(second->said(), "Another vswitchd runs on the state folder"));
    EXPECT_EQ(connect().vsan_count(), 7u);
}

TEST_F(DaemonTest, SecondDaemonOnTheRunFolderIsRefusedAndTheFirstGoesOn) {
    const auto first = start_ready();
    Daemon second({"--state", folder_ / "other", "--run", folder_ / "state"});
    EXPECT_EQ(second.exit_code(), 1);
    EXPECT_TRUE(contains(second.said(), "Another vswitchd serves"));
    EXPECT_EQ(connect().vsan_count(), 7u);
}

TEST_F(DaemonTest, SecondDaemonOnTheRunFolderIsRefusedAlthoughTheLockFileIsGone) {
    const auto first = start_ready();
    ASSERT_TRUE(std::filesystem::remove(folder_ / "state/socket.lock"));
    Daemon second({"--state", folder_ / "other", "--run", folder_ / "state"});
    EXPECT_EQ(second.exit_code(), 1);
    EXPECT_TRUE(contains(second.said(), "Another vswitchd serves"));
    EXPECT_EQ(connect().vsan_count(), 7u);
}

TEST_F(DaemonTest, GarbageDropsThatConnectionWithOneLineAndServesTheOthers) {
    const auto daemon = start_ready();
    Client good = connect();
    EXPECT_EQ(good.vsan_count(), 7u);
    Client bad = connect();
    bad.send(text_bytes("GET / HTTP/1.1\r\nHost: switch\r\n\r\n"));
    EXPECT_TRUE(bad.closed_by_daemon());
    EXPECT_EQ(good.vsan_count(), 7u);
    daemon->signal(SIGTERM);
    EXPECT_EQ(daemon->exit_code(), 0);
    const std::string line = "dropped a connection";
    const size_t first = daemon->said().find(line);
    ASSERT_NE(first, std::string::npos);
    EXPECT_EQ(daemon->said().find(line, first + 1), std::string::npos);
}

TEST_F(DaemonTest, ClientThatGoesAwayBeforeItsAnswerHarmsNobody) {
    const auto daemon = start_ready();
    for (int count = 0; count < 50; ++count) {
        Client hasty = connect();
        for (int request = 0; request < 20; ++request) {
            hasty.send(request_frame(1, MANAGER_SAP_VSAN, 149, 1, vsan_block(1)));
        }
    }
    EXPECT_EQ(connect().vsan_count(), 7u);
}

TEST_F(DaemonTest, RunningOutOfDescriptorsOnlyDelaysNewClients) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_UNDEFINED__)
    GTEST_SKIP() << "the sanitizers' own checks fail in a process without free descriptors";
#endif
    const auto daemon = start_ready({}, 24);
    std::vector<std::unique_ptr<Client>> clients;
    for (int count = 0; count < 40; ++count) {
        clients.push_back(std::make_unique<Client>(socket_path()));
    }
    EXPECT_TRUE(daemon->says("cannot accept connections for now"));
    EXPECT_EQ(clients.front()->vsan_count(), 7u);
    clients.erase(clients.begin(), clients.begin() + 35);
    EXPECT_EQ(clients.back()->vsan_count(), 7u);
}

TEST_F(DaemonTest, RolesAreReadAtStartAndAgainOnHangup) {
    std::filesystem::create_directory(folder_ / "state");
    const std::string roles = folder_ / "state/roles.json";
    const auto restricted = [&] {
        return word(connect().request(MTS_SERVICE_ROLES, 9101, 1, text_bytes("alice")).data, 0);
    };
    write_file(roles, R"({"roles": [{"name": "r", "users": ["alice"]}]})");
    const auto daemon = start_ready();
    EXPECT_EQ(restricted(), 1u);
    write_file(roles, R"({"roles": []})");
    daemon->signal(SIGHUP);
    ASSERT_TRUE(daemon->says("read the roles again"));
    EXPECT_EQ(restricted(), 0u);
    write_file(roles, R"({"roles": [{"name": "r", "users": ["alice"]}]})");
    daemon->signal(SIGHUP);
    ASSERT_TRUE(daemon->says("1 users"));
    write_file(roles, "{");
    daemon->signal(SIGHUP);
    ASSERT_TRUE(daemon->says("The former roles stay in force."));
    EXPECT_EQ(restricted(), 1u);
}

TEST_F(DaemonTest, InvalidRolesAreRefusedAtStart) {
    std::filesystem::create_directory(folder_ / "state");
    write_file(folder_ / "state/roles.json", "{");
    const auto daemon = start();
    EXPECT_EQ(daemon->exit_code(), 1);
    EXPECT_TRUE(contains(daemon->said(), folder_ / "state/roles.json")) << daemon->said();
}

TEST_F(DaemonTest, InvalidInitialConfigurationIsRefusedAndLeavesNoDatabase) {
    write_file(folder_ / "initial.json", R"({"vsans": [{"id": 5000}]})");
    const auto daemon = start({"--initial", folder_ / "initial.json"});
    EXPECT_EQ(daemon->exit_code(), 1);
    EXPECT_TRUE(contains(daemon->said(), "initial.json")) << daemon->said();
    EXPECT_FALSE(std::filesystem::exists(folder_ / "state/switch.db"));
}

TEST_F(DaemonTest, DamagedDatabaseIsRefused) {
    std::filesystem::create_directory(folder_ / "state");
    write_file(folder_ / "state/switch.db", "no database");
    const auto daemon = start();
    EXPECT_EQ(daemon->exit_code(), 1);
    EXPECT_TRUE(contains(daemon->said(), "is damaged")) << daemon->said();
    EXPECT_EQ(file_content(folder_ / "state/switch.db"), "no database");
    EXPECT_FALSE(std::filesystem::exists(socket_path()));
}

TEST_F(DaemonTest, StateFolderThatCannotBeMadeIsRefused) {
    Daemon daemon({"--state", "/proc/none/state"});
    EXPECT_EQ(daemon.exit_code(), 1);
    EXPECT_TRUE(contains(daemon.said(), "Cannot make the state folder /proc/none/state")) << daemon.said();
}

TEST(DaemonCommandLine, MistakesAreUsageErrorsAndQuestionsAreAnswered) {
    const std::pair<std::vector<std::string>, int> cases[] = {
        {{}, 2},
        {{"--state"}, 2},
        {{"--state", "x", "--nonsense"}, 2},
        {{"--state", "x", "--empty", "--initial", "y"}, 2},
        {{"--state", "x", "--log-level", "loud"}, 2},
        {{"--help"}, 0},
        {{"--version"}, 0},
    };
    for (const auto &[arguments, code] : cases) {
        Daemon daemon(arguments);
        EXPECT_EQ(daemon.exit_code(), code) << (arguments.empty() ? "no arguments" : arguments.back());
        EXPECT_FALSE(daemon.said().empty());
    }
}

} // namespace
