// SPDX-License-Identifier: Apache-2.0
// The room `tool`: vswitchctl, the operator's program. It knows the switch by contract/ only, and speaks
// to it through the platform's message client.
//
// This is the tool's side of the conversation with the switch. Heavy: it brings the JSON library.
#ifndef VSWITCHCTL_CLIENT_H
#define VSWITCHCTL_CLIENT_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <utility>

namespace vswitchctl {

using Json = nlohmann::json;

// Whether a text can be told in JSON as it is.
bool is_utf8(const std::string &text);

// The switch refuses, or cannot be reached. The text is one sentence for the operator.
class Refusal : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// There is no switch to ask, whatever the question was.
class Unreachable : public Refusal {
  public:
    using Refusal::Refusal;
};

// It is away, or does not answer: it may be there again later.
class Away : public Unreachable {
  public:
    using Unreachable::Unreachable;
};

// The sentence begins with the line of a file that it is about.
class PlacedRefusal : public Refusal {
  public:
    using Refusal::Refusal;
};

// The switch has dropped an upload or a download to make room for others.
class Dropped : public Refusal {
  public:
    using Refusal::Refusal;
};

// One command of a transaction is refused, and so are all.
class TransactionRefusal : public Refusal {
  public:
    TransactionRefusal(const std::string &sentence, size_t place, std::string why)
        : Refusal(sentence), number(place), reason(std::move(why)) {}

    const size_t number;      // the command's place, counted from 1
    const std::string reason; // the sentence as if the command had been alone
};

// What the sentence of an errno value of the message service is.
std::string connection_problem(int reason);

// Throws that sentence, as Away where the switch may come back, else as Unreachable.
[[noreturn]] void throw_connection_problem(int reason);

// While it lives, a reply is waited for no longer than so; otherwise it is ten seconds. The message
// service counts in quarters of a second, of which one is the least.
class Patience {
  public:
    explicit Patience(std::chrono::milliseconds longest);
    ~Patience();
    Patience(const Patience &) = delete;
    Patience &operator=(const Patience &) = delete;

  private:
    uint32_t former_;
};

// One request to the switch itself and what it answers, both as they are. Throws Unreachable.
struct Answer {
    uint32_t status = 0;
    std::string data;
};
Answer exchange(uint32_t opcode, uint32_t kind, const std::string &payload);

// Sends one command and returns its reply. Throws Refusal.
Json look(const std::string &command, Json arguments = Json::object());
Json change(const std::string &command, Json arguments = Json::object());

// Asks for a list until the switch has no more of it, and returns {key: all rows} beside
// what else the last reply has. `after` is the row's member, or the reply's, that the next
// request starts behind. Throws Refusal.
Json list(const std::string &command, const char *key, const char *after, Json arguments = Json::object());

// The ifIndex of a port given as such or as "fcN". Throws Refusal when there is none.
uint32_t find_port(const Json &port);

} // namespace vswitchctl

#endif
