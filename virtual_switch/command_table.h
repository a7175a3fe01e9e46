/* What the commands share. Included by commands*.cpp only; the JSON library is heavy. */
#ifndef VSWITCH_COMMAND_TABLE_H
#define VSWITCH_COMMAND_TABLE_H

#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "changes.h"
#include "json_reader.h"
#include "services.h"
#include "syserr/status_codes.h"

namespace vswitch {

/* A command is refused. */
class CommandRefused : public std::runtime_error {
  public:
    CommandRefused(std::uint32_t why, const std::string &sentence) : std::runtime_error(sentence), status(why) {}
    const std::uint32_t status;
};

/* The error table's text of a status, for instance "VSAN does not exist". */
const char *status_text(std::uint32_t status);

/* Throws CommandRefused unless the status is 0. The sentence is `what` and the status's text:
 * "VSAN 7: VSAN does not exist." */
void require(std::uint32_t status, const std::string &what);

/* A command's arguments. Each function throws Refusal when the argument has the wrong type
 * or is out of range; those named required_ also when it is missing. */
class Arguments {
  public:
    using Json = JsonReader::Json;

    Arguments(const JsonReader &reader, const Json &json) : reader_(reader), json_(json) {}

    std::optional<std::uint32_t> number(const char *key, std::uint32_t lowest, std::uint32_t highest) const;
    std::uint32_t required_number(const char *key, std::uint32_t lowest, std::uint32_t highest) const;
    std::optional<std::string> text(const char *key, std::size_t longest) const;
    std::string required_text(const char *key, std::size_t longest) const;
    std::optional<bool> flag(const char *key) const;
    bool required_flag(const char *key) const;

    /* An argument that is one of these words; returns the word's value. */
    using Words = std::span<const std::pair<const char *, std::uint32_t>>;
    std::optional<std::uint32_t> word(const char *key, Words words) const;
    std::uint32_t required_word(const char *key, Words words) const;

    /* The port that "ifIndex" means: a number, or "fc3" for the switch's third port. The
     * port exists, or CommandRefused is thrown. */
    const SwitchModel::PortRow &required_port(const Switch &target) const;

    const Json &json() const { return json_; }
    const JsonReader &reader() const { return reader_; }

  private:
    const Json *find(const char *key) const;
    [[noreturn]] void fail_missing(const char *key) const;

    const JsonReader &reader_;
    const Json &json_;
};

/* What a command knows. `reply` is an empty object at first. */
struct Call {
    Switch &target;
    Requester requester;
    Arguments arguments;
    JsonReader::Json reply = JsonReader::Json::object();
};

struct Command {
    const char *name;
    std::uint32_t kind; /* kind_get when it only looks, kind_set when it changes something */
    void (*run)(Call &);
    std::initializer_list<std::string_view> arguments; /* beside "command" */
};

/* Rows of a reply, as many as one reply may carry. */
class Page {
  public:
    static constexpr std::uint32_t max_rows = 256;
    static constexpr std::size_t max_bytes = 90000; /* leaves room for the rest of a reply */

    /* Takes "limit" from the call's arguments; the rows go into the reply under `key`. */
    Page(Call &call, const char *key);

    /* Adds a row. False, with "more" set in the reply, when there is no room. */
    bool add(JsonReader::Json row);

  private:
    JsonReader::Json &reply_;
    const char *key_;
    std::size_t rows_left_;
    std::size_t bytes_left_ = max_bytes;
};

/* The words that commands and configuration have for the timers. */
extern const std::pair<const char *, Timer> timer_words[timer_count];

std::span<const Command> configuration_commands(); /* VSANs, ports, roles */
std::span<const Command> timer_commands();         /* timers, latencies, distribution */
std::span<const Command> status_commands();        /* the whole switch, events */
std::span<const Command> fault_commands();
std::span<const Command> agent_file_commands(); /* the agent's history and trace filters */

} // namespace vswitch

#endif
