// SPDX-License-Identifier: Apache-2.0
// Keeps a SET on the row that the requester named.
//
// In the first phase of a SET the agent calls the read handler and then hands the
// write method the name that the read handler left behind. A read that answers with
// another row moves the write there, past the access check, which has judged the
// name of the request. The guard takes the names before the handlers run; a varbind
// whose name changed gets its name back and fails with inconsistentName, so that
// the SET never reaches the phase in which anything changes.
#ifndef NETSNMPAGENT_ORYX_ROW_GUARD_H
#define NETSNMPAGENT_ORYX_ROW_GUARD_H

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

namespace oryx {

class RowGuard {
  public:
    // Copies the names of `requests`, a chain as the agent hands it to a handler.
    explicit RowGuard(const netsnmp_request_info *requests);
    ~RowGuard();
    RowGuard(const RowGuard &) = delete;
    RowGuard &operator=(const RowGuard &) = delete;

    // False when there was no memory for the names.
    bool armed() const { return names_ != nullptr; }

    // Restores every changed name of the same chain and fails its varbind. What the write
    // method has put aside for the other row is released under that row's name first.
    void restore(netsnmp_handler_registration &registration, netsnmp_agent_request_info &request_info,
                 netsnmp_request_info *requests) const;

  private:
    // For each request in turn: the number of arcs, then the arcs.
    oid *names_;
};

} // namespace oryx

#endif
