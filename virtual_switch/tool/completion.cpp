// SPDX-License-Identifier: Apache-2.0
// What may follow the words of a command line that is not whole yet, from the tree of commands itself.
#include <algorithm>
#include <cstdlib>
#include <set>
#include <utility>

#include "contract/run_directory.h"
#include "tool/commands.h"
#include "tool/condition.h"

namespace vswitchctl {

namespace {

using Texts = std::vector<std::string>;

// How long the switch may take for one answer, while somebody looks at the cursor.
constexpr std::chrono::milliseconds patience(500);

// The numbers or names of what the switch has; none when it does not answer.
Texts ask_switch(const char *command, const char *key, const char *member) {
    Texts texts;
    try {
        const Patience impatience(patience);
        const Json reply = list(command, key, std::string_view(key) == "ports" ? "ifIndex" : member);
        for (const Json &row : reply.at(key)) {
            const Json &value = row.at(member);
            texts.push_back(value.is_string() ? value.get<std::string>() : value.dump());
        }
    } catch (const Refusal &) {
    } catch (const Json::exception &) {
    }
    return texts;
}

bool takes_value(const CLI::Option &option) {
    return option.get_items_expected_max() > 0;
}

bool takes_many(const CLI::Option &option) {
    return option.get_items_expected_max() > 1;
}

bool is_option(const std::string &word) {
    return word.size() > 1 && word[0] == '-';
}

// Bash makes three words of --state=active; the option's value is the third all the same.
Texts without_equal_signs(Texts words) {
    for (size_t at = words.size(); at-- > 1;) {
        if (words[at] == "=" && words[at - 1].starts_with("--")) {
            if (at + 1 == words.size()) {
                words[at].clear();
            } else {
                words.erase(words.begin() + static_cast<ptrdiff_t>(at));
            }
        }
    }
    return words;
}

} // namespace

// Follows the words down the tree; the last one is what is to be completed.
class Completion {
  public:
    explicit Completion(const Commands &commands) : commands_(commands), app_(&commands.root_) {}

    // False when nothing can follow, since the word cannot stand there.
    bool follow(const std::string &word) {
        if (expected_) {
            if (expected_->check_lname("run")) {
                setenv(RUN_DIRECTORY_VARIABLE, word.c_str(), 1);
            }
            expected_ = nullptr;
            return true;
        }
        if (word == "--") {
            begin_next_command();
            return true;
        }
        if (is_option(word)) {
            take_option(word);
            return true;
        }
        const auto below = commands_.nodes_.find(name_.empty() ? word : name_ + " " + word);
        if (below != commands_.nodes_.end() && places_.empty()) {
            name_ = below->first;
            app_ = below->second.app;
            row_ = commands_.row_of(below->second);
            is_group_ = !below->second.row;
            return true;
        }
        places_.push_back(word);
        return !is_group_ && place_of(places_.size() - 1);
    }

    Texts complete(const std::string &beginning) const {
        if (expected_) {
            return values_of(*expected_, beginning);
        }
        if (is_option(beginning) || beginning == "-") {
            return matching(options(), beginning);
        }
        Texts texts = places_.empty() ? commands_.words_below(name_) : Texts();
        const CLI::Option *place = is_group_ ? nullptr : place_of(places_.size());
        if (place) {
            Texts values = values_of(*place, beginning);
            if (values.front() != "words") {
                return values;
            }
            texts.insert(texts.end(), values.begin() + 1, values.end());
        }
        return matching(texts.empty() && !place ? options() : texts, beginning);
    }

  private:
    // Behind a lone -- another command begins, of the same switch.
    void begin_next_command() {
        name_.clear();
        app_ = &commands_.root_;
        row_ = nullptr;
        is_group_ = true;
        given_.clear();
        places_.clear();
    }

    // The application whose options may stand here: a group has those of the command that it does alone.
    const CLI::App &options_app() const { return row_ ? *row_->app : *app_; }

    void take_option(const std::string &word) {
        const size_t equals = word.find('=');
        const CLI::Option *option = options_app().get_option_no_throw(word.substr(0, equals));
        given_.insert(option);
        expected_ = option && takes_value(*option) && equals == std::string::npos ? option : nullptr;
    }

    // Those that are not there yet.
    Texts options() const {
        Texts texts;
        for (const CLI::Option *option : options_app().get_options()) {
            for (const std::string &name : option->get_lnames()) {
                if (!given_.contains(option)) {
                    texts.push_back("--" + name);
                }
            }
        }
        return texts;
    }

    // What stands in a command's place number `position`, counted from 0; null when nothing does.
    const CLI::Option *place_of(size_t position) const {
        const CLI::Option *last = nullptr;
        for (const CLI::Option *option : options_app().get_options()) {
            if (option->get_positional()) {
                last = option;
                if (position-- == 0) {
                    return option;
                }
            }
        }
        return last && takes_many(*last) ? last : nullptr;
    }

    Values known_values(const CLI::Option &option) const {
        if (row_) {
            if (const auto found = row_->values.find(&option); found != row_->values.end()) {
                return found->second;
            }
        }
        const std::string type = option.get_type_name();
        return {type == "FILE" ? Values::Kind::files : type == "DIR" ? Values::Kind::folders : Values::Kind::words, {}};
    }

    Texts values_of(const CLI::Option &option, const std::string &beginning) const {
        Values values = known_values(option);
        if (values.kind == Values::Kind::condition) {
            const ConditionChoices choices = Condition::choices(places_);
            values = {choices.kind == ConditionChoices::Kind::vsans   ? Values::Kind::vsans
                      : choices.kind == ConditionChoices::Kind::ports ? Values::Kind::ports
                                                                      : Values::Kind::words,
                      choices.words};
        }
        switch (values.kind) {
        case Values::Kind::files:
            return {"files"};
        case Values::Kind::folders:
            return {"folders"};
        case Values::Kind::vsans:
            return matching(ask_switch("vsan.list", "vsans", "id"), beginning);
        case Values::Kind::ports:
            return matching(ask_switch("port.list", "ports", "name"), beginning);
        case Values::Kind::roles:
            return matching(ask_switch("role.list", "roles", "name"), beginning);
        default:
            return matching(values.words, beginning);
        }
    }

    static Texts matching(const Texts &texts, const std::string &beginning) {
        Texts result = {"words"};
        std::ranges::copy_if(texts, std::back_inserter(result),
                             [&](const std::string &text) { return text.starts_with(beginning); });
        return result;
    }

    const Commands &commands_;
    std::string name_; // of the command so far
    const CLI::App *app_;
    const CommandRow *row_ = nullptr;
    bool is_group_ = true; // takes a command's name, and no other word
    std::set<const CLI::Option *> given_;
    const CLI::Option *expected_ = nullptr; // whose value comes next
    Texts places_;                          // the words that are no options and no command
};

Texts Commands::complete(Texts words) const {
    words = without_equal_signs(std::move(words));
    const std::string beginning = words.empty() ? "" : words.back();
    Completion completion(*this);
    for (size_t at = 0; at + 1 < words.size(); ++at) {
        if (!completion.follow(words[at])) {
            return {"words"};
        }
    }
    return completion.complete(beginning);
}

} // namespace vswitchctl
