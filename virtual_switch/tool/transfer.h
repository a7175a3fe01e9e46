// SPDX-License-Identifier: Apache-2.0
// What is said to the switch at once, or comes from it, and is longer than a request or a reply can be.
// All functions throw Refusal.
#ifndef VSWITCHCTL_TRANSFER_H
#define VSWITCHCTL_TRANSFER_H

#include <cstdint>
#include <string>
#include <vector>

#include "tool/client.h"

namespace vswitchctl {

// Makes several changes of the configuration, {"command": "vsan.create", "id": 10} and the like, one: all or
// none. Returns {"replies": [...]} in their order; with `dry_run`, nothing is changed, and "changes" has
// what would be, see print_changes. Throws TransactionRefusal when one of them is refused.
Json change_all(const std::vector<Json> &commands, bool dry_run);

// The configuration of the running switch as a text.
std::string export_configuration();

// Makes the switch what a text says, or, with `dry_run`, tells what would change: {"changed": true,
// "changes": [...]}. `source` names the text in refusals.
Json import_configuration(const std::string &text, const std::string &source, bool dry_run);

// The bytes of a file with the switch's database as it is at the end of this.
std::string copy_database();

// Prints the "changes" of a reply: a line for each in words, or the reply as JSON with the events as `watch`
// prints them.
void print_changes(const Json &reply);

} // namespace vswitchctl

#endif
