// SPDX-License-Identifier: Apache-2.0
// The order in which the lines of a scenario act, on a clock of the test's own.
#include "tool/timeline.h"

#include <algorithm>
#include <fmt/format.h>
#include <functional>
#include <gtest/gtest.h>
#include <map>

namespace vswitchctl {

namespace {

using std::chrono::milliseconds;
using Words = std::vector<std::string>;
using Log = std::vector<std::string>;

// A switch on which everything can be done and asked, and a clock that goes on only when something is waited for
// or takes its time. A command is `do`, `do NAME`, `take TIME` or `refuse`; a condition is `from TIME`.
class FakeStage : public Stage {
  public:
    Log log;
    std::map<std::string_view, Words> lists;

    Milliseconds now() override { return now_; }
    void sleep_until(Milliseconds moment, uint32_t line) override {
        if (moment > now_) {
            sleeping_line_ = line;
            now_ = moment;
        }
    }
    void act(uint32_t line, const Words &words) override {
        log.push_back(fmt::format("{} {} {}", now_.count(), line, line_text(words)));
        if (words[0] == "take") {
            now_ += Milliseconds(std::stoi(words[1]));
        } else if (words[0] == "refuse") {
            throw Refusal("No.");
        }
    }
    std::optional<std::string> refusal(uint32_t line, const Words &words) override {
        try {
            act(line, words);
            return std::nullopt;
        } catch (const Refusal &refused) {
            return refused.what();
        }
    }
    std::optional<std::string> failure(uint32_t line, const Words &words) override {
        log.push_back(fmt::format("{} {} {}?", now_.count(), line, line_text(words)));
        return now_ >= moment_of(words) ? std::nullopt : std::optional<std::string>("Not yet.");
    }
    bool wait(uint32_t line, const Words &words, Milliseconds moment) override {
        sleep_until(std::min(moment, moment_of(words)), line);
        return now_ >= moment_of(words);
    }
    Words values(const EachKind &each) override {
        if (!lists.contains(each.words)) {
            throw Refusal("No switch.");
        }
        return lists[each.words];
    }

    uint32_t sleeping_line() const { return sleeping_line_; }

  private:
    static Milliseconds moment_of(const Words &words) { return Milliseconds(std::stoi(words.at(1))); }

