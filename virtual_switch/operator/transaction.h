// SPDX-License-Identifier: Apache-2.0
// What the commands that change much at once share. This header stays in the room.
#ifndef VSWITCH_OPERATOR_TRANSACTION_H
#define VSWITCH_OPERATOR_TRANSACTION_H

#include <string>

#include "changes/transaction.h"
#include "operator/command_table.h"

namespace vswitch {

// The content of the upload that "upload" names; it is gone then. Throws Refusal.
std::string take_upload(Call &call);

// Makes the switch what is wanted; `what` names the cause where that is refused. The reply gets
// "changed", whether anything was different. With "dryRun" nothing is changed, and the reply has
// "changes", a list of {"class", "payload"}, the events as they would be published with their bytes in
// hexadecimal, and of {"object", "setting", "former", "value"} for what no event tells of. Throws
// Refusal, with nothing changed.
void change_or_tell(Call &call, const Wanted &wanted, const std::string &what);

// Has a reply that may be too long for one fetched as a download: replaces it by {"download", "size"}.
void shorten(Call &call);

} // namespace vswitch

#endif
