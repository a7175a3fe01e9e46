// SPDX-License-Identifier: Apache-2.0
// What may stand in a scenario, and what is said of a line that may not.
#include "tool/scenario.h"

#include <fmt/format.h>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>

#include "tool/client.h"

namespace vswitchctl {

namespace {

using std::chrono::milliseconds;
using Words = std::vector<std::string>;

// A tool that knows two commands and one condition, and notes what it was asked about.
struct Tool {
    std::vector<Words> commands, conditions;
    ScenarioChecks checks{[this](const Words &words) {
                              commands.push_back(words);
                              if (words.size() < 2) {
                                  throw UsageError("port: something is missing");
                              }
                          },
                          [this](const Words &words) {
                              conditions.push_back(words);
                              if (words[0] != "vsan") {
                                  throw UsageError("no condition");
                              }
                          },
                          {"port", "vsan"}};
};

Scenario read(const std::string &text) {
    Tool tool;
    return read_scenario(text, "file", tool.checks);
}

// Why a text is no scenario.
std::string complaint(const std::string &text) {
    try {
        read(text);
        return "";
    } catch (const UsageError &error) {
        return error.what();
    }
}

TEST(ScenarioWords, AreSplitAtBlanksAndJoinedByQuotes) {
    EXPECT_EQ(split_words("  port\talias fc3 'tape library' "), (Words{"port", "alias", "fc3", "tape library"}));
    EXPECT_EQ(split_words("a''b \"c'd\"'e\"f' ''"), (Words{"ab", "c'de\"f", ""}));
    EXPECT_EQ(split_words("port #1 # comment"), (Words{"port"}));
    EXPECT_EQ(split_words("port fc#1 '#1'"), (Words{"port", "fc#1", "#1"}));
    EXPECT_EQ(split_words("# 'only"), Words{});
    EXPECT_EQ(split_words(R"($HOME `ls` a;b \n ~ * |)"), (Words{"$HOME", "`ls`", "a;b", "\\n", "~", "*", "|"}));
    EXPECT_THROW(split_words("port 'fc3"), UsageError);
    EXPECT_THROW(split_words("port fc3\""), UsageError);
    for (const char *line :
         {"port alias fc3 'tape library'", "port alias fc3 ''", "port alias fc3 \"it's\"", "port alias fc3 '#1'"}) {
        EXPECT_EQ(line_text(split_words(line)), line);
    }
}

TEST(Scenario, HasStatementsWithTheirLines) {
    const Scenario scenario = read("\xEF\xBB\xBF# head\r\n\r\nseed 7\r\nport down fc3\r\n"
                                   "at 2s jitter 5ms chance 30% port up fc3\n"
                                   "every 500ms for 1m port down fc3\n"
                                   "every 500ms 20 times jitter 250ms chance 100% port up fc3\n"
                                   "wait 3s\nwait vsan 10 oper up within 5s\nexpect vsan 10 exists\n"
                                   "expect refused vsan create 10");
    EXPECT_EQ(scenario.seed, 7u);
    ASSERT_EQ(scenario.statements.size(), 8u);
    uint32_t line = 4;
    for (const Statement &statement : scenario.statements) {
        EXPECT_EQ(statement.line, line++);
    }
    const Statement &once = scenario.statements[1], &minute = scenario.statements[2], &twenty = scenario.statements[3];
    EXPECT_EQ(once.kind, StatementKind::timed);
    EXPECT_FALSE(once.is_every);
    EXPECT_EQ(once.first, milliseconds(2000));
    EXPECT_EQ(once.jitter, milliseconds(5));
    EXPECT_EQ(once.percent, 30u);
    EXPECT_EQ(once.words, (Words{"port", "up", "fc3"}));
    EXPECT_TRUE(minute.is_every);
    EXPECT_EQ(minute.repetitions, 120u);
    EXPECT_EQ(twenty.repetitions, 20u);
    EXPECT_EQ(twenty.jitter, milliseconds(250));
    EXPECT_EQ(twenty.percent, 100u);
    EXPECT_EQ(scenario.statements[4].kind, StatementKind::pause);
    EXPECT_EQ(scenario.statements[5].time, milliseconds(5000));
    EXPECT_EQ(scenario.statements[5].words, (Words{"vsan", "10", "oper", "up"}));
    EXPECT_EQ(scenario.statements[6].kind, StatementKind::expect);
    EXPECT_EQ(scenario.statements[7].kind, StatementKind::refused);
    EXPECT_EQ(scenario.statements[7].words, (Words{"vsan", "create", "10"}));
}

TEST(Scenario, RepeatsForATimeAsOftenAsItBeginsWithin) {
    const auto repetitions = [](const char *text) { return read(text).statements.at(0).repetitions; };
    EXPECT_EQ(repetitions("every 500ms for 499ms port up fc3"), 1u);
    EXPECT_EQ(repetitions("every 500ms for 500ms port up fc3"), 1u);
    EXPECT_EQ(repetitions("every 500ms for 501ms port up fc3"), 2u);
    EXPECT_EQ(repetitions("every 168h for 168h port up fc3"), 1u);
}

TEST(Scenario, ChecksEachCommandAndEachCondition) {
    Tool tool;
    read_scenario("port down fc3\nat 1s port down fc3\nevery 1s 2 times port down fc4\nexpect refused vsan delete 1\n"
                  "expect vsan 1 exists\nwait vsan 2 exists within 1s\n"
                  "for each port\n port up {port}\n wait vsan x{port} within 1s\nend\n"
                  "for each active vsan\nvsan show {vsan}{vsan}\nexpect vsan {vsan}\nend",
                  "file", tool.checks);
    EXPECT_EQ(tool.commands, (std::vector<Words>{{"port", "down", "fc3"},
                                                 {"port", "down", "fc3"},
                                                 {"port", "down", "fc4"},
                                                 {"vsan", "delete", "1"},
                                                 {"port", "up", "fc1"},
                                                 {"vsan", "show", "11"}}));
    EXPECT_EQ(tool.conditions,
              (std::vector<Words>{{"vsan", "1", "exists"}, {"vsan", "2", "exists"}, {"vsan", "xfc1"}, {"vsan", "1"}}));
}

TEST(Scenario, GoesThroughVsansAndPorts) {
    const Scenario scenario = read("for each vsan\nport a {vsan}\nwait 1s\nend\nfor each up port\nend\n"
                                   "for each port\nend\nfor each active vsan\nend");
    ASSERT_EQ(scenario.statements.size(), 4u);
    EXPECT_EQ(scenario.statements[0].block.size(), 2u);
    EXPECT_EQ(scenario.statements[0].block[1].line, 3u);
    std::vector<std::string_view> kinds;
    for (const Statement &statement : scenario.statements) {
        kinds.push_back(statement.each->words);
    }
    EXPECT_EQ(kinds, (std::vector<std::string_view>{"vsan", "up port", "port", "active vsan"}));
}

struct Wrong {
    const char *text;
    const char *complaint;
};

class WrongScenario : public testing::TestWithParam<Wrong> {};

TEST_P(WrongScenario, IsRefusedWithItsLineAndWhatCanStandThere) {
    EXPECT_EQ(complaint(GetParam().text), std::string("file:") + GetParam().complaint);
    // Nothing hangs on what stands above it.
    const std::string below = complaint(std::string("# one\n\nport up fc1\n") + GetParam().text);
    const int line = std::atoi(GetParam().complaint);
    EXPECT_TRUE(below.starts_with(fmt::format("file:{}:", line + 3))) << below;
}

constexpr const char *at_form = "write 'at 2s COMMAND'.";
constexpr const char *every_form = "write 'every 500ms for 1m COMMAND' or 'every 500ms 20 times COMMAND'.";

const std::string &kept(std::string text) {
    static std::vector<std::unique_ptr<std::string>> all;
    return *all.emplace_back(std::make_unique<std::string>(std::move(text)));
}

Wrong wrong(const char *text, const std::string &complaint) {
    return {text, kept(complaint).c_str()};
}

INSTANTIATE_TEST_SUITE_P(
    Statements, WrongScenario,
    testing::Values(
        wrong("port", "1: port: something is missing"),
        wrong("'port' 'fc3", "1: The quotation mark ' has no second one."),
        wrong(
            "evry 5s 2 times port up fc3",
            "1: 'evry' begins no statement and no command; the nearest is 'every 500ms for 1m COMMAND' or 'every 500ms "
            "20 times COMMAND'."),
        wrong("prt up fc3", "1: 'prt' begins no statement and no command; the nearest is 'port'."),
        wrong("zzzzzz", "1: 'zzzzzz' begins no statement and no command."),
        wrong("sh -c reboot", "1: 'sh' begins no statement and no command."),
        wrong("''", "1: '' begins no statement and no command."),
        wrong("at", std::string("1: A time is missing; ") + at_form),
        wrong("at 2 port up fc3", std::string("1: '2' is no time from 0s to 168h; ") + at_form),
        wrong("at 2s", std::string("1: A command is missing; ") + at_form),
        wrong("at 2s jitter", std::string("1: A time is missing; ") + at_form),
        wrong("at 2s chance 30 port up fc3", std::string("1: '30' is no chance such as 30%; ") + at_form),
        wrong("at 2s chance 0% port up fc3", std::string("1: '0' is no number from 1 to 100; ") + at_form),
        wrong("at 2s chance 101% port up fc3", std::string("1: '101' is no number from 1 to 100; ") + at_form),
        wrong("at 2s wait 3s",
              "1: 'wait' begins no statement and no command; the nearest is 'wait 3s' or 'wait CONDITION "
              "within 5s'."),
        wrong("every 0s 2 times port up fc3", std::string("1: '0s' is no time from 1ms to 168h; ") + every_form),
        wrong("every 1s port up fc3",
              std::string("1: 'port' is no number from 1 to 18446744073709551615; ") + every_form),
        wrong("every 1s 0 times port up fc3",
              std::string("1: '0' is no number from 1 to 18446744073709551615; ") + every_form),
        wrong("every 1s 20 port up fc3", std::string("1: 'times' is missing behind the number; ") + every_form),
        wrong("every 1s", std::string("1: 'for', or a number of times is missing; ") + every_form),
        wrong("every 1s 20 times", std::string("1: A command is missing; ") + every_form),
        wrong("every 1s 20 times jitter 501ms port up fc3",
              "1: The jitter is at most half of the time from one repetition to the next, here 500ms."),
        wrong("wait", "1: A time is missing; write 'wait 3s' or 'wait CONDITION within 5s'."),
        wrong("wait vsan 1 exists", "1: A time is missing; write 'wait 3s' or 'wait CONDITION within 5s'."),
        wrong("wait within 5s", "1: A time is missing; write 'wait 3s' or 'wait CONDITION within 5s'."),
        wrong("wait vsan 1 within long",
              "1: 'long' is no time from 0s to 168h; write 'wait 3s' or 'wait CONDITION within "
              "5s'."),
        wrong("wait 3", "1: '3' is no time from 0s to 168h; write 'wait 3s' or 'wait CONDITION within 5s'."),
        wrong("wait port 1 within 5s", "1: no condition"), wrong("expect port 1", "1: no condition"),
        wrong("expect", "1: A condition is missing; write 'expect CONDITION' or 'expect refused COMMAND'."),
        wrong("expect refused", "1: A command is missing; write 'expect CONDITION' or 'expect refused COMMAND'."),
        wrong("expect refused port", "1: port: something is missing"),
        wrong("seed", "1: A number is missing; write 'seed 7'."),
        wrong("seed 18446744073709551616",
              "1: '18446744073709551616' is no number from 0 to 18446744073709551615; write 'seed 7'."),
        wrong("seed 1 2", "1: '2' is too much; write 'seed 7'."),
        wrong("seed 1\nseed 1", "2: A scenario has one seed, outside 'for each'; write 'seed 7'."),
        wrong("port up \x01\x1b[2J\npart", "2: 'part' begins no statement and no command; the nearest is 'port'.")));

INSTANTIATE_TEST_SUITE_P(
    Blocks, WrongScenario,
    testing::Values(
        wrong("for",
              "1: This is not what can be said of each; write 'for each vsan', 'for each active vsan', 'for each "
              "port' or 'for each up port'."),
        wrong("for each disk", "1: This is not what can be said of each; write 'for each vsan', 'for each active "
                               "vsan', 'for each port' or "
                               "'for each up port'."),
        wrong("end", "1: No 'for each' stands before this 'end'."),
        wrong("for each vsan\nport up fc1", "1: 'for each' has no 'end'."),
        wrong("for each vsan\nend now", "2: Behind 'end' nothing can stand."),
        wrong("for each vsan\nfor each port\nend\nend",
              "2: 'for each' cannot stand within that of line 1; write 'end' first."),
        wrong("for each vsan\nseed 1\nend", "2: A scenario has one seed, outside 'for each'; write 'seed 7'."),
        wrong("for each vsan\nat 1s port up fc1\nend", "2: 'at' cannot stand between 'for each' and 'end', where one "
                                                       "line waits for the other; write 'wait 3s', or "
                                                       "put it in front of them."),
        wrong("for each vsan\nevery 1s 2 times port up fc1\nend",
              "2: 'every' cannot stand between 'for each' and 'end', where one line waits for the other; write 'wait "
              "3s', "
              "or put it in front of them."),
        wrong("port up {port}", "1: {port} means something only between 'for each port' and 'end'."),
        wrong("expect vsan a{vsan}", "1: {vsan} means something only between 'for each vsan' and 'end'."),
        wrong("for each vsan\nport up {port}\nend",
              "2: {port} means something only between 'for each port' and 'end'.")));

TEST(ScenarioLimits, NameTheLineThatBreaksThem) {
    const std::string lines(max_scenario_lines, '\n');
    EXPECT_EQ(complaint(lines), "");
    EXPECT_EQ(complaint(lines + "#"), "file:100001: A scenario has at most 100000 lines.");
    const std::string line = "port up " + std::string(max_scenario_line_bytes - 8, 'x');
    EXPECT_EQ(complaint(line), "");
    EXPECT_EQ(complaint("\n" + line + "x"), "file:2: A line has at most 4096 bytes.");
    EXPECT_EQ(complaint(std::string("\nport up \0fc1", 13)), "file:2: A NUL byte stands here; a scenario is text.");
    EXPECT_EQ(complaint("\n\nport up \xFF"), "file:3: This is not UTF-8.");
    EXPECT_EQ(complaint("\n# \xC3"), "file:2: This is not UTF-8.");
}

TEST(ScenarioLimits, CountWhatIsDoneWithAllRepetitions) {
    EXPECT_EQ(complaint("every 1ms 1000000 times port up fc3"), "");
    EXPECT_EQ(complaint("every 1ms 1000001 times port up fc3"),
              "file:1: 1000001 repetitions are too many: a scenario acts at most 1000000 times.");
    EXPECT_EQ(complaint("every 1ms 1000000000 times port up fc3"),
              "file:1: 1000000000 repetitions are too many: a scenario acts at most 1000000 times.");
    EXPECT_EQ(complaint("every 1ms for 168h port up fc3"),
              "file:1: 604800000 repetitions are too many: a scenario acts at most 1000000 times.");
    EXPECT_EQ(complaint("port up fc3\nevery 1ms 999999 times port up fc3\n\nwait 1s"),
              "file:4: With this line the scenario would act more than 1000000 times.");
    EXPECT_EQ(complaint("every 1h 169 times port up fc3"), "");
    EXPECT_EQ(complaint("every 1h 170 times port up fc3"),
              "file:1: The last repetition would be later than 168h after the first, which is the most.");
}

class ScenarioFile : public testing::Test {
  protected:
    ~ScenarioFile() override { std::remove(path_.c_str()); }
    void write(const std::string &text) const { std::ofstream(path_, std::ios::binary) << text; }