    Milliseconds now_{0};
    uint32_t sleeping_line_ = 0;
};

Scenario read(const std::string &text, uint64_t seed = 1) {
    const auto anything = [](const Words &) {};
    Scenario scenario = read_scenario(text, "file", {anything, anything, {"do", "take", "refuse"}});
    scenario.seed = seed;
    return scenario;
}

// What a scenario does: the moment, the line and the command of each action.
Log played(const std::string &text, uint64_t seed = 1) {
    FakeStage stage;
    const Scenario scenario = read(text, seed);
    Timeline(scenario, stage).play();
    return stage.log;
}

// Plays one that is refused, and returns the sentence.
std::string refusal(FakeStage &stage, const std::string &text) {
    const Scenario scenario = read(text);
    try {
        Timeline(scenario, stage).play();
        return "";
    } catch (const Refusal &refused) {
        return refused.what();
    }
}

TEST(Timeline, LinesActOneAfterTheOther) {
    EXPECT_EQ(
        played("do a\ntake 30\ndo b\nwait 1s\nexpect from 0\nexpect refused refuse\ndo c\nwait from 2000 within 5s\n"
               "do d"),
        (Log{"0 1 do a", "0 2 take 30", "30 3 do b", "1030 5 from 0?", "1030 6 refuse", "1030 7 do c", "2000 9 do d"}));
    EXPECT_EQ(played(""), Log{});
}

TEST(Timeline, AtCountsFromTheStartWhereverItStands) {
    EXPECT_EQ(played("at 20ms do b\ndo a\nwait 50ms\nat 10ms do c\nat 50ms do d\ndo e\nat 0s do f"),
              (Log{"0 2 do a", "0 7 do f", "10 4 do c", "20 1 do b", "50 5 do d", "50 6 do e"}));
}

TEST(Timeline, EveryBeginsWhereItStandsAndGoesOnBesideTheLinesBelow) {
    EXPECT_EQ(played("wait 5ms\nevery 100ms 3 times do a\ndo b\nwait 100ms\ndo c\nwait from 150 within 1s\ndo d"),
              (Log{"5 2 do a", "5 3 do b", "105 2 do a", "105 5 do c", "150 7 do d", "205 2 do a"}));
}

TEST(Timeline, TwoThatAlternateStayInTheirOrder) {
    EXPECT_EQ(played("every 100ms for 300ms do down\nwait 50ms\nevery 100ms for 300ms do up"),
              (Log{"0 1 do down", "50 3 do up", "100 1 do down", "150 3 do up", "200 1 do down", "250 3 do up"}));
}

TEST(Timeline, EndsWhenAllHasEnded) {
    FakeStage stage;
    const Scenario scenario = read("at 1s do a\nwait 3s");
    Timeline timeline(scenario, stage);
    timeline.play();
    EXPECT_EQ(stage.now(), milliseconds(3000));
    EXPECT_EQ(stage.sleeping_line(), 2u);
    EXPECT_EQ(timeline.actions(), 1u);
    EXPECT_EQ(timeline.latest(), milliseconds(0));
}

TEST(Timeline, WhatIsLateIsCaughtUpAtTwiceThePaceAndNothingIsLeftOut) {
    FakeStage stage;
    const Scenario scenario = read("every 100ms 9 times do a\nat 100ms take 450");
    Timeline timeline(scenario, stage);
    timeline.play();
    EXPECT_EQ(stage.log, (Log{"0 1 do a", "100 1 do a", "100 2 take 450", "550 1 do a", "600 1 do a", "650 1 do a",
                              "700 1 do a", "750 1 do a", "800 1 do a", "850 1 do a"}));
    EXPECT_EQ(timeline.latest(), milliseconds(350));
    EXPECT_EQ(timeline.actions(), 10u);
}

TEST(Timeline, CatchingUpLeavesAMillisecondToTheShortestRepetition) {
    EXPECT_EQ(played("every 1ms 4 times do a\nat 0s take 5"),
              (Log{"0 1 do a", "0 2 take 5", "5 1 do a", "6 1 do a", "7 1 do a"}));
}

TEST(Timeline, WhatIsAlwaysLateLeavesTheOthersTheirTurn) {
    const Log log = played("every 1ms 20 times take 10\ndo b\nwait from 15 within 1s\ndo c\nat 30ms do d");
    ASSERT_EQ(log.size(), 23u);
    const auto place = [&](const char *what) {
        return std::ranges::find_if(log, [&](const std::string &entry) { return entry.ends_with(what); }) - log.begin();
    };
    EXPECT_LT(place(" 2 do b"), 3);
    EXPECT_LT(place(" 4 do c"), 8);
    EXPECT_LT(place(" 5 do d"), 8);
}

TEST(Timeline, OfWhatIsDueTheLongestIsFirstAndThenTheUpperLine) {
    EXPECT_EQ(played("at 20ms do c\nat 10ms do b\nat 10ms do a\nat 0s take 50"),
              (Log{"0 4 take 50", "50 2 do b", "50 3 do a", "50 1 do c"}));
}

TEST(Timeline, TheFirstRefusalEndsIt) {
    FakeStage stage;
    EXPECT_EQ(refusal(stage, "do a\nrefuse\ndo b"), "file:2: No.");
    EXPECT_EQ(stage.log, (Log{"0 1 do a", "0 2 refuse"}));
    FakeStage other;
    EXPECT_EQ(refusal(other, "wait 1s\ndo b\n\nat 5ms refuse"), "file:4: No.");
    EXPECT_EQ(other.log, (Log{"5 4 refuse"}));
}

TEST(Timeline, SaysWhatWasExpectedAndWhatIs) {
    FakeStage stage;
    EXPECT_EQ(refusal(stage, "expect from 5"), "file:1: Expected 'from 5'. Not yet.");
    EXPECT_EQ(refusal(stage, "\nexpect refused do a"),
              "file:2: The switch was expected to refuse 'do a', and has carried it out.");
    EXPECT_EQ(refusal(stage, "wait from 2000 within 1s\ndo a"), "file:1: 'from 2000' did not come within 1s. Not yet.");
    EXPECT_EQ(stage.now(), milliseconds(1000));
}

TEST(Timeline, AConditionIsLookedAtOnceWithoutAnyTime) {
    EXPECT_EQ(played("wait from 0 within 0s\ndo a"), Log{"0 2 do a"});
    FakeStage stage;
    EXPECT_EQ(refusal(stage, "wait from 1 within 0s"), "file:1: 'from 1' did not come within 0s. Not yet.");
}

TEST(Timeline, LinesForEachActForOneAfterTheOther) {
    FakeStage stage;
    stage.lists["vsan"] = {"1", "10"};
    stage.lists["up port"] = {};
    stage.lists["port"] = {"fc1", "fc2"};
    const Scenario scenario = read("do a\nfor each vsan\n do {vsan}\n wait 10ms\n expect from {vsan}\nend\n"
                                   "for each up port\ndo {port}\nend\nfor each port\nend\n"
                                   "for each port\ndo x{port}x{port}\nend\ndo b");
    Timeline(scenario, stage).play();
    EXPECT_EQ(stage.log, (Log{"0 1 do a", "0 3 do 1", "10 5 from 1?", "10 3 do 10", "20 5 from 10?",
                              "20 13 do xfc1xfc1", "20 13 do xfc2xfc2", "20 15 do b"}));
}

TEST(Timeline, WithoutASwitchToAskNothingActs) {
    FakeStage stage;
    EXPECT_EQ(refusal(stage, "do a\nfor each vsan\ndo {vsan}\nend"), "file:2: No switch.");
    EXPECT_EQ(stage.log, Log{});
}

TEST(Timeline, AsManyAsThereAreMayBeTooMany) {
    FakeStage stage;
    stage.lists["port"] = Words(500001, "fc1");
    const Scenario scenario = read("do a\nfor each port\ndo a\ndo b\nend");
    try {
        Timeline(scenario, stage).play();
        FAIL();
    } catch (const UsageError &error) {
        EXPECT_EQ(std::string(error.what()),
                  "file:2: With all that there are on this switch, 500001, the scenario would "
                  "act more than 1000000 times.");
    }
    EXPECT_EQ(stage.log, Log{});
}

std::vector<uint32_t> drawn(uint64_t seed, uint32_t line, uint32_t below) {
    Chance chance(seed, line);
    std::vector<uint32_t> numbers;
    for (int count = 0; count < 8; ++count) {
        numbers.push_back(chance.below(below));
    }
    return numbers;
}

TEST(Chance, IsTheSameEverywhere) {
    EXPECT_EQ(drawn(1, 1, 100), (std::vector<uint32_t>{32, 56, 78, 54, 48, 89, 10, 46}));
    EXPECT_EQ(drawn(1, 2, 100), (std::vector<uint32_t>{39, 31, 53, 66, 69, 27, 19, 60}));
    EXPECT_EQ(drawn(2, 1, 100), (std::vector<uint32_t>{53, 97, 8, 34, 90, 77, 34, 52}));
    EXPECT_EQ(drawn(UINT64_MAX, UINT32_MAX, UINT32_MAX),
              (std::vector<uint32_t>{911377967, 3659234349, 2741119584, 2108490185, 196250405, 1579034426, 3016379442,
                                     803407170}));
    EXPECT_EQ(drawn(0, 5, 1), (std::vector<uint32_t>(8, 0)));
}

TEST(Chance, IsAsOftenAsItSays) {
    Chance chance(7, 3);
    std::map<uint32_t, int> counts;
    for (int count = 0; count < 100000; ++count) {
        ++counts[chance.below(10)];
    }
    EXPECT_EQ(counts.size(), 10u);
    for (const auto &[number, count] : counts) {
        EXPECT_NEAR(count, 10000, 400) << number;
    }
}

TEST(Timeline, ChanceSparesTheSameRepetitionsForTheSameSeed) {
    const std::string text = "every 10ms 10 times chance 30% do a";
    EXPECT_EQ(played(text, 1), (Log{"60 1 do a", "90 1 do a"}));
    EXPECT_EQ(played(text, 2), (Log{"20 1 do a", "80 1 do a"}));
}

TEST(Timeline, JitterIsLaterByAtMostThatMuchAndTheSameForTheSameSeed) {
    const std::string text = "every 100ms 4 times jitter 50ms do a\nat 1s jitter 10ms do b";
    EXPECT_EQ(played(text, 1), (Log{"16 1 do a", "128 1 do a", "239 1 do a", "327 1 do a", "1004 2 do b"}));
    EXPECT_EQ(played(text, 2), (Log{"27 1 do a", "149 1 do a", "204 1 do a", "317 1 do a", "1005 2 do b"}));
}

TEST(Timeline, WhatOneLineDrawsDoesNotHangOnTheOthers) {
    const auto of_line = [](const Log &log, const std::string &line) {
        Log found;
        for (const std::string &entry : log) {
            if (entry.find(" " + line + " ") != std::string::npos) {
                found.push_back(entry);
            }
        }
        return found;
    };
    const std::string text = "every 100ms 20 times jitter 50ms chance 50% do a";
    const Log alone = played(text);
    EXPECT_GT(alone.size(), 3u);
    EXPECT_EQ(of_line(played(text + "\nevery 30ms 50 times jitter 5ms chance 20% do b"), "1"), alone);
}

} // namespace

} // namespace vswitchctl
