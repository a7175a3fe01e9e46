/* Texts for the platform's 32-bit status codes. */
#ifndef PLATFORM_SYSERR_H
#define PLATFORM_SYSERR_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The text of a status for a reader, code included. Never null; static storage,
 * valid until the next call of this function. At most 200 characters. */
const char *syserr_format(uint32_t status);

/* The short text of a status, without its code. Never null; static storage,
 * valid until the next call of this function. */
const char *syserr2str(uint32_t status);

#ifdef __cplusplus
}
#endif

#endif
