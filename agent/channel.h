// SPDX-License-Identifier: Apache-2.0
// Requests to the switch's managers on behalf of whoever asks the agent.
#ifndef AGENT_CHANNEL_H
#define AGENT_CHANNEL_H

#include <cstddef>
#include <cstdint>

namespace switch_agent {

// How long a reply is waited for, in units of the message service; as long as for one about VSANs.
constexpr uint32_t WAIT_CLASS = 4;

// A request that a manager can be sent, in the layouts of contract/.
struct Request {
    uint32_t service; // an mts_service
    uint32_t opcode;
    uint32_t kind;
    const void *payload; // or null
    uint32_t length;     // of the payload, in bytes
};

// Sends a request and waits for its reply, at most a second. A reply of exactly `size` bytes is
// copied to `record`, which is null where only the status counts.
//
// Returns 0, or the manager's or the platform's status. A reply of any other length is a failed
// exchange: UINT32_MAX, with EPROTO in errno.
uint32_t exchange(const Request &request, void *record, size_t size);

} // namespace switch_agent

#endif
