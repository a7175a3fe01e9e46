// SPDX-License-Identifier: Apache-2.0
// What a switch can be waited for.
//
//   ready                            it answers
//   vsan N exists | absent
//   vsan N oper up | down
//   vsan N state active | suspended
//   vsan N name TEXT                 '' for none
//   port P oper up | down            P is an ifIndex, or fc3 for the third port
//   port P link up | down            its cable
//   port P vsan N
//   port P enabled | disabled
//   tdx session open | none
//   timer SETTING VALUE [vsan N]     what is in force, not what waits in a session
//   agents N                         so many agents are connected
//   faults N                         so many faults are set
#ifndef VSWITCHCTL_CONDITION_H
#define VSWITCHCTL_CONDITION_H

#include <chrono>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace vswitchctl {

// What may stand behind the words of a condition that is not whole yet.
struct ConditionChoices {
    enum class Kind { words, vsans, ports };
    Kind kind = Kind::words;
    std::vector<std::string> words; // of that kind; none where anything may stand there, or nothing
};

class Condition {
  public:
    // Reads one condition, a word each. Throws UsageError, which names the wrong word and what may
    // stand in its place.
    static Condition parse(std::span<const std::string> words);

    // What may follow these words.
    static ConditionChoices choices(std::span<const std::string> words);

    // Asks the switch. Nothing when the condition holds, else a sentence that says what is instead.
    // Throws Refusal, for a port that the switch does not have, too; Away when the switch is away,
    // unless that is what the condition is about.
    std::optional<std::string> failure() const;

    // Whether it holds. Throws Refusal, and Away whenever the switch is away.
    bool holds() const { return !ask_(); }

    // The condition as it was typed.
    const std::string &text() const { return text_; }

  private:
    using Ask = std::function<std::optional<std::string>()>;

    Condition(std::string text, Ask ask) : text_(std::move(text)), ask_(std::move(ask)) {}

    std::string text_;
    Ask ask_;
};

// Waits until the condition holds, for `timeout` at most; milliseconds::max() is without an end. It is
// asked once more at each change of the switch; a switch that is away is waited for. Returns whether
// the condition held. Throws Refusal.
bool wait_until(const Condition &condition, std::chrono::milliseconds timeout);

} // namespace vswitchctl

#endif
