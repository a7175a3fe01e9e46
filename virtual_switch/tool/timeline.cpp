// SPDX-License-Identifier: Apache-2.0
#include "tool/timeline.h"

#include <algorithm>
#include <fmt/format.h>

#include "tool/duration.h"

namespace vswitchctl {

Timeline::Timeline(const Scenario &scenario, Stage &stage)
    : scenario_(scenario), stage_(stage), values_(std::size(each_kinds)) {}

template <typename Work> auto Timeline::at_place(uint32_t line, const Work &work) const {
    try {
        return work();
    } catch (const Refusal &refusal) {
        throw PlacedRefusal(at_line(scenario_.name, line, refusal.what()));
    } catch (const UsageError &error) {
        // What a value of `for each` has made of the line.
        throw PlacedRefusal(at_line(scenario_.name, line, error.what()));
    }
}

void Timeline::play() {
    gather_values();
    for (const Statement &statement : scenario_.statements) {
        if (statement.kind == StatementKind::timed && !statement.is_every) {
            begin(statement, Milliseconds(0));
        }
    }
    for (;;) {
        const Statement *line = current();
        if (line && deadline_) {
            wait(*line);
            continue;
        }
        if (!line && queue_.empty()) {
            return stage_.sleep_until(turn_, paused_line_);
        }
        const bool is_repetition = is_repetition_next(line);
        const uint32_t shown = stage_.now() < turn_ ? paused_line_ : line ? line->line : queue_.top().line;
        stage_.sleep_until(is_repetition ? queue_.top().moment : turn_, shown);
        if (is_repetition) {
            repeat();
        } else {
            step(*line);
        }
    }
}

void Timeline::gather_values() {
    uint64_t actions = 0;
    for (const Statement &statement : scenario_.statements) {
        actions += statement.repetitions;
        if (statement.kind != StatementKind::each) {
            continue;
        }
        auto &values = values_[static_cast<size_t>(statement.each - each_kinds)];
        if (values.empty()) {
            values = at_place(statement.line, [&] { return stage_.values(*statement.each); });
        }
        actions += uint64_t{statement.block.size()} * values.size();
        if (actions > max_scenario_actions) {
            throw UsageError(at_line(scenario_.name, statement.line,
                                     fmt::format("With all that there are on this switch, {}, the scenario would act "
                                                 "more than {} times.",
                                                 values.size(), max_scenario_actions)));
        }
    }
}

void Timeline::begin(const Statement &statement, Milliseconds start) {
    timed_.push_back({&statement, Chance(scenario_.seed, statement.line), start});
    queue_next(timed_.size() - 1, start);
}

void Timeline::queue_next(size_t timed, Milliseconds earliest) {
    Timed &one = timed_[timed];
    const Statement &statement = *one.statement;
    one.due = one.start + statement.first + one.done * statement.period;
    if (statement.jitter.count() > 0) {
        one.due += Milliseconds(one.chance.below(static_cast<uint32_t>(statement.jitter.count()) + 1));
    }
    queue_.push({std::max(one.due, earliest), statement.line, timed});
}

void Timeline::repeat() {
    const size_t at = queue_.top().timed;
    queue_.pop();
    const Statement &statement = *timed_[at].statement;
    const Milliseconds now = stage_.now();
    latest_ = std::max(latest_, now - timed_[at].due);
    const bool is_spared = statement.percent < 100 && timed_[at].chance.below(100) >= statement.percent;
    if (++timed_[at].done < statement.repetitions) {
        queue_next(at, now + std::max(statement.period / 2, Milliseconds(1)));
    }
    if (!is_spared) {
        ++actions_;
        at_place(statement.line, [&] { stage_.act(statement.line, statement.words); });
    }
}

bool Timeline::is_repetition_next(const Statement *line) const {
    if (!line || queue_.empty()) {
        return !line;
    }
    const Due &due = queue_.top();
    return due.moment != turn_ ? due.moment < turn_ : due.line < line->line;
}

const std::vector<std::string> &Timeline::values_of(const EachKind &each) const {
    return values_[static_cast<size_t>(&each - each_kinds)];
}

const Statement *Timeline::current() const {
    if (place_.statement == scenario_.statements.size()) {
        return nullptr;
    }
    const Statement &statement = scenario_.statements[place_.statement];
    if (statement.kind != StatementKind::each || values_of(*statement.each).empty() || statement.block.empty()) {
        return &statement;
    }
    return &statement.block[place_.below];
}

std::vector<std::string> Timeline::words_of(const Statement &line) const {
    const Statement &statement = scenario_.statements[place_.statement];
    if (statement.kind != StatementKind::each) {
        return line.words;
    }
    return with_value(line.words, statement.each->placeholder, values_of(*statement.each)[place_.value]);
}

void Timeline::advance() {
    const Statement &statement = scenario_.statements[place_.statement];
    if (++place_.below < statement.block.size()) {
        return;
    }
    place_.below = 0;
    if (statement.kind == StatementKind::each && ++place_.value < values_of(*statement.each).size()) {
        return;
    }
    place_.value = 0;
    ++place_.statement;
}

void Timeline::step(const Statement &line) {
    const Milliseconds now = stage_.now();
    latest_ = std::max(latest_, now - turn_);
    switch (line.kind) {
    case StatementKind::wait:
        deadline_ = now + line.time;
        return;
    case StatementKind::pause:
        turn_ = now + line.time;
        paused_line_ = line.line;
        return advance();
    case StatementKind::timed:
        if (line.is_every) {
            begin(line, now);
        }
        break;
    case StatementKind::command:
        ++actions_;
        at_place(line.line, [&] { stage_.act(line.line, words_of(line)); });
        break;
    case StatementKind::expect:
    case StatementKind::refused:
        at_place(line.line, [&] { look(line); });
        break;
    case StatementKind::each: // without anything to be done for each
        break;
    }
    advance();
    turn_ = stage_.now();
}

void Timeline::look(const Statement &line) {
    const std::vector<std::string> words = words_of(line);
    if (line.kind == StatementKind::refused) {
        ++actions_;
        if (!stage_.refusal(line.line, words)) {
            throw Refusal(
                fmt::format("The switch was expected to refuse '{}', and has carried it out.", line_text(words)));
        }
    } else if (const auto failure = stage_.failure(line.line, words)) {
        throw Refusal(fmt::format("Expected '{}'. {}", line_text(words), *failure));
    }
}

void Timeline::wait(const Statement &line) {
    const std::vector<std::string> words = words_of(line);
    const Milliseconds until = queue_.empty() ? *deadline_ : std::min(*deadline_, queue_.top().moment);
    if (at_place(line.line, [&] { return stage_.wait(line.line, words, until); })) {
        deadline_.reset();
        advance();
        turn_ = stage_.now();
    } else if (stage_.now() < *deadline_) {
        if (!queue_.empty() && queue_.top().moment <= stage_.now()) {
            repeat();
        }
    } else {
        const std::string expected =
            fmt::format("'{}' did not come within {}.", line_text(words), duration_text(line.time));
        const auto failure = at_place(line.line, [&] { return stage_.failure(line.line, words); });
        throw PlacedRefusal(at_line(scenario_.name, line.line, fmt::format("{} {}", expected, failure.value_or(""))));
    }
}

} // namespace vswitchctl
