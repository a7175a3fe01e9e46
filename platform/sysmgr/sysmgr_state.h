// SPDX-License-Identifier: Apache-2.0
// What the system manager library knows of this process.
#ifndef SYSMGR_STATE_H
#define SYSMGR_STATE_H

#ifdef __cplusplus
extern "C" {
#endif

// How many announced blocking calls the process is in; 0 when it is supervised.
int sysmgr_blocking_depth(void);

#ifdef __cplusplus
}
#endif

#endif
