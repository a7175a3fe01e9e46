// SPDX-License-Identifier: Apache-2.0
// What the switch publishes, as JSON and in words.
#ifndef VSWITCHCTL_EVENT_WORDS_H
#define VSWITCHCTL_EVENT_WORDS_H

#include <cstdint>
#include <string>

#include "tool/client.h"

namespace vswitchctl {

// An event of the class with `size` bytes of payload: {"event": "vsan", "class": 145, ...}. What
// cannot be decoded is {"event": "unknown", "class": ...}.
Json decode_event(uint32_t event_class, const void *payload, uint32_t size);

// Such an object in words. A port has its "name" beside its "ifIndex" where that is known.
std::string event_words(const Json &event);

// This moment, as it stands in front of an event.
std::string time_now();

} // namespace vswitchctl

#endif
