// SPDX-License-Identifier: Apache-2.0
// The registration table, as the agent gets it.
#ifndef VSAN_MIB_REGISTRATION_H
#define VSAN_MIB_REGISTRATION_H

#include "vsan_mib_agent.h"

#include "vsan_mib.h"

// 1.3.6.1.4.1.VENDOR_PEN.9.282
extern const oid vsan_mib_variables_oid[vsan_mib_root_length];

// The 28 objects, ascending by suffix.
extern const variable7 vsan_mib_variables[vsan_mib_variables_count];

#endif
