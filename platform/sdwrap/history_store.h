// SPDX-License-Identifier: Apache-2.0
// Where this process's event history goes: two text files in the run directory, of
// HISTORY_FILE_MAX bytes at most each. `history.NAME` is added to. When it is full it
// becomes `history.NAME.old`, in the place of the one before.
#ifndef HISTORY_STORE_H
#define HISTORY_STORE_H

#include "history_line.h"

#pragma GCC visibility push(hidden)

// Adds a record to the history of `name`. Its file is opened or made at the first one; it
// is its owner's alone, but that the group may read it that may enter the run directory.
// Processes of one name may share it.
//
// As long as the file cannot be had, or takes nothing because the disk is full, some of
// the latest records are kept in memory, and go into the file as soon as they can. Never
// waits.
void history_store_add(const char *name, const history_line &record);

// Lets go of the file; the next record opens it again.
void history_store_close(void);

#pragma GCC visibility pop

#endif
