// SPDX-License-Identifier: Apache-2.0
// What the virtual switch's part of the agent finds behind it, scripted: a port manager with its
// ports, who asks, and what is subscribed to.
#ifndef SWITCHMIB_FAKE_PLATFORM_H
#define SWITCHMIB_FAKE_PLATFORM_H

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "contract/interfaces.h"
#include "mts.h"
#include "netsnmpagent_oryx.h"

using PortRecord = std::array<uint8_t, PORT_RECORD_SIZE>;

// A port that is up, at 8 Gbit/s, without alias.
PortRecord port_record(uint32_t if_index);

struct FakePlatform {
    // The port manager: its ports, and what every request gets instead, if anything.
    std::map<uint32_t, PortRecord> ports;
    std::optional<std::vector<uint8_t>> reply;
    uint32_t status = 0;
    unsigned requests = 0;
    std::vector<uint8_t> asked; // the payload of the latest request

    // Who asks: the number of the PDU in progress, and the interfaces of the requester's role.
    uint32_t pdu = 1;
    std::optional<std::set<uint32_t>> role;

    // The event classes that are subscribed to, and the lines of the agent's log.
    std::set<uint32_t> classes;
    std::map<uint32_t, notification_callback> callbacks;
    std::string log;
};

// Fresh for each test that calls reset_fake_platform().
extern FakePlatform fake_platform;
void reset_fake_platform();

struct mts_message {
    std::vector<uint8_t> payload;
};

#endif
