/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Event history and debug output. Both are filtered by a 32-bit class (100
 * failures and refusals, 101 ordinary trace); the filters are asked for each event.
 *
 * Relied on: the types and the order of the arguments below.
 */
#ifndef PLATFORM_SDWRAP_H
#define PLATFORM_SDWRAP_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The name under which this process's debug lines appear, NUL-terminated. Relied on:
 * a variable that holds a pointer, no array. */
extern const char *sdwrap_dbg_modname;

/* Says whether the history leaves out events of this class of this module:
 * nonzero when they are filtered out, 0 when they are wanted. */
int sdwrap_hist_event_subtype_check(uint32_t module_id, uint32_t event_class);

/*
 * Stores one record in the module's event history. The record is a 32-bit class in
 * host order followed by a NUL-terminated text; `length` counts all of it in bytes
 * (text length + 5). The record is copied.
 */
void sdwrap_hist_event(uint32_t module_id, uint32_t length, const void *record);

/* Says whether debug output of this class is wanted: nonzero when it is. The other
 * three arguments are qualifiers that the platform defines; pass 0, 0 and 1. */
int sdwrap_chk_int(uint32_t event_class, uint32_t qualifier1, uint32_t qualifier2, uint32_t qualifier3);

/* Writes one formatted text to the debug output, marked with `name`. */
void buginf(const char *name, const char *format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 2, 3)))
#endif
    ;

#ifdef __cplusplus
}
#endif

#endif
