// SPDX-License-Identifier: Apache-2.0
// A switch's configuration as a text: what a new switch starts with, what a running one is made, and
// what it says that it is.
#ifndef VSWITCH_CONFIGURATION_H
#define VSWITCH_CONFIGURATION_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/roles.h"
#include "model/switch_data.h"

namespace vswitch {

constexpr uint32_t configuration_format = 1;
constexpr size_t max_configuration_size = 8u << 20;

// What a text says. Whatever it leaves out has its default.
struct Configuration {
    SwitchData data;            // its world wide name is 0 where the text has none; never with a session
    bool has_ports = false;     // it says which ports there are
    std::optional<Roles> roles; // where it has any, or says that there are none
};

// Reads a configuration, JSON text:
//
//   format            1, which may be left out
//   wwn               "10:00:...": the switch's world wide name
//   vsans             list of VSANs: id (1 to 4095) and, as wanted, name, state
//                     ("active", "suspended"), mtu, loadBalancing ("srcIdDestId",
//                     "srcIdDestIdOxId"), interop (1 to 4, or "none"), inorderDelivery,
//                     networkDropLatency, timers {edtov, ratov, dstov, fstov}
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
//   timers, switchLatency, networkLatency, inorderDelivery, statusEvents: the switch-wide values
//   forceTimers       true: E_D_TOV may be what R_A_TOV is, or more
//   tdx               {"fctimer": {enabled, showRun, refuse, timers {"10": {ratov, ...}}}}:
//                     the distribution service's settings and its record of VSANs' timers
//   roles             as the role file has them, see roles.h
//
// Timers are refused where a SET without force would be, see rules.h, unless the text forces them. VSAN 1
// always exists. `source` names the text in errors. Throws Refusal.
Configuration read_configuration(std::string_view text, const std::string &source);

// The same without what it says of roles.
SwitchData parse_configuration(std::string_view text, const std::string &source);

// Reads a configuration from a file, which must exist, or for "-" from standard input. Throws Refusal.
Configuration load_configuration(const std::string &path);

// The text from which read_configuration makes this switch with these roles, but for the moments of
// changes, the session and the parts of records that mean nothing. It leaves defaults out; the same
// switch always has the same text.
std::string format_configuration(const SwitchData &data, const std::vector<Role> &roles);

// Where E_D_TOV is not less than R_A_TOV, in words, or "" when it always is.
std::string disordered_timers(const SwitchData &data);

// What a switch that is `present` becomes by a configuration: the moments of changes are those of
// `present`, or `now` where something has changed. Throws Refusal for one of another switch: one with other
// ports or another world wide name.
SwitchData imported(const Configuration &configuration, const SwitchData &present, Timestamp now,
                    const std::string &source);

// The configuration that a switch starts with when nobody says anything else.
SwitchData demo_configuration();

// VSAN 1 and 48 ports without link.
SwitchData empty_configuration();

// Makes a configuration the one of a new switch: gives it a world wide name, where it has none,
// and the present as the time of its last change.
void give_identity(SwitchData &data);

// A world wide name as its eight bytes: "10:00:02:...".
std::string wwn_text(uint64_t wwn);

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