    const std::string path_ = testing::TempDir() + "scenario_file_test";
};

TEST_F(ScenarioFile, IsReadWhole) {
    const std::string text("port up fc3\n\0x", 14);
    write(text);
    EXPECT_EQ(read_scenario_file(path_), text);
    write(std::string(max_scenario_bytes, 'x'));
    EXPECT_EQ(read_scenario_file(path_).size(), max_scenario_bytes);
}

TEST_F(ScenarioFile, IsRefusedWithItsLineWhenItIsTooLarge) {
    write(std::string(max_scenario_bytes / 2, '\n') + std::string(max_scenario_bytes, 'x'));
    try {
        read_scenario_file(path_);
        FAIL();
    } catch (const UsageError &error) {
        EXPECT_EQ(std::string(error.what()),
                  path_ + ":2097153: Here the file has 4194304 bytes, and a scenario may not have more.");
    }
}

TEST_F(ScenarioFile, ThatCannotBeReadIsNamed) {
    for (const auto &[path, reason] : {std::pair(path_, "No such file or directory"), {"/", "Is a directory"}}) {
        try {
            read_scenario_file(path);
            FAIL();
        } catch (const Refusal &refusal) {
            EXPECT_EQ(std::string(refusal.what()), "Cannot read " + path + ": " + reason + ".");
        }
    }
}

TEST(Scenario, IsOneTransactionOnlyWhereThereAreNoTimes) {
    const auto wrong_line = [](const char *text) {
        try {
            require_commands_only(read(text));
            return std::string();
        } catch (const UsageError &error) {
            return std::string(error.what()).substr(0, 7);
        }
    };
    EXPECT_EQ(wrong_line("seed 1\nport up fc3\nfor each vsan\nvsan show {vsan}\nend"), "");
    for (const char *line : {"at 1s port up fc3", "every 1s 2 times port up fc3", "wait 1s", "wait vsan 1 within 1s",
                             "expect vsan 1", "expect refused port up fc3"}) {
        EXPECT_EQ(wrong_line(fmt::format("\n{}", line).c_str()), "file:2:") << line;
    }
    EXPECT_EQ(wrong_line("\nfor each vsan\nvsan show {vsan}\nwait 1s\nend"), "file:4:");
}

} // namespace

} // namespace vswitchctl
