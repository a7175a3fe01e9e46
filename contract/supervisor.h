/* SPDX-License-Identifier: Apache-2.0 */
/*
 * What a program tells vswitch-supervisor, which has started it, on the descriptor that it was handed
 * for that: lines with one of these words. Without such a descriptor nobody is told.
 */
#ifndef CONTRACT_SUPERVISOR_H
#define CONTRACT_SUPERVISOR_H

#include <stdint.h>

/* From now on the program serves; of an attendant: what it attends to may be started. */
#define SUPERVISOR_READY "ready"

/* With a blank and a number of seconds behind it: the program ends now, and is to be started again
 * no sooner than that. */
#define SUPERVISOR_AWAY "away"

/* The greatest number of these seconds. */
#define SUPERVISOR_AWAY_MAX 600u

#endif
