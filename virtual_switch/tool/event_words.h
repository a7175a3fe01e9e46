// SPDX-License-Identifier: Apache-2.0
// What the switch publishes, as JSON and in words.
#ifndef VSWITCHCTL_EVENT_WORDS_H
#define VSWITCHCTL_EVENT_WORDS_H

#include <cstdint>
#include <map>
#include <string>

#include "tool/client.h"

namespace vswitchctl {

// An event of the class with `size` bytes of payload: {"event": "vsan", "class": 145, ...}. What
// cannot be decoded is {"event": "unknown", "class": ...}.
Json decode_event(uint32_t event_class, const void *payload, uint32_t size);

// What the ports are called, by ifIndex. The switch keeps the ports that it was made with.
using PortNames = std::map<uint32_t, std::string>;

// Adds the port's name to an event of a port.
void add_port_name(Json &event, const PortNames &names);

// Such an object in words. A port has its "name" beside its "ifIndex" where that is known.
std::string event_words(const Json &event);

// This moment, as it stands in front of an event.
std::string time_now();

} // namespace vswitchctl

#endif
