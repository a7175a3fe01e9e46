// SPDX-License-Identifier: Apache-2.0
// Where clients meet their faults: between the agent and its UDP sockets.
//
// A request has been authenticated and decrypted when the agent hands it to its session's callback,
// where it is chosen; its answer is built, encrypted and signed when the transport is to send it,
// within that call, and that is where it is lost, kept back or cut. Notifications are chosen and
// met where their transport sends them.
//
// Requests over the agent's Unix socket are never looked at: the scripts that run the agent and make
// its users must not be locked out. Nor is anything while no fault is set: callbacks and transports
// are the agent's own then.
#ifndef AGENT_INTERCEPTION_H
#define AGENT_INTERCEPTION_H

namespace switch_agent {

// Makes the agent's sessions and transports fit the faults that are set and the messages that wait.
// Never from within a message: the agent's callbacks are in use then.
void intercept_as_needed();

// Does so at the agent's next turn.
void intercept_soon();

// Gives all of them back and drops what waits.
void stop_intercepting();

} // namespace switch_agent

#endif
