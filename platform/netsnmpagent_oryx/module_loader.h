// SPDX-License-Identifier: Apache-2.0
// The entries that the agent calls by name after loading this library and before
// unloading it. A second call of either changes nothing.
#ifndef NETSNMPAGENT_ORYX_MODULE_LOADER_H
#define NETSNMPAGENT_ORYX_MODULE_LOADER_H

#ifdef __cplusplus
extern "C" {
#endif

// Opens the module: the file that the environment variable ORYX_MODULE names, or
// libvsanmib.so in this library's folder. Where that fails, one line goes to the
// agent's log, and the agent goes on without the module.
void init_netsnmpagent_oryx(void);

// Closes the module; its destructor takes its objects down.
void deinit_netsnmpagent_oryx(void);

#ifdef __cplusplus
}
#endif

#endif
