// SPDX-License-Identifier: Apache-2.0
// Settings of ports and of the system, and roles, as JSON, alike in files and in the operator's
// commands. Included by the readers of those only; the JSON library is heavy.
#ifndef VSWITCH_JSON_SETTINGS_H
#define VSWITCH_JSON_SETTINGS_H

#include <string>

#include "model/json_reader.h"
#include "model/roles.h"

namespace vswitch {

// Both put into their last argument what `object` says about it, and leave the rest of it as it is. The
// object may have other keys. `place` stands before what is wrong, "port 5: ", or is empty. They
// throw Refusal.

// alias, enabled, speedMbps, traps, and traffic {inOctets, inFrames, ...}: units a second.
void read_port_settings(const JsonReader &reader, const JsonReader::Json &object, const std::string &place, Port &port);

// contact, name and location.
void read_system_texts(const JsonReader &reader, const JsonReader::Json &object, const std::string &place,
                       SystemTexts &texts);

// The same of a port as JSON; traffic only where it has any.
JsonReader::Json port_settings_json(const Port &port);
JsonReader::Json system_texts_json(const SystemTexts &texts);

// Those of a VSAN's timers that it has of its own, by their words.
template <typename Json = JsonReader::Json> Json timers_json(const PartialTimers &timers) {
    Json json = Json::object();
    for (const TimerKind &kind : timer_kinds) {
        if (timers[kind.timer]) {
            json[kind.word] = *timers[kind.timer];
        }
    }
    return json;
}

// The roles of a list, see parse_roles. Throws Refusal.
Roles read_roles(const JsonReader &reader, const JsonReader::Json &list);

// A role as read_roles takes it.
JsonReader::Json role_json(const Role &role);

} // namespace vswitch

#endif
