/* SPDX-License-Identifier: Apache-2.0 */
/* Texts for the platform's 32-bit status codes. */
#ifndef PLATFORM_SYSERR_H
#define PLATFORM_SYSERR_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The text of a status for a reader, whatever the status. Never null; static storage,
 * valid until the next call of this function. Of a text for an snmp_error_record, 199
 * characters and the NUL have room there; the rest of a longer one is cut off. */
const char *syserr_format(uint32_t status);

/* The short text of a status, whatever the status. Never null; static storage, valid
 * until the next call of this function. */
const char *syserr2str(uint32_t status);

#ifdef __cplusplus
}
#endif

#endif
