// SPDX-License-Identifier: Apache-2.0
// What a process has asked the switch for, in its file in the run directory. No switch runs: a
// request counts as soon as it is made.
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <tuple>

#include "contract/request_counters.h"
#include "mts.h"
#include "mts/mts_counters.h"
#include "platform_scripted_manager.h"

namespace {

void ask(uint32_t service, uint32_t opcode, uint32_t kind) {
    uint32_t length = 0;
    EXPECT_EQ(UINT32_MAX,
              cmi_req_resp(opcode, kind, nullptr, nullptr, &length, nullptr, 0, service, mts_response_q, 1));
}

class RequestCounters : public testing::Test {
  protected:
    std::vector<std::string> files() const {
        std::vector<std::string> names;
        for (const auto &entry : std::filesystem::directory_iterator(getenv(RUN_DIRECTORY_VARIABLE))) {
            names.push_back(entry.path().filename());
        }
        return names;
    }

    std::string path(const std::string &name = "requests.agent." + std::to_string(getpid())) const {
        return std::string(getenv(RUN_DIRECTORY_VARIABLE)) + "/" + name;
    }

    static request_counters content(const std::string &path) {
        request_counters counters{};
        std::ifstream file(path, std::ios::binary);
        file.read(reinterpret_cast<char *>(&counters), sizeof counters);
        EXPECT_EQ(static_cast<std::streamsize>(sizeof counters), file.gcount()) << path;
        return counters;
    }

    using Key = std::tuple<uint32_t, uint32_t, uint32_t>;
    static std::map<Key, uint64_t> asked(const std::string &path) {
        std::map<Key, uint64_t> result;
        for (const request_counter &row : content(path).rows) {
            if (row.is_used) {
                EXPECT_EQ(row.asked, row.unanswered) << "nobody answers here";
                EXPECT_EQ(0u, row.refused);
                result[{row.service, row.opcode, row.kind}] = row.asked;
            }
        }
        return result;
    }

    temporary_run_directory run;
};

TEST_F(RequestCounters, AProcessThatDoesNotWantAFileHasNone) {
    ask(15, 149, 1);
    EXPECT_EQ(std::vector<std::string>(), files());
}

TEST_F(RequestCounters, EachRequestIsCountedUnderItsServiceOpcodeAndKind) {
    mts_count_requests("agent");
    for (int time = 0; time < 3; ++time) {
        ask(15, 149, 1);
    }
    ask(15, 149, 2);
    ask(15, 125, 1);
    ask(46, 149, 1);
    ask(15, 149, 1);
    EXPECT_EQ((std::map<Key, uint64_t>{{{15, 149, 1}, 4}, {{15, 149, 2}, 1}, {{15, 125, 1}, 1}, {{46, 149, 1}, 1}}),
              asked(path()));
    const request_counters counters = content(path());
    EXPECT_EQ(REQUEST_COUNTERS_MAGIC, counters.magic);
    EXPECT_EQ(REQUEST_COUNTERS_VERSION, counters.version);
    EXPECT_EQ(std::vector{"requests.agent." + std::to_string(getpid())}, files());
}

TEST_F(RequestCounters, WhatWasCountedBeforeAFileWasWantedOrHadIsInIt) {
    ask(15, 149, 1);
    const std::string directory = getenv(RUN_DIRECTORY_VARIABLE);
    setenv(RUN_DIRECTORY_VARIABLE, (directory + "/missing").c_str(), 1);
    mts_count_requests("agent");
    ask(15, 149, 1);
    std::filesystem::create_directory(directory + "/missing");
    for (int time = 0; time < 300 && !std::filesystem::exists(path()); ++time) {
        usleep(10000); // it is not tried at every request
        ask(15, 125, 1);
    }
    EXPECT_EQ(2u, (asked(path())[{15, 149, 1}]));
    setenv(RUN_DIRECTORY_VARIABLE, directory.c_str(), 1);
}

TEST_F(RequestCounters, RequestsToTheSwitchItselfAreNotCounted) {
    mts_count_requests("agent");
    ask(MTS_SERVICE_SWITCH, MTS_OP_SWITCH_COMMAND, 1);
    ask(MTS_SERVICE_SWITCH, 0, 0);
    EXPECT_EQ((std::map<Key, uint64_t>{}), asked(path()));
}

TEST_F(RequestCounters, WhatFindsNoRowIsCountedTogether) {
    mts_count_requests("agent");
    constexpr uint32_t more = 10;
    for (uint32_t opcode = 0; opcode < REQUEST_COUNTERS_ROWS + more; ++opcode) {
        ask(15, opcode, 1);
        ask(15, opcode, 1);
    }
    const auto rows = asked(path());
    ASSERT_EQ(REQUEST_COUNTERS_ROWS + 1, rows.size());
    EXPECT_EQ(2 * more, (rows.at({0, 0, 0})));
    EXPECT_EQ(2u, (rows.at({15, REQUEST_COUNTERS_ROWS - 1, 1})));
    ask(15, 0, 1);
    EXPECT_EQ(3u, (asked(path()).at({15, 0, 1})));
}

TEST_F(RequestCounters, ForkGoesOnFromItsParentsNumbersInAFileOfItsOwn) {
    mts_count_requests("agent");
    ask(15, 149, 1);
    const pid_t child = fork();
    if (child == 0) {
        ask(15, 149, 1);
        const bool is_right = asked(path())[{15, 149, 1}] == 2;
        _exit(is_right ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    EXPECT_EQ(1u, (asked(path())[{15, 149, 1}]));
    EXPECT_NE(content(path()).instance, content(path("requests.agent." + std::to_string(child))).instance);
}

TEST_F(RequestCounters, FilesOfProcessesThatHaveGoneAreRemovedAndThoseInUseAreNot) {
    for (const char *name : {"requests.left.1", "requests.used.2", "history.left"}) {
        std::ofstream(path(name)) << "x";
    }
    const int used = open(path("requests.used.2").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(0, flock(used, LOCK_EX));
    mts_count_requests("agent");
    ask(15, 149, 1);
    EXPECT_FALSE(std::filesystem::exists(path("requests.left.1")));
    EXPECT_TRUE(std::filesystem::exists(path("requests.used.2")));
    EXPECT_TRUE(std::filesystem::exists(path("history.left")));
    close(used);
}

TEST_F(RequestCounters, FileIsHeldAndNobodyElseMayWriteIt) {
    mts_count_requests("agent");
    ask(15, 149, 1);
    const int other = open(path().c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(-1, flock(other, LOCK_SH | LOCK_NB));
    close(other);
    struct stat status = {};
    ASSERT_EQ(0, stat(path().c_str(), &status));
    EXPECT_EQ(0u, status.st_mode & (S_IWGRP | S_IWOTH | S_IROTH));
    EXPECT_EQ(1u, status.st_nlink);
}

TEST_F(RequestCounters, FileIsNeverPutInTheOthersPlace) {
    std::ofstream(path()) << "another's";
    const int other = open(path().c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(0, flock(other, LOCK_EX));
    mts_count_requests("agent");
    ask(15, 149, 1);
    EXPECT_EQ(9u, std::filesystem::file_size(path()));
    EXPECT_EQ(1u, files().size()) << "nothing is left behind";
    close(other);
}

TEST_F(RequestCounters, NameStaysOneComponentOfAPath) {
    mts_count_requests("../a.b/c");
    ask(15, 149, 1);
    EXPECT_EQ(std::vector{"requests.___a_b_c." + std::to_string(getpid())}, files());
}

} // namespace
