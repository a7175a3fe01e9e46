// SPDX-License-Identifier: Apache-2.0
// Whatever file is played: it is refused with one of its lines, or keeps to the limits, means the same when its lines
// are written again, and goes on in time until its end.
#include <algorithm>
#include <string>

#include "fuzz_input.h"
#include "tool/command_line.h"
#include "tool/condition.h"
#include "tool/timeline.h"

using namespace vswitchctl;

namespace {

using Words = std::vector<std::string>;

// A switch that does everything at once, and a clock that leaps to whatever is waited for.
class EverythingGoes : public Stage {
  public:
    uint64_t actions = 0;

    Milliseconds now() override { return now_; }
    void sleep_until(Milliseconds moment, uint32_t) override { now_ = std::max(now_, moment); }
    void act(uint32_t, const Words &words) override {
        require(!words.empty(), "a line has words");
        ++actions;
    }
    std::optional<std::string> refusal(uint32_t line, const Words &words) override {
        act(line, words);
        return "No.";
    }
    std::optional<std::string> failure(uint32_t, const Words &) override { return std::nullopt; }
    bool wait(uint32_t, const Words &, Milliseconds moment) override {
        const Milliseconds before = now_;
        now_ = std::max(now_, moment);
        return before == now_ || now_.count() % 2 == 0;
    }
    Words values(const EachKind &each) override { return {std::string(each.sample), std::string(each.sample)}; }

  private:
    Milliseconds now_{0};
};

void check_line(const Statement &statement, uint32_t above) {
    require(statement.line > above, "statements stand in the order of their lines");
    require(statement.repetitions >= 1 && statement.repetitions <= max_scenario_actions, "a line acts");
    const auto has = [&](char letter) {
        return std::ranges::any_of(statement.words,
                                   [&](const std::string &word) { return word.find(letter) != word.npos; });
    };
    // Both quotation marks in one word cannot be written in one, and what moves the cursor is not printed.
    const bool is_plain = std::ranges::all_of(statement.words, [](const std::string &word) {
        return std::ranges::all_of(word, [](char letter) { return letter >= ' '; });
    });
    if (is_plain && !has('"') && !has('\x7f') && !has('\xc2')) {
        require(split_words(line_text(statement.words)) == statement.words,
                "a line that is written is the one that was read");
    }
}

void check(const Scenario &scenario) {
    uint32_t above = 0;
    uint64_t actions = 0;
    for (const Statement &statement : scenario.statements) {
        check_line(statement, above);
        above = statement.line;
        actions += statement.repetitions;
        for (const Statement &below : statement.block) {
            check_line(below, above);
            above = below.line;
            actions += 2;
        }
    }
    constexpr uint64_t played = 2000; // more of them show nothing new
    if (actions > played) {
        return;
    }
    EverythingGoes stage;
    Timeline timeline(scenario, stage);
    try {
        timeline.play();
    } catch (const Refusal &) { // a condition that did not come
    }
    require(stage.actions <= actions && stage.actions == timeline.actions(), "nothing acts more often than it says");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static CommandLine command_line;
    static const ScenarioChecks checks{[](const Words &words) { command_line.parse(words); },
                                       [](const Words &words) { Condition::parse(words); }, command_line.names()};
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    try {
        check(read_scenario(text, "file", checks));
    } catch (const UsageError &error) {
        const std::string sentence = error.what();
        require(sentence.starts_with("file:"), "a complaint names the file");
        const unsigned long line = std::strtoul(sentence.c_str() + 5, nullptr, 10);
        require(line >= 1 && line <= 1ul + static_cast<unsigned long>(std::ranges::count(text, '\n')),
                "a complaint names one of the lines");
        require(sentence.find('\n') == sentence.npos, "a complaint is one line");
    }
    return 0;
}
