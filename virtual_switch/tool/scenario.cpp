// SPDX-License-Identifier: Apache-2.0
#include "tool/scenario.h"

#include <algorithm>
#include <charconv>
#include <fmt/format.h>
#include <optional>

#include "tool/client.h"
#include "tool/duration.h"
#include "tool/nearest.h"
#include "tool/table.h"

namespace vswitchctl {

namespace {

using std::chrono::milliseconds;

constexpr std::string_view every_form = "'every 500ms for 1m COMMAND' or 'every 500ms 20 times COMMAND'";
constexpr std::string_view wait_form = "'wait 3s' or 'wait CONDITION within 5s'";

// What may stand in the place of a line that begins like one of these, and is none.
struct Form {
    std::string_view word;
    std::string_view form;
};
constexpr Form forms[] = {{"at", "'at 2s COMMAND'"},
                          {"every", every_form},
                          {"wait", wait_form},
                          {"expect", "'expect CONDITION' or 'expect refused COMMAND'"},
                          {"seed", "'seed 7'"},
                          {"for", "'for each vsan', 'for each active vsan', 'for each port' or 'for each up port'"},
                          {"end", "'end'"}};

// What a line that begins with the word of a statement should look like.
std::string_view form_of(std::string_view word) {
    return std::ranges::find(forms, word, &Form::word)->form;
}

// The words of a statement behind its first one, taken from the front.
class Rest {
  public:
    explicit Rest(std::vector<std::string> words) : words_(std::move(words)), form_(form_of(words_[0])) {}

    [[noreturn]] void fail(const std::string &what) const {
        throw UsageError(fmt::format("{}; write {}.", what, form_));
    }
    bool empty() const { return at_ == words_.size(); }
    // Whether the next word is this one, which is taken then.
    bool take(std::string_view word) {
        const bool is_next = !empty() && words_[at_] == word;
        at_ += is_next;
        return is_next;
    }
    const std::string &next(const char *wanted) {
        if (empty()) {
            fail(fmt::format("{} is missing", wanted));
        }
        return words_[at_++];
    }
    milliseconds time(milliseconds least) {
        const std::string &word = next("A time");
        const auto found = read_duration(word);
        if (!found || *found < least) {
            fail(fmt::format("'{}' is no time from {} to {}", word, duration_text(least),
                             duration_text(longest_duration)));
        }
        return *found;
    }
    template <typename Number> Number number(const std::string &word, Number least, Number greatest) const {
        Number value = 0;
        const char *end = word.data() + word.size();
        const auto result = std::from_chars(word.data(), end, value);
        if (result.ec != std::errc() || result.ptr != end || value < least || value > greatest) {
            fail(fmt::format("'{}' is no number from {} to {}", word, least, greatest));
        }
        return value;
    }
    // All that is left; at least one word.
    std::vector<std::string> all(const char *wanted) {
        if (empty()) {
            fail(fmt::format("{} is missing", wanted));
        }
        return {words_.begin() + static_cast<std::ptrdiff_t>(at_), words_.end()};
    }
    // Drops the last `count` words, if there are as many.
    void shorten(size_t count) { words_.resize(words_.size() - std::min(count, words_.size() - at_)); }
    size_t left() const { return words_.size() - at_; }
    // The word that stands `back` words before the end.
    const std::string &from_end(size_t back) const { return words_[words_.size() - back]; }

  private:
    std::vector<std::string> words_;
    std::string_view form_;
    size_t at_ = 1;
};

class Reader {
  public:
    Reader(const std::string &name, const ScenarioChecks &checks) : checks_(checks) { scenario_.name = name; }

    Scenario read(std::string_view text);

  private:
    void read_line(std::string_view line);
    void read_statement(std::vector<std::string> words);
    void read_seed(Rest rest);
    void read_timed(Rest rest, bool is_every);
    void read_repetitions(Rest &rest, Statement &statement) const;
    void read_chance(Rest &rest, Statement &statement) const;
    void read_wait(Rest rest);
    void read_expect(Rest rest);
    void read_each(Rest rest);
    void read_end(const Rest &rest);
    void add(Statement statement);
    // The words of a command or a condition, as they are checked.
    std::vector<std::string> sample(const std::vector<std::string> &words) const;
    void check_command(const std::vector<std::string> &words) const;

