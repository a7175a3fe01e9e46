// SPDX-License-Identifier: Apache-2.0
// What a user may see and change: the VSANs of their role.
#ifndef VSAN_MIB_VISIBILITY_H
#define VSAN_MIB_VISIBILITY_H

#include "vsan_mib_agent.h"

#include "netsnmpagent_oryx.h"

// Asks which VSANs the user of the PDU in progress may touch below `name` (`length`
// arcs). Returns 0 when all, and then `list` says nothing; nonzero when `list` counts.
int get_allowed_vsans(allowed_vsan_list &list, const oid *name, size_t length, int pdu_type);

// Hands a refusal for the requester's sake to the agent's log.
void report_restriction(uint32_t status);

// How a table indexed by VSAN is read: looks up the row that `name` names (`exact` nonzero) or
// that follows it. Returns 0 with the row kept, `name` and `length` naming it and its VSAN number
// in `vsan`, or a failure status.
using row_lookup = uint32_t (*)(const variable *vp, oid *name, size_t *length, int exact, uint32_t &vsan);

// Looks up a row as the requester may see it: for GETNEXT the next permitted one, jumping
// over those that are not. Permission is that of the VSAN that the manager returned.
// `function` is the read handler's name and `line` its line, for the trace. Returns whether
// there is one.
bool find_visible_row(const char *function, int line, row_lookup lookup, const variable *vp, oid *name, size_t *length,
                      int exact);

#endif
