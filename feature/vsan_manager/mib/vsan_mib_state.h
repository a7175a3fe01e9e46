// SPDX-License-Identifier: Apache-2.0
// What the module keeps while it is loaded, under the names that the switch knows it by.
#ifndef VSAN_MIB_STATE_H
#define VSAN_MIB_STATE_H

#include <cstdio>

#include "vsan_mib_agent.h"

#include "indxobj.h"

#include "vsan_mib.h"

// ---- Results handed to the agent: valid until the next request ----------------

extern vsanEntry vsanEntry_current;                                        // the VSAN table's row
extern vsanIfEntry vsanIfEntry_current;                                    // the interface table's
alignas(4) extern vsanMembershipSummary_row vsanMembershipSummary_current; // the membership summary's
extern fc_timer_record vsanFcTimer_current;                                // the timer table's
extern int32_t vsanRowStatus_active; // the row status, and the timer table's value

// ---- From request to request --------------------------------------------------

// One byte for each VSAN number 0 to 4095: bit 0x80 forces the next R_A_TOV, 0x40 the
// next E_D_TOV, 0x20 the next D_S_TOV.
constexpr uint32_t VSAN_FORCE_FLAGS = 4096;
extern uint8_t vsanFcTimerForceFlags[VSAN_FORCE_FLAGS];

// The status of the latest get_using_cmi exchange.
extern uint32_t last_manager_status;

// For whoever looks with a debugger; the module only writes them.
extern uint32_t last_loadbalancing_type;        // as requested, accepted or not
extern uint32_t last_timer_status;              // of the latest SET of a VSAN's R_A_TOV or of a scalar
extern uint32_t last_force_flag_status;         // of the latest SET of a force flag
extern const u_char *last_notification_control; // where its value lay, in range or not

// Where row status changes are written too, for a developer who opens it; null.
extern FILE *vsan_mib_debug_file;

// The staging lists, alive between init_vsan_mib and deinit_vsan_mib.
extern indxobj_list vsanEntry_undo_list;
extern indxobj_list vsanEntry_list;

#endif
