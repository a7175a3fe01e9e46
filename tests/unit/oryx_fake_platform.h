// SPDX-License-Identifier: Apache-2.0
// The message service as the agent extension library sees it, scripted: replies to
// role requests, a source of events, and a record of every call.
#ifndef ORYX_FAKE_PLATFORM_H
#define ORYX_FAKE_PLATFORM_H

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "mts.h"

// One call of cmi_req_resp.
struct RoleRequest {
    uint32_t opcode;
    uint32_t kind;
    uint32_t service;
    std::string user;
    const mts_queue *queue;
};

struct FakeSwitch {
    // What every role request gets: a status, and the reply's bytes if there is one.
    uint32_t status = 0;
    int error_number = 0;
    std::optional<std::vector<uint8_t>> reply;
    std::vector<RoleRequest> requests;

    // What the switch publishes as the generation of its settings; 0: it does not.
    uint64_t generation = 0;

    // It has offered memory of a version that the agent does not know.
    bool has_other_memory = false;

    // What it has become when the next request is answered.
    std::optional<uint64_t> generation_meanwhile;

    // Whether an event connection can be made; what has been asked for.
    bool reachable = true;
    int connect_attempts = 0;
    std::vector<std::vector<uint32_t>> subscriptions;

    // Publishes one event to the connection.
    void publish(uint32_t event_class, std::vector<uint8_t> payload);

    // Breaks the connection, as a switch that restarts does.
    void hang_up();

    size_t events_waiting() const { return events_.size(); }
    bool connected() const { return pipe_[0] >= 0; }

    ~FakeSwitch();

    std::deque<std::pair<uint32_t, std::vector<uint8_t>>> events_;
    bool hung_up_ = false;
    int pipe_[2] = {-1, -1};
};

// Replaced by a fresh one for each test.
extern FakeSwitch fake_switch;
void reset_fake_switch();

// What syserr_format answers.
extern std::string fake_status_text;

// A role reply in the protocol's layout.
std::vector<uint8_t> role_reply(uint32_t restricted, const std::vector<uint32_t> &vsans,
                                const std::vector<std::pair<uint32_t, uint32_t>> &ranges = {});

#endif
