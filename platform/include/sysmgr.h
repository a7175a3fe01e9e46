/* SPDX-License-Identifier: Apache-2.0 */
/* System manager: supervision of the switch's processes. */
#ifndef PLATFORM_SYSMGR_H
#define PLATFORM_SYSMGR_H

#ifdef __cplusplus
extern "C" {
#endif

/* Tells the system manager that the calling process is about to block for long
 * (1) or is back (0). Calls are balanced by the caller. */
void sysmgr_heartbeat(int blocking);

#ifdef __cplusplus
}
#endif

#endif
