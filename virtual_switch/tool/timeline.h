// SPDX-License-Identifier: Apache-2.0
// The order in which the lines of a scenario act.
//
// 1. The lines act one after the other. A command is done when the switch has answered, `wait` when its time is
//    over or its condition holds, `expect` at once.
// 2. `at` is set up before the first line acts, `every` when its turn has come. From then on they act by themselves
//    when their time is there, whatever the other lines wait for meanwhile. The scenario ends when all have ended.
// 3. One thing is done at a time: of what is due, what has been due for longest, and of those due at the same
//    millisecond the line that stands further up.
// 4. What is late is not left out. A repetition begins when half of its period, and a millisecond, have passed since
//    the one before began, at the earliest: what is behind is caught up at twice the pace and never all at once.
// 5. The first refusal ends it.
#ifndef VSWITCHCTL_TIMELINE_H
#define VSWITCHCTL_TIMELINE_H

#include <chrono>
#include <optional>
#include <queue>
#include <string>
#include <vector>

#include "tool/chance.h"
#include "tool/client.h"
#include "tool/scenario.h"

namespace vswitchctl {

// Where a scenario is played: a clock and a switch. Times are since the start.
class Stage {
  public:
    using Milliseconds = std::chrono::milliseconds;

    virtual ~Stage() = default;
    virtual Milliseconds now() = 0;
    // `line` is the one that is waited for.
    virtual void sleep_until(Milliseconds moment, uint32_t line) = 0;
    // Carries out a command. Throws Refusal.
    virtual void act(uint32_t line, const std::vector<std::string> &words) = 0;
    // The sentence that the switch refuses a command with, or nothing when it does not. Throws Refusal when
    // there is no switch.
    virtual std::optional<std::string> refusal(uint32_t line, const std::vector<std::string> &words) = 0;
    // What is instead of a condition, or nothing when it holds. Throws Refusal.
    virtual std::optional<std::string> failure(uint32_t line, const std::vector<std::string> &words) = 0;
    // Whether a condition comes to hold before a moment; looks at it at least once. A switch that is not there
    // is one of which it does not hold.
    virtual bool wait(uint32_t line, const std::vector<std::string> &words, Milliseconds moment) = 0;
    // What `for each` goes through. Throws Refusal.
    virtual std::vector<std::string> values(const EachKind &each) = 0;
};

class Timeline {
  public:
    // Both outlive this object.
    Timeline(const Scenario &scenario, Stage &stage);

    // Plays the whole scenario. Throws PlacedRefusal, and UsageError where the values of
    // `for each` make the scenario longer than one may be, before anything has acted.
    void play();

    uint32_t actions() const { return actions_; }
    // How much later than it was due something has begun, at most.
    std::chrono::milliseconds latest() const { return latest_; }

  private:
    using Milliseconds = std::chrono::milliseconds;

    // A line with times that has been set up.
    struct Timed {
        const Statement *statement;
        Chance chance;
        Milliseconds start;  // what its times are counted from
        Milliseconds due{0}; // the time of its next repetition
        uint32_t done = 0;   // repetitions
    };
    // When a place in `timed_` is to act.
    struct Due {
        Milliseconds moment;
        uint32_t line;
        size_t timed;
        bool operator>(const Due &other) const {
            return moment != other.moment ? moment > other.moment : line > other.line;
        }
    };
    // Which of the lines that act one after the other has its turn.
    struct Place {
        size_t statement = 0;
        size_t value = 0; // of `for each`
        size_t below = 0; // the line within it
    };

    void gather_values();
    void begin(const Statement &statement, Milliseconds start);
    void queue_next(size_t timed, Milliseconds earliest);
    void repeat();
    bool is_repetition_next(const Statement *line) const;
    const std::vector<std::string> &values_of(const EachKind &each) const;
    const Statement *current() const;
    std::vector<std::string> words_of(const Statement &line) const;
    void advance();
    void step(const Statement &line);
    void look(const Statement &line);
    void wait(const Statement &line);
    template <typename Work> auto at_place(uint32_t line, const Work &work) const;

    const Scenario &scenario_;
    Stage &stage_;
    std::vector<std::vector<std::string>> values_; // of each row of each_kinds
    std::vector<Timed> timed_;
    std::priority_queue<Due, std::vector<Due>, std::greater<>> queue_;
    Place place_;
    Milliseconds turn_{0};                 // when the line whose turn it is may act
    uint32_t paused_line_ = 0;             // that keeps it from acting until then
    std::optional<Milliseconds> deadline_; // of the condition that it waits for
    uint32_t actions_ = 0;
    Milliseconds latest_{0};
};

} // namespace vswitchctl

#endif
