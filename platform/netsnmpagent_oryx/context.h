// SPDX-License-Identifier: Apache-2.0
// Who asks: the PDU that the agent is working on right now.
//
// The agent does not tell an old-style read handler on whose behalf it is called.
// The front handler (front_handler.h) knows, and opens a PduScope around every call
// of the handlers behind it. Scopes nest: a handler may send a request of its own
// through the agent, and finds its own PDU again afterwards.
#ifndef NETSNMPAGENT_ORYX_CONTEXT_H
#define NETSNMPAGENT_ORYX_CONTEXT_H

#include <cstdint>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include "contract/frames.h"

namespace oryx {

struct PduContext {
    // The number that every handler call of this PDU shares. Never 0.
    uint32_t number;

    // The agent's session that the PDU came in on.
    uint32_t session;

    // Whether `user` is the requester's whole name. It is not when the PDU carries
    // none, or one that is too long or holds a NUL: such a requester has a name for
    // the log, but must not be given another user's role.
    bool identified;

    // NUL-terminated; empty when the PDU carries no name.
    char user[MTS_WIRE_MAX_USER + 1];
};

// The number after `number`. 0 stands for "no PDU" and is skipped.
constexpr uint32_t pdu_number_after(uint32_t number) {
    return number == UINT32_MAX ? 1 : number + 1;
}

// The PDU in progress, or null outside any.
const PduContext *current_pdu();

// Makes the PDU of `request_info` the one in progress while the object lives.
class PduScope {
  public:
    explicit PduScope(netsnmp_agent_request_info &request_info);
    ~PduScope();
    PduScope(const PduScope &) = delete;
    PduScope &operator=(const PduScope &) = delete;

  private:
    PduContext context_;
    const PduContext *outer_;
};

} // namespace oryx

#endif
