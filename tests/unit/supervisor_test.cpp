// SPDX-License-Identifier: Apache-2.0
// The supervisor's rules: when what has ended is started again, and what a description says.
#include <gtest/gtest.h>
#include <sstream>

#include "supervisor/description.h"
#include "supervisor/restart_policy.h"

namespace {

using namespace std::chrono_literals;
using supervisor::Problem;
using supervisor::Program;
using supervisor::RestartPolicy;

constexpr RestartPolicy::Time start{};
constexpr auto at_once = 0s;

TEST(RestartPolicy, AProgramThatRanForASecondIsStartedAgainAtOnce) {
    RestartPolicy policy;
    policy.started(start);
    EXPECT_EQ(policy.next_start(start + 1s, at_once), start + 1s);
    EXPECT_EQ(policy.next_start(start + 1h, at_once), start + 1h);
}

TEST(RestartPolicy, StartsAreASecondApartAtLeast) {
    RestartPolicy policy;
    policy.started(start);
    EXPECT_EQ(policy.next_start(start + 1ms, at_once), start + 1s);
    policy.started(start + 1s);
    EXPECT_EQ(policy.next_start(start + 1999ms, at_once), start + 2s);
}

TEST(RestartPolicy, WhoStaysAwayDoesSoFromItsEndOn) {
    RestartPolicy policy;
    policy.started(start);
    EXPECT_EQ(policy.next_start(start + 100ms, 3s), start + 3100ms);
    EXPECT_EQ(policy.next_start(start + 10s, 600s), start + 610s);
}

TEST(RestartPolicy, TenRestartsWithinAMinuteAreTheLast) {
    RestartPolicy policy;
    policy.started(start);
    for (size_t i = 1; i <= RestartPolicy::most_restarts; ++i) {
        const auto next = policy.next_start(start + i * 5s, at_once);
        ASSERT_TRUE(next) << i;
        policy.started(*next);
    }
    EXPECT_FALSE(policy.next_start(start + 51s, at_once));
    // The first of them was five seconds after the start.
    EXPECT_FALSE(policy.next_start(start + 65s - 1ms, at_once));
    EXPECT_TRUE(policy.next_start(start + 65s, at_once));
}

TEST(RestartPolicy, ElevenRestartsInMoreThanAMinuteGoOn) {
    RestartPolicy policy;
    policy.started(start);
    for (int i = 1; i <= 100; ++i) {
        const auto next = policy.next_start(start + i * 6s, at_once);
        ASSERT_TRUE(next) << i;
        policy.started(*next);
    }
}

TEST(RestartPolicy, TheFirstStartIsNoneAgain) {
    RestartPolicy policy;
    EXPECT_EQ(policy.next_start(start, at_once), start);
    policy.started(start);
    for (size_t i = 1; i < RestartPolicy::most_restarts; ++i) {
        policy.started(start + i * 1s);
    }
    EXPECT_TRUE(policy.next_start(start + 10s, at_once));
    policy.started(start + 10s);
    EXPECT_FALSE(policy.next_start(start + 11s, at_once));
}

std::vector<Program> read(const std::string &text) {
    std::istringstream stream(text);
    return supervisor::read_description(stream, "the file");
}

std::string problem_of(const std::string &text) {
    try {
        read(text);
    } catch (const Problem &problem) {
        return problem.what();
    }
    return "";
}

TEST(Description, ProgramsStandInTheirOrderWithAllThatIsSaidOfThem) {
    const auto programs = read("# two programs\n\n"
                               "program first\nrun one\nrun --with\nrun two words\ntells 3\noutput 12\nlog /a b/log\n"
                               "program second\nattend three\nattend 3\ntells 4\nrun four\n");
    ASSERT_EQ(programs.size(), 2u);
    EXPECT_EQ(programs[0].name, "first");
    EXPECT_EQ(programs[0].words, (std::vector<std::string>{"one", "--with", "two words"}));
    EXPECT_TRUE(programs[0].attendant.empty());
    EXPECT_EQ(programs[0].tells, 3);
    EXPECT_EQ(programs[0].output, 12);
    EXPECT_EQ(programs[0].log, "/a b/log");
    EXPECT_EQ(programs[1].attendant, (std::vector<std::string>{"three", "3"}));
    EXPECT_EQ(programs[1].tells, 4);
    EXPECT_EQ(programs[1].output, std::nullopt);
    EXPECT_EQ(programs[1].log, "");
}

TEST(Description, AValueIsTakenAsItIs) {
    const auto programs = read("program p\nrun  a \\\"'# \xff\nrun \nrun\n");
    EXPECT_EQ(programs[0].words, (std::vector<std::string>{" a \\\"'# \xff", "", ""}));
}

TEST(Description, WhatIsWrongIsNamedWithItsLine) {
    EXPECT_EQ(problem_of(""), "the file describes no program");
    EXPECT_EQ(problem_of("# one\nlog x\n"), "line 2 of the file: \"log\" stands before the first program");
    EXPECT_EQ(problem_of("program p\nrun x\nrestart no\n"), "line 3 of the file: there is no key \"restart\"");
    EXPECT_EQ(problem_of("program\n"), "line 1 of the file: a program needs a name");
    EXPECT_EQ(problem_of("program p\nrun x\nprogram p\n"), "line 3 of the file: there is a program p already");
    EXPECT_EQ(problem_of("program p\ntells 3\n"), "line 2 of the file: the program p has no command line");
    EXPECT_EQ(problem_of("program p\nprogram q\nrun x\n"), "line 2 of the file: the program p has no command line");
    EXPECT_EQ(problem_of("program p\nrun x\nattend y\n"),
              "line 3 of the file: the attendant of p has no descriptor to tell on");
}

TEST(Description, DescriptorsAreNumbersBehindTheStandardOnes) {
    for (const std::string value : {"", "2", "-3", "3x", " 3", "99999999999"}) {
        const std::string sentence = "line 2 of the file: a descriptor is a number from 3 on, not \"" + value + "\"";
        EXPECT_EQ(problem_of("program p\ntells " + value + "\nrun x\n"), sentence);
        EXPECT_EQ(problem_of("program p\noutput " + value + "\nrun x\n"), sentence);
    }
}

} // namespace