    const ScenarioChecks &checks_;
    Scenario scenario_;
    uint32_t line_ = 0;
    uint64_t actions_ = 0;
    bool has_seed_ = false;
    std::optional<Statement> block_;
};

Scenario Reader::read(std::string_view text) {
    constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";
    if (text.starts_with(byte_order_mark)) {
        text.remove_prefix(byte_order_mark.size());
    }
    try {
        while (!text.empty()) {
            const size_t end = std::min(text.find('\n'), text.size());
            ++line_;
            read_line(text.substr(0, end));
            text.remove_prefix(std::min(end + 1, text.size()));
        }
        if (block_) {
            line_ = block_->line;
            throw UsageError("'for each' has no 'end'.");
        }
    } catch (const UsageError &error) {
        throw UsageError(at_line(scenario_.name, line_, printable(error.what())));
    }
    return std::move(scenario_);
}

void Reader::read_line(std::string_view line) {
    if (line_ > max_scenario_lines) {
        throw UsageError(fmt::format("A scenario has at most {} lines.", max_scenario_lines));
    }
    if (line.size() > max_scenario_line_bytes) {
        throw UsageError(fmt::format("A line has at most {} bytes.", max_scenario_line_bytes));
    }
    if (line.ends_with('\r')) {
        line.remove_suffix(1);
    }
    if (line.find('\0') != std::string_view::npos) {
        throw UsageError("A NUL byte stands here; a scenario is text.");
    }
    if (!is_utf8(std::string(line))) {
        throw UsageError("This is not UTF-8.");
    }
    std::vector<std::string> words = split_words(line);
    if (!words.empty()) {
        read_statement(std::move(words));
    }
}

void Reader::read_statement(std::vector<std::string> words) {
    const std::string first = words[0];
    if (first == "seed") {
        read_seed(Rest(std::move(words)));
    } else if (first == "at" || first == "every") {
        read_timed(Rest(std::move(words)), first == "every");
    } else if (first == "wait") {
        read_wait(Rest(std::move(words)));
    } else if (first == "expect") {
        read_expect(Rest(std::move(words)));
    } else if (first == "for") {
        read_each(Rest(std::move(words)));
    } else if (first == "end") {
        read_end(Rest(std::move(words)));
    } else {
        check_command(words);
        Statement statement;
        statement.words = std::move(words);
        add(std::move(statement));
    }
}

void Reader::read_seed(Rest rest) {
    if (has_seed_ || block_) {
        rest.fail("A scenario has one seed, outside 'for each'");
    }
    has_seed_ = true;
    scenario_.seed = rest.number<uint64_t>(rest.next("A number"), 0, UINT64_MAX);
    if (!rest.empty()) {
        rest.fail(fmt::format("'{}' is too much", rest.next("")));
    }
}

void Reader::read_timed(Rest rest, bool is_every) {
    if (block_) {
        throw UsageError(fmt::format("'{}' cannot stand between 'for each' and 'end', where one line waits for the "
                                     "other; write 'wait 3s', or put it in front of them.",
                                     is_every ? "every" : "at"));
    }
    Statement statement;
    statement.kind = StatementKind::timed;
    statement.is_every = is_every;
    if (is_every) {
        read_repetitions(rest, statement);
    } else {
        statement.first = rest.time(milliseconds(0));
    }
    read_chance(rest, statement);
    statement.words = rest.all("A command");
    check_command(statement.words);
    add(std::move(statement));
}

void Reader::read_repetitions(Rest &rest, Statement &statement) const {
    statement.period = rest.time(milliseconds(1));
    uint64_t repetitions = 0;
    if (rest.take("for")) {
        const milliseconds whole = rest.time(milliseconds(1));
        repetitions = static_cast<uint64_t>((whole + statement.period - milliseconds(1)) / statement.period);
    } else {
        repetitions = rest.number<uint64_t>(rest.next("'for', or a number of times"), 1, UINT64_MAX);
        if (!rest.take("times")) {
            rest.fail("'times' is missing behind the number");
        }
    }
    if (repetitions > max_scenario_actions) {
        throw UsageError(fmt::format("{} repetitions are too many: a scenario acts at most {} times.", repetitions,
                                     max_scenario_actions));
    }
    statement.repetitions = static_cast<uint32_t>(repetitions);
    if ((statement.repetitions - 1) * statement.period > longest_duration) {
        throw UsageError(fmt::format("The last repetition would be later than {} after the first, which is the most.",
                                     duration_text(longest_duration)));
    }
}

void Reader::read_chance(Rest &rest, Statement &statement) const {
    if (rest.take("jitter")) {
        statement.jitter = rest.time(milliseconds(0));
        // Repetitions keep their order then, and none comes sooner than one that catches up.
        if (statement.is_every && 2 * statement.jitter > statement.period) {
            throw UsageError(
                fmt::format("The jitter is at most half of the time from one repetition to the next, here {}.",
                            duration_text(statement.period / 2)));
        }
    }
    if (rest.take("chance")) {
        const std::string &word = rest.next("'30%'");
        if (!word.ends_with('%')) {
            rest.fail(fmt::format("'{}' is no chance such as 30%", word));
        }
        statement.percent = rest.number<uint32_t>(word.substr(0, word.size() - 1), 1, 100);
    }
}

void Reader::read_wait(Rest rest) {
    Statement statement;
    if (rest.left() == 1) {
        statement.kind = StatementKind::pause;
        statement.time = rest.time(milliseconds(0));
        return add(std::move(statement));
    }
    if (rest.left() < 3 || rest.from_end(2) != "within") {
        rest.fail("A time is missing");
    }
    const auto time = read_duration(rest.from_end(1));
    if (!time) {
        rest.fail(fmt::format("'{}' is no time from 0s to {}", rest.from_end(1), duration_text(longest_duration)));
    }
    rest.shorten(2);
    statement.kind = StatementKind::wait;
    statement.time = *time;
    statement.words = rest.all("A condition");
    checks_.condition(sample(statement.words));
    add(std::move(statement));
}

void Reader::read_expect(Rest rest) {
    Statement statement;
    const bool is_refusal = rest.take("refused");
    statement.kind = is_refusal ? StatementKind::refused : StatementKind::expect;
    statement.words = rest.all(is_refusal ? "A command" : "A condition");
    if (is_refusal) {
        check_command(statement.words);
    } else {
        checks_.condition(sample(statement.words));
    }
    add(std::move(statement));
}

void Reader::read_each(Rest rest) {
    if (block_) {
        throw UsageError(
            fmt::format("'for each' cannot stand within that of line {}; write 'end' first.", block_->line));
    }
    Statement statement;
    statement.kind = StatementKind::each;
    statement.line = line_;
    const bool is_each = rest.take("each");
    const std::string words = is_each && !rest.empty() ? line_text(rest.all("")) : "";
    for (const EachKind &kind : each_kinds) {
        if (kind.words == words) {
            statement.each = &kind;
        }
    }
    if (!statement.each) {
        rest.fail("This is not what can be said of each");
    }
    block_ = std::move(statement);
}

void Reader::read_end(const Rest &rest) {
    if (!block_ || !rest.empty()) {
        throw UsageError(block_ ? "Behind 'end' nothing can stand." : "No 'for each' stands before this 'end'.");
    }
    scenario_.statements.push_back(std::move(*block_));
    block_.reset();
}

void Reader::add(Statement statement) {
    statement.line = line_;
    actions_ += statement.repetitions;
    if (actions_ > max_scenario_actions) {
        throw UsageError(
            fmt::format("With this line the scenario would act more than {} times.", max_scenario_actions));
    }
    (block_ ? block_->block : scenario_.statements).push_back(std::move(statement));
}

std::vector<std::string> Reader::sample(const std::vector<std::string> &words) const {
    const EachKind *each = block_ ? block_->each : nullptr;
    for (const EachKind &kind : each_kinds) {
        const bool is_used = std::ranges::any_of(
            words, [&](const std::string &word) { return word.find(kind.placeholder) != std::string::npos; });
        if (is_used && (!each || each->placeholder != kind.placeholder)) {
            throw UsageError(
                fmt::format("{} means something only between 'for each {}' and 'end'.", kind.placeholder, kind.words));
        }
    }
    return each ? with_value(words, each->placeholder, std::string(each->sample)) : words;
}

void Reader::check_command(const std::vector<std::string> &words) const {
    const std::vector<std::string> checked = sample(words);
    const std::string &first = checked[0];
    if (std::ranges::find(checks_.commands, first) == checks_.commands.end()) {
        std::vector<std::string> known = checks_.commands;
        for (const Form &row : forms) {
            known.emplace_back(row.word);
        }
        const std::string meant = nearest(first, known);
        const auto *form = std::ranges::find(forms, meant, &Form::word);
        throw UsageError(fmt::format("'{}' begins no statement and no command{}.", first,
                                     form != std::end(forms) ? fmt::format("; the nearest is {}", form->form)
                                                             : or_nearest(first, known)));
    }
    checks_.command(checked);
}

} // namespace

Scenario read_scenario(std::string_view text, const std::string &name, const ScenarioChecks &checks) {
    return Reader(name, checks).read(text);
}

void require_commands_only(const Scenario &scenario) {
    const auto check = [&](const Statement &statement) {
        if (statement.kind != StatementKind::command && statement.kind != StatementKind::each) {
            throw UsageError(at_line(scenario.name, statement.line,
                                     "With --atomic a scenario is one transaction: commands, without times, 'wait' and "
                                     "'expect'."));
        }
    };
    for (const Statement &statement : scenario.statements) {
        check(statement);
        std::ranges::for_each(statement.block, check);
    }
}

} // namespace vswitchctl
