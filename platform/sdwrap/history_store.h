/* Where this process's event history goes. */
#ifndef HISTORY_STORE_H
#define HISTORY_STORE_H

#include "history_ring.h"

#pragma GCC visibility push(hidden)

/*
 * Adds a record to the history file of `name` in the run directory, which is opened
 * or made (owner-only, with all its space reserved) at the first record. All
 * processes of that name share the file.
 *
 * As long as the file cannot be had, records are kept in memory, and go into the
 * file as soon as it can. Never waits; a record is dropped when another process
 * does not let go of the file.
 */
void history_store_add(const char *name, const history_record &record);

/* Lets go of the file; the next record opens it again. */
void history_store_close(void);

#pragma GCC visibility pop

#endif
