// SPDX-License-Identifier: Apache-2.0
// An SNMP agent inside the test: an object tree with old-style handlers in it, PDUs
// made by hand and pushed through the chain of handlers, and the agent's log.
#ifndef ORYX_AGENT_H
#define ORYX_AGENT_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

using Oid = std::vector<oid>;

// The module's root followed by `suffix`.
Oid under_root(const Oid &suffix);

// The two writable columns that FakeObjects registers.
extern const Oid NAME_COLUMN;
extern const Oid STATE_COLUMN;

// The agent's log lines, oldest first.
extern std::vector<std::string> agent_log;
size_t log_lines_with(const std::string &text);

// Old-style objects under the root, and what happens in their handlers.
struct FakeObjects {
    std::function<void(oid *name, size_t *length, int exact)> on_read;
    std::function<int(int action, const oid *name, size_t length)> on_write;
    // Whether the row of a name has a write method; all have by default.
    std::function<bool(const oid *name, size_t length)> is_writable;

    FakeObjects();
    ~FakeObjects();
    FakeObjects(const FakeObjects &) = delete;
    FakeObjects &operator=(const FakeObjects &) = delete;
};

// The registration that serves `name`, or null.
netsnmp_handler_registration *registration_of(const Oid &name, const char *context = "");

// The names of the handlers of a registration, first to last.
std::vector<std::string> handler_chain(const netsnmp_handler_registration &registration);

// A PDU as the agent has it while it works on it.
class Pdu {
  public:
    static Pdu v1(const std::string &community) { return Pdu(SNMP_VERSION_1, community); }
    static Pdu v2c(const std::string &community) { return Pdu(SNMP_VERSION_2c, community); }
    static Pdu v3(const std::string &security_name) { return Pdu(SNMP_VERSION_3, security_name); }
    // A protocol that does not say who asks.
    static Pdu anonymous() { return Pdu(SNMP_DEFAULT_VERSION, ""); }

    Pdu(Pdu &&) = delete;
    ~Pdu();

    Pdu &session(long id);

    // Adds a varbind with a value of 1 and returns its number.
    int add(const Oid &name);

    // Hands all varbinds to the handlers registered for the first, in agent mode `mode`.
    int call(int mode);

    // Lets the agent itself take all varbinds through the phases of a SET; returns the
    // error status of the answer. failed() then is the number of the varbind at fault,
    // or -1.
    int set();
    int failed() const { return static_cast<int>(asp_->index) - 1; }

    // Sorts the varbinds by registration, as the agent does before the first phase.
    void sort_by_registration();

    // A varbind without what RESERVE1 noted for it, as when the agent had no memory.
    void forget_write_method(int number) { netsnmp_free_request_data_sets(&asp_->requests[number]); }

    // What became of a varbind.
    int status(int number) const { return asp_->requests[number].status; }
    Oid name(int number) const;

  private:
    Pdu(int version, const std::string &user);

    netsnmp_session session_ = {};
    netsnmp_agent_session *asp_;
};

// Lets the agent's loop wait for its next descriptor or timer, and serve it.
void agent_turn();

// The same, without waiting.
void agent_poll();

class OryxTest : public testing::Test {
  protected:
    void SetUp() override;
};

#endif
