// SPDX-License-Identifier: Apache-2.0
// The handler that stands in front of every handler registered under the module's
// root: it says who asks (context.h), keeps a SET on its row (row_guard.h) and leaves
// nothing staged behind (free_pass.h).
#ifndef NETSNMPAGENT_ORYX_FRONT_HANDLER_H
#define NETSNMPAGENT_ORYX_FRONT_HANDLER_H

namespace oryx {

// Puts the handler in front of everything registered under the root, now and in
// future. A second call changes nothing.
void front_handler_start();

// Takes it out everywhere. Nothing in the agent refers to this library's handler
// afterwards. A second call changes nothing.
void front_handler_stop();

} // namespace oryx

#endif
