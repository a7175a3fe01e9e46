// SPDX-License-Identifier: Apache-2.0
// What a new switch starts with.
#ifndef VSWITCH_CONFIGURATION_H
#define VSWITCH_CONFIGURATION_H

#include <cstdint>
#include <string>
#include <string_view>

#include "model/switch_data.h"

namespace vswitch {

// Reads an initial configuration, JSON text:
//
//   vsans             list of VSANs: id (1 to 4095) and, as wanted, name, state
//                     ("active", "suspended"), mtu, loadBalancing ("srcIdDestId",
//                     "srcIdDestIdOxId"), interop (1 to 4, or 100 for none),
//                     inorderDelivery (1 true, 2 false), networkDropLatency,
//                     timers {edtov, ratov, dstov, fstov}
//   vsanRange         list of {first, last}: also make all these VSANs, with default
//                     values where `vsans` does not list them
//   ports             list of ports: ifIndex and, as wanted, vsan, link ("up", "down"),
//                     denyList, alias, enabled (false: out of service), speedMbps (2000,
//                     4000, 8000, 16000, 32000), traps (false: its changes of state are not
//                     told), traffic {inOctets, inFrames, inErrors, inDiscards, outOctets,
//                     outFrames, outErrors, outDiscards}: what its counters grow by in a second
//   portCount         instead of `ports`: that many ports of VSAN 1 without link.
//                     Without either: 48
//   system            {contact, name, location}: what the switch says of itself
//   timers, switchLatency, networkLatency, inorderDelivery: the switch-wide values
//   tdx               {"fctimer": {enabled, showRun, timers {"10": {ratov, ...}}}}:
//                     the distribution service's settings and its record of VSANs' timers
//
// Timers are refused where a SET without force would be, see rules.h. VSAN 1 always
// exists. `source` names the text in errors. Throws Refusal.
SwitchData parse_configuration(std::string_view text, const std::string &source);

// Reads an initial configuration from a file, which must exist. Throws Refusal.
SwitchData load_configuration(const std::string &path);

// The configuration that a switch starts with when nobody says anything else.
SwitchData demo_configuration();

// VSAN 1 and 48 ports without link.
SwitchData empty_configuration();

// Makes a configuration the one of a new switch: gives it a world wide name of its own
// and the present as the time of its last change.
void give_identity(SwitchData &data);

// The world wide name of a switch's port, from the switch's and the port's number, at most 4096.
uint64_t port_wwn(uint64_t switch_wwn, uint32_t number);

// The ifIndex of the switch's `number`th built-in port, counted from 0.
constexpr uint32_t port_if_index(uint32_t number) {
    return 0x01000000u + number * 0x1000u;
}

// The name that a VSAN has until somebody gives it another: VSAN0010.
std::string default_vsan_name(uint32_t id);

} // namespace vswitch

#endif
