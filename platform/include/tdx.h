/* SPDX-License-Identifier: Apache-2.0 */
/* Fabric-wide configuration distribution service (TDX). A feature is named by its
 * application, for instance "fctimer". */
#ifndef PLATFORM_TDX_H
#define PLATFORM_TDX_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Sets *enabled nonzero when the service distributes this feature, 0 when it does
 * not. Returns 0, or a status code (UINT32_MAX: see errno). Relied on: a call that
 * fails leaves *enabled as it was. The module sets it to 0 before, and looks at it
 * whatever the result. */
uint32_t is_tdx_enabled(const char *feature, uint32_t *enabled);

/* Sets *mode nonzero when the feature is in show-run mode (reads show the running
 * configuration, not the service's). Result as for is_tdx_enabled. */
uint32_t get_tdx_show_run_mode(const char *feature, uint32_t *mode);

#ifdef __cplusplus
}
#endif

#endif
