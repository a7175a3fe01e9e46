/*
 * Trace lines. Each goes two ways, to the event history and to the debug output,
 * and each way is filtered by class; a text that nobody wants is never formatted.
 */
#ifndef VSAN_MIB_TRACE_H
#define VSAN_MIB_TRACE_H

#include <cstdint>

#include "sdwrap.h"

constexpr uint32_t TRACE_MODULE_ID = 0x730000;

constexpr uint32_t TRACE_FAILURE = 100; /* failures and refusals */
constexpr uint32_t TRACE_EVENT = 101;   /* entries, requests, replies, decisions */

/* Formats one text into the history, cut to 511 characters. */
void trace_history(uint32_t trace_class, const char *format, ...) __attribute__((format(printf, 2, 3)));

/* VSAN_TRACE(class, format, arguments...): the arguments are evaluated only when the
 * line is wanted, and once for each way. */
#define VSAN_TRACE(trace_class, ...)                                                                                   \
    do {                                                                                                               \
        if (sdwrap_hist_event_subtype_check(TRACE_MODULE_ID, (trace_class)) == 0)                                      \
            trace_history((trace_class), __VA_ARGS__);                                                                 \
        if (sdwrap_chk_int((trace_class), 0, 0, 1) != 0)                                                               \
            buginf(sdwrap_dbg_modname, __VA_ARGS__);                                                                   \
    } while (0)

#endif
