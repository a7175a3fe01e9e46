// SPDX-License-Identifier: Apache-2.0
// The switch's replies in words. Each function prints one reply to standard output.
#ifndef VSWITCHCTL_PRINT_H
#define VSWITCHCTL_PRINT_H

#include <functional>

#include "tool/client.h"

namespace vswitchctl {

// Prints a reply as JSON text.
void print_json(const Json &reply);

// Whether show() prints JSON; at first it does not.
void print_as_json(bool on);
bool prints_json();

// Prints a reply, with `print` in words or else as JSON text.
void show(const Json &reply, const std::function<void(const Json &)> &print);

void print_vsans(const Json &reply);
void print_vsan(const Json &reply);
void print_ports(const Json &reply);
void print_port(const Json &reply);
void print_port_settings(const Json &reply);
void print_system(const Json &reply);
void print_roles(const Json &reply);

// `reply` is that of switch.show with the members "vsanList" and "portList" added.
void print_switch(const Json &reply);
void print_timers(const Json &reply);
void print_tdx(const Json &reply);
void print_pending(const Json &reply);
void print_history(const Json &reply);
void print_filters(const Json &reply);
void print_faults(const Json &reply);
void print_request_counters(const Json &reply); // of read_request_counters

} // namespace vswitchctl

#endif
