// SPDX-License-Identifier: Apache-2.0
// The entries that the agent calls by name, on `dlmod switchmib PATH` and before it unloads the
// library. A second call of either changes nothing.
#ifndef AGENT_SWITCH_MIB_H
#define AGENT_SWITCH_MIB_H

extern "C" {

// Registers the system group and the interfaces, and begins to listen to changes of ports. What
// the agent refuses, because it serves that itself, is named in its log; the rest is served.
[[gnu::visibility("default")]] void init_switchmib(void);

// Takes back all of it: nothing in the agent refers to this library afterwards.
[[gnu::visibility("default")]] void deinit_switchmib(void);

} // extern "C"

#endif
