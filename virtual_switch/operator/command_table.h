// SPDX-License-Identifier: Apache-2.0
// The room `operator`: what the operator's tool says to the switch, one JSON object a request, one
// a reply. May include services/, changes/, model/ and contract/, and the platform's readers of
// the files that the agent leaves. This header stays in the room: the JSON library is heavy.
//
//   {"command": "vsan.show", "id": 10}
//
// A refused command changes nothing. Its reply has a status of its own and the data
// {"error": "a sentence", "status": "0x40190001"}. Commands that list take "after", the
// key of the last row that the caller has, and "limit"; "more": true in the reply says
// that rows follow. The files of the room have the commands, a table of them at the end of each.
#ifndef VSWITCH_COMMAND_TABLE_H
#define VSWITCH_COMMAND_TABLE_H

#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "changes/changes.h"
#include "contract/status_codes.h"
#include "model/json_reader.h"
#include "model/words.h"
#include "services/services.h"

namespace vswitch {

// The error table's text of a status, for instance "VSAN does not exist".
const char *status_text(uint32_t status);

// Throws Refusal unless the status is 0. The sentence is `what` and the status's text:
// "VSAN 7: VSAN does not exist."
void require(uint32_t status, const std::string &what);

// The VSAN of that number. Throws Refusal when there is none.
const Vsan &require_vsan(const Switch &the_switch, uint32_t id);

// A command's arguments. Each function throws Refusal when the argument has the wrong type
// or is out of range; those named required_ also when it is missing.
class Arguments {
  public:
    using Json = JsonReader::Json;

    Arguments(const JsonReader &reader, const Json &json) : reader_(reader), json_(json) {}

    std::optional<uint32_t> number(const char *key, Range allowed) const;
    uint32_t required_number(const char *key, Range allowed) const;
    std::optional<std::string> text(const char *key, size_t longest) const;
    std::string required_text(const char *key, size_t longest) const;
    std::optional<bool> flag(const char *key) const;
    bool required_flag(const char *key) const;

    // An argument that is one of these words; returns the word's value.
    std::optional<uint32_t> word(const char *key, Words words) const;
    uint32_t required_word(const char *key, Words words) const;

    // The ifIndex of the port that "ifIndex" means: a number, or "fc3" for the switch's third
    // port. The port exists, or Refusal is thrown.
    uint32_t required_port(const Switch &the_switch) const;

    const Json &json() const { return json_; }
    const JsonReader &reader() const { return reader_; }

  private:
    const Json *find(const char *key) const;
    [[noreturn]] void fail_missing(const char *key) const;

    const JsonReader &reader_;
    const Json &json_;
};

// One of the commands of a transaction is refused. The reply has "number", its place counted from 1, and
// "reason", the sentence as if it had been alone.
class CommandRefusal : public Refusal {
  public:
    CommandRefusal(size_t place, const Refusal &why, const std::string &sentence)
        : Refusal(why.status, sentence), number(place), reason(why.what()) {}

    const size_t number;
    const std::string reason;
};

// What a command knows. `reply` is an empty object at first.
struct Call {
    ServedSwitch &the_switch;
    Requester requester;
    Arguments arguments;
    JsonReader::Json reply = JsonReader::Json::object();
};

struct Command {
    const char *name;
    uint32_t kind; // MTS_KIND_GET when it only looks, MTS_KIND_SET when it does anything else
    void (*run)(Call &);
    std::initializer_list<std::string_view> arguments; // beside "command"
    // Whether all that it does is to change the configuration, by the functions of changes.h, so that
    // it can be part of a transaction: it is run on a draft then.
    bool configures = false;
};

// The command of that name, or null.
const Command *find_command(std::string_view name);

// Runs a command, {"command": name, ...}, of that kind, and returns its reply. Throws Refusal.
JsonReader::Json run_command(ServedSwitch &the_switch, std::string_view user, uint32_t kind,
                             const JsonReader::Json &json);

// Rows of a reply, as many as one reply may carry.
class Page {
  public:
    static constexpr uint32_t max_rows = 256;
    static constexpr size_t max_bytes = 90000; // leaves room for the rest of a reply

    // Takes "limit" from the call's arguments; the rows go into the reply under `key`.
    Page(Call &call, const char *key);

    // Adds a row. False, with "more" set in the reply, when there is no room.
    bool add(JsonReader::Json row);

  private:
    JsonReader::Json &reply_;
    const char *key_;
    size_t rows_left_;
    size_t bytes_left_ = max_bytes;
};

std::span<const Command> configuration_commands(); // VSANs, ports, roles, the system's texts
std::span<const Command> timer_commands();         // timers, latencies, distribution
std::span<const Command> status_commands();        // the whole switch, events
std::span<const Command> fault_commands();
std::span<const Command> client_fault_commands(); // what is special to faults of the agent's clients
std::span<const Command> agent_file_commands();   // the agent's trace filters
std::span<const Command> transaction_commands();  // several changes as one
std::span<const Command> transfer_commands();     // the configuration as a whole, in and out

} // namespace vswitch

#endif
