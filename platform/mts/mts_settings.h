// SPDX-License-Identifier: Apache-2.0
// For the libraries of the agent that keep what the switch has told them.
#ifndef MTS_SETTINGS_H
#define MTS_SETTINGS_H

#include <cstdint>

#ifdef __cplusplus
extern "C" {
#endif

// The generation of the switch's roles and settings. What a library asked for after it
// read this number holds as long as the number stays the same; what it asked for while
// the number is 0 holds for that moment only. Costs no request.
//
// Returns 0 when the switch does not say, as over a connection without shared memory.
uint64_t mts_settings_generation(void);

// Whether the switch has offered memory of another version than this library knows. 0 when
// not; otherwise requests go over the socket, and whoever keeps a log should say so.
int mts_memory_is_other_version(void);

#ifdef __cplusplus
}
#endif

#endif
