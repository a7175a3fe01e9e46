// SPDX-License-Identifier: Apache-2.0
#include "tool/condition.h"

#include <algorithm>
#include <charconv>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <vector>

#include "contract/events.h"
#include "contract/limits.h"
#include "tool/client.h"
#include "tool/subscription.h"
#include "tool/table.h"
#include "tool/usage_error.h"
#include "tool/words.h"

namespace vswitchctl {

namespace {

using std::chrono::milliseconds;
using Answer = std::optional<std::string>;
using Ask = std::function<Answer()>;

// How long one answer is waited for at most while there is time left.
constexpr milliseconds longest_question(10000);

std::optional<uint32_t> number_of(const std::string &text) {
    const char *end = text.data() + text.size();
    uint32_t number = 0;
    const auto result = std::from_chars(text.data(), end, number);
    return result.ec == std::errc() && result.ptr == end ? std::optional(number) : std::nullopt;
}

using Choices = ConditionChoices;

// The words end before the condition does.
class Unfinished : public UsageError {
  public:
    Unfinished(const std::string &sentence, Choices what) : UsageError(sentence), choices(std::move(what)) {}

    const Choices choices;
};

// The words of a condition, taken one after the other.
class Reader {
  public:
    explicit Reader(std::span<const std::string> words) : words_(words) {}

    // The next word. `wanted` says what may stand there.
    const std::string &next(const std::string &wanted, const Choices &choices = {}) {
        if (is_at_end()) {
            throw Unfinished(fmt::format("Something is missing {}: {}.", place(), wanted), choices);
        }
        return words_[at_++];
    }

    // One of these words.
    const std::string &one_of(const std::vector<std::string> &words) {
        const std::string wanted = fmt::format("{}", fmt::join(words, ", "));
        const std::string &word = next(wanted, {Choices::Kind::words, words});
        if (std::ranges::find(words, word) == words.end()) {
            fail(wanted);
        }
        return word;
    }

    uint32_t number(uint32_t least, uint32_t greatest, const std::string &what, const Choices &choices = {}) {
        const std::string wanted = fmt::format("{} from {} to {}", what, least, greatest);
        const auto value = number_of(next(wanted, choices));
        if (!value || *value < least || *value > greatest) {
            fail(wanted);
        }
        return *value;
    }

    uint32_t vsan() {
        return number(VSAN_NUMBER_DEFAULT, VSAN_NUMBER_MAX, "a VSAN number", {Choices::Kind::vsans, {}});
    }

    // The word that was taken last should have been something else.
    [[noreturn]] void fail(const std::string &wanted) {
        --at_;
        throw UsageError(fmt::format("\"{}\" cannot stand {}, but {} can.", printable(words_[at_]), place(), wanted));
    }

    bool is_at_end() const { return at_ == words_.size(); }

    void end() {
        if (!is_at_end()) {
            throw UsageError(
                fmt::format("\"{}\" is too much {}: the condition ends there.", printable(words_[at_]), place()));
        }
    }

  private:
    std::string place() const {
        return at_ == 0 ? "where a condition begins"
                        : fmt::format("behind \"{}\"", printable(fmt::format("{}", fmt::join(words_.first(at_), " "))));
    }

