// SPDX-License-Identifier: Apache-2.0
// Conditions that cannot hold where they stand.
//
// VSAN_NEVER(condition, "why it does not hold") stands for the condition of a branch that is
// there all the same. The branch stays in what is released. A test build, which defines
// VSAN_NEVER_TRAPS, ends when it would be taken; one that counts coverage, and defines
// VSAN_NEVER_UNCOUNTED, leaves it out, so that every branch that is counted can be reached.
#ifndef VSAN_MIB_NEVER_H
#define VSAN_MIB_NEVER_H

#if defined(VSAN_NEVER_TRAPS)

#include <cstdio>

inline bool vsan_never(bool condition, const char *why) {
    if (condition) {
        fprintf(stderr, "taken, although %s\n", why);
        __builtin_trap();
    }
    return condition;
}
#define VSAN_NEVER(condition, why) vsan_never((condition), (why))

#elif defined(VSAN_NEVER_UNCOUNTED)

#define VSAN_NEVER(condition, why) (static_cast<void>(condition), false)

#else

#define VSAN_NEVER(condition, why) (condition)

#endif

#endif
