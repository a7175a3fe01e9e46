// SPDX-License-Identifier: Apache-2.0
// The two lists that carry a SET of VSAN rows from phase to phase, and the only code that
// touches them. The pending list (vsanEntry_list) holds what goes to the manager, the undo
// list (vsanEntry_undo_list) the row as the manager had it before. Each holds at most one
// record of a VSAN, in host order; a record on a list keeps its key and belongs to the list,
// and whoever takes it off frees it.
//
// The agent runs a phase over all varbinds of a PDU before the next. What one VSAN has on the
// lists after each phase:
//
//   a kind of write      pending list                      undo list
//
//   column
//     RESERVE1           -                                 -
//     RESERVE2           the manager's row, with this      the manager's row
//                        value and those that follow
//     ACTION             -  sent by the first of them      the manager's row
//     COMMIT             -                                 -  freed
//     UNDO               as before                         as before
//
//   createAndGo
//     RESERVE1           defaults, createAndGo             -
//     RESERVE2           the columns fill it in            -
//     ACTION             sent, now active; a column that   -
//                        comes later sends it once more
//                        and frees it
//     COMMIT             -  freed                          -
//     UNDO               -  freed, after a DELETE          -
//
//   active, destroy
//     RESERVE1           -                                 the manager's row
//     RESERVE2, ACTION   -                                 the manager's row
//     COMMIT             -                                 -  freed
//     UNDO               -                                 -  freed, after it was sent back
//
// A column of the same PDU shares the undo copy of active and destroy and refreshes it in
// RESERVE2.
//
// When a phase fails:
//
//     RESERVE1           The failing varbind adds nothing but the undo copy of a destroy that is
//                        not permitted. The agent then calls FREE for all, which frees both.
//     RESERVE2           A column leaves what its VSAN had, its undo copy too where only the
//                        pending list refused. FREE for all, likewise.
//     ACTION             A refused pending record is freed at once, so that no later column sends
//                        it again; the undo copy stays. The agent goes on to the end of the phase,
//                        then calls UNDO for all and no FREE. A column does nothing there.
//     UNDO               Its refusals are traced, no more. What columns have left on the lists is
//                        freed by the agent extension library, which calls FREE for all varbinds
//                        when the last UNDO of the PDU has returned.
#ifndef VSAN_MIB_STAGING_H
#define VSAN_MIB_STAGING_H

#include "vsan_mib.h"

// Creates the lists; false when one could not be made, and then a first one stays.
bool create_staging_lists();
void destroy_staging_lists();

// A cleared record that belongs to the caller, or null.
vsanEntry *new_row();

// The VSAN's pending record, which stays the list's, or null.
vsanEntry *pending_row(const vsanEntry &key);

// Hands a record to the pending list. REQUIRES: its VSAN has none there. Returns false when
// the list refused it; it is freed then.
bool add_pending_row(vsanEntry *row);

// Take the VSAN's record off its list. The caller frees it; null when there is none.
vsanEntry *take_pending_row(const vsanEntry &key);
vsanEntry *take_undo_copy(const vsanEntry &key);

// Where a VSAN's undo copy goes: the record that the list has already, or a new one.
struct undo_place {
    vsanEntry *record; // null when memory ran out
    bool is_listed;
};

undo_place find_undo_place(const vsanEntry &key);

// Gives up a place without a copy.
void release_undo_place(const undo_place &place);

// Fills a place with the manager's row, under the VSAN's number, and puts it on the list.
// Returns false when the list refused it; the record is freed then.
bool keep_undo_copy(const undo_place &place, const vsanEntry &row, int32_t vsan);

#endif