    std::span<const std::string> words_;
    size_t at_ = 0;
};

// The first row of a reply's list, if its number is the one that was asked for.
std::optional<Json> row_of(const Json &reply, const char *key, const char *number_key, uint32_t number) {
    const Json &rows = reply.at(key);
    return !rows.empty() && rows.front().at(number_key) == number ? std::optional(rows.front()) : std::nullopt;
}

std::optional<Json> find_vsan(uint32_t id) {
    return row_of(look("vsan.list", {{"after", id - 1}, {"limit", 1}}), "vsans", "id", id);
}

std::string no_vsan(uint32_t id) {
    return fmt::format("VSAN {} does not exist.", id);
}

// The port as the switch describes it. Its ports are always the same, so that waiting for another one
// is of no use: throws Refusal when there is none.
Json find_port_row(const std::string &name) {
    const auto if_index = number_of(name);
    return look("port.show", {{"ifIndex", if_index ? Json(*if_index) : Json(name)}});
}

// What a VSAN must be; asked of one that exists.
using Check = std::function<Answer(const Json &row)>;

Ask ask_vsan(uint32_t id, Check check) {
    return [id, check = std::move(check)]() -> Answer {
        const auto vsan = find_vsan(id);
        return vsan ? check(*vsan) : no_vsan(id);
    };
}

Ask vsan_existence(uint32_t id, bool wanted) {
    return [id, wanted]() -> Answer {
        const bool exists = find_vsan(id).has_value();
        return exists == wanted ? Answer() : wanted ? no_vsan(id) : fmt::format("VSAN {} exists.", id);
    };
}

Ask vsan_name(uint32_t id, const std::string &wanted) {
    return ask_vsan(id, [id, wanted](const Json &vsan) -> Answer {
        const std::string name = vsan.at("name");
        if (name == wanted) {
            return std::nullopt;
        }
        return name.empty() ? fmt::format("VSAN {} has no name.", id)
                            : fmt::format("VSAN {} is called \"{}\".", id, printable(name));
    });
}

// A member of the row has this word. `sentence` is for another one: the VSAN and that word are put in.
Ask vsan_word(uint32_t id, const char *key, const std::string &wanted, fmt::string_view sentence) {
    return ask_vsan(id, [=](const Json &vsan) -> Answer {
        const std::string found = vsan.at(key);
        return found == wanted ? Answer() : fmt::format(fmt::runtime(sentence), id, found);
    });
}

Ask read_vsan(Reader &reader) {
    const uint32_t id = reader.vsan();
    const std::string &what = reader.one_of({"exists", "absent", "oper", "state", "name"});
    if (what == "oper") {
        return vsan_word(id, "oper", reader.one_of(texts_of(oper_words)), "VSAN {} is operationally {}.");
    }
    if (what == "state") {
        return vsan_word(id, "state", reader.one_of(texts_of(state_words)), "VSAN {} is {}.");
    }
    if (what == "name") {
        return vsan_name(id, reader.next("a VSAN's name"));
    }
    return vsan_existence(id, what == "exists");
}

Ask ask_port(const std::string &name, Check check) {
    return [name, check = std::move(check)] { return check(find_port_row(name)); };
}

Ask port_word(const std::string &name, const char *key, const std::string &wanted, fmt::string_view sentence) {
    return ask_port(name, [=](const Json &port) -> Answer {
        const std::string found = port.at(key);
        return found == wanted ? Answer() : fmt::format(fmt::runtime(sentence), name, found);
    });
}

Ask port_vsan(const std::string &name, uint32_t wanted) {
    return ask_port(name, [=](const Json &port) -> Answer {
        const auto found = port.at("vsan").get<uint32_t>();
        return found == wanted ? Answer() : fmt::format("Port {} is in VSAN {}.", name, found);
    });
}

Ask port_service(const std::string &name, bool wanted) {
    return ask_port(name, [=](const Json &port) -> Answer {
        return port.at("enabled") == wanted ? Answer()
                                            : fmt::format("Port {} is {}.", name, wanted ? "disabled" : "enabled");
    });
}

bool is_port(const std::string &text) {
    return text.size() < 12 && number_of(text.starts_with("fc") ? text.substr(2) : text);
}

Ask read_port(Reader &reader) {
    const std::string wanted = "an ifIndex or fc1, fc2, ...";
    const std::string &name = reader.next(wanted, {Choices::Kind::ports, {}});
    if (!is_port(name)) {
        reader.fail(wanted);
    }
    const std::string &what = reader.one_of({"oper", "link", "vsan", "enabled", "disabled"});
    if (what == "oper") {
        return port_word(name, "oper", reader.one_of(texts_of(oper_words)), "Port {} is operationally {}.");
    }
    if (what == "link") {
        return port_word(name, "link", reader.one_of(texts_of(oper_words)), "The link of port {} is {}.");
    }
    if (what == "vsan") {
        return port_vsan(name, reader.vsan());
    }
    return port_service(name, what == "enabled");
}

Ask read_tdx(Reader &reader) {
    reader.one_of({"session"});
    const bool wanted = reader.one_of({"open", "none"}) == "open";
    return [wanted]() -> Answer {
        const Json reply = look("tdx.show", {{"limit", 1}});
        if (reply.contains("user") == wanted) {
            return std::nullopt;
        }
        return wanted ? "No session of the distribution service is open."
                      : fmt::format("A session of {} is open.", printable(reply["user"]));
    };
}

// The member of timers.show that a setting of the whole switch is.
const char *setting_key(const std::string &word) {
    for (const Setting &latency : latencies) {
        if (word == latency.word) {
            return latency.key;
        }
    }
    return word == inorder_delivery.word ? inorder_delivery.key : nullptr;
}

// Compares a setting that the reply has with the value that is wanted.
Answer compare(const std::string &what, const Json &found, const Json &wanted) {
    if (found == wanted) {
        return std::nullopt;
    }
    return fmt::format("{} is {}.", what, found.is_boolean() ? (found ? "on" : "off") : found.dump());
}

Ask vsan_timer(const std::string &timer, const Json &value, uint32_t id) {
    return [=]() -> Answer {
        const auto row = row_of(look("timers.show", {{"after", id - 1}, {"limit", 1}}), "vsans", "id", id);
        return row ? compare(fmt::format("{} of VSAN {}", timer, id), row->at("running").at(timer), value)
                   : no_vsan(id);
    };
}

Ask switch_setting(const std::string &word, const Json &value) {
    return [=]() -> Answer {
        const Json reply = look("timers.show", {{"limit", 1}});
        const char *key = setting_key(word);
        return compare(word, key ? reply.at(key) : reply.at("switch").at(word), value);
    };
}

Ask read_timer(Reader &reader) {
    const std::string setting = reader.one_of(setting_words());
    if (setting == inorder_delivery.word) {
        return switch_setting(setting, reader.one_of({"on", "off"}) == "on");
    }
    const uint32_t value = reader.number(0, UINT32_MAX, "a number of milliseconds");
    if (setting_key(setting) || reader.is_at_end()) {
        return switch_setting(setting, value);
    }
    reader.one_of({"vsan"});
    return vsan_timer(setting, value, reader.vsan());
}

Ask read_agents(Reader &reader) {
    const uint32_t wanted = reader.number(0, UINT32_MAX, "a number of agents");
    return [wanted]() -> Answer {
        const auto agents = look("switch.show").at("agents").get<uint32_t>();
        return agents == wanted ? Answer()
                                : fmt::format("{} agent{} connected.", agents == 0 ? "No" : fmt::format("{}", agents),
                                              agents == 1 ? " is" : "s are");
    };
}

Ask read_faults(Reader &reader) {
    const uint32_t wanted = reader.number(0, UINT32_MAX, "a number of faults");
    return [wanted]() -> Answer {
        const auto faults = look("switch.show").at("faults").at("active").get<uint32_t>();
        return faults == wanted ? Answer()
                                : fmt::format("{} fault{} set.", faults == 0 ? "No" : fmt::format("{}", faults),
                                              faults == 1 ? " is" : "s are");
    };
}

Ask read_ready(Reader &) {
    return []() -> Answer {
        look("switch.show");
        return std::nullopt;
    };
}

constexpr const char *ready_word = "ready";

struct Subject {
    const char *word;
    Ask (*read)(Reader &);
};
constexpr Subject subjects[] = {{ready_word, read_ready}, {"vsan", read_vsan},   {"port", read_port},
                                {"tdx", read_tdx},        {"timer", read_timer}, {"agents", read_agents},
                                {"faults", read_faults}};

Ask read_condition(Reader &reader) {
    std::vector<std::string> known;
    for (const Subject &subject : subjects) {
        known.emplace_back(subject.word);
    }
    const std::string &word = reader.one_of(known);
    return std::ranges::find(subjects, word, &Subject::word)->read(reader);
}

// Asks the condition within the time that is left.
bool holds(const Condition &condition, const Deadline &deadline) {
    const Patience patience(deadline ? milliseconds(milliseconds_until(deadline)) : longest_question);
    return condition.holds();
}

// Waits on one connection. Throws Away when that ends.
bool wait_connected(const Condition &condition, const Deadline &deadline, Pauses &pauses) {
    Subscription changes({EVENT_ANY_CHANGE});
    changes.open(deadline);
    pauses.begin_again();
    do {
        if (holds(condition, deadline)) {
            return true;
        }
    } while (changes.next(deadline));
    return false;
}

} // namespace

std::optional<std::string> Condition::failure() const {
    try {
        return ask_();
    } catch (const Away &problem) {
        if (text_ != ready_word) {
            throw;
        }
        return problem.what();
    }
}

Condition Condition::parse(std::span<const std::string> words) {
    Reader reader(words);
    Ask ask = read_condition(reader);
    reader.end();
    return {fmt::format("{}", fmt::join(words, " ")), std::move(ask)};
}

Choices Condition::choices(std::span<const std::string> words) {
    try {
        Reader reader(words);
        read_condition(reader);
        // A whole condition goes on in one case only.
        const bool can_be_of_vsan = words.size() == 3 && words[0] == "timer" && !setting_key(words[1]);
        return {Choices::Kind::words, can_be_of_vsan ? std::vector<std::string>{"vsan"} : std::vector<std::string>{}};
    } catch (const Unfinished &unfinished) {
        return unfinished.choices;
    } catch (const UsageError &) {
        return {};
    }
}

bool wait_until(const Condition &condition, milliseconds timeout) {
    const Deadline deadline = deadline_after(timeout);
    Pauses pauses;
    try { // without any time, too
        if (holds(condition, deadline)) {
            return true;
        }
    } catch (const Away &) {
        pauses.wait(deadline);
    }
    while (milliseconds_until(deadline) != 0) {
        try {
            return wait_connected(condition, deadline, pauses);
        } catch (const Away &) {
            pauses.wait(deadline);
        }
    }
    return false;
}

} // namespace vswitchctl
