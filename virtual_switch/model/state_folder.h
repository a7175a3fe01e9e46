// SPDX-License-Identifier: Apache-2.0
// Whom the daemon's state folder belongs to.
#ifndef VSWITCH_STATE_FOLDER_H
#define VSWITCH_STATE_FOLDER_H

#include <string>

#include "model/refusal.h"

namespace vswitch {

// Looks through the folder that a path leads to before anything in it is read or written. All in
// it must be a file, a folder or a socket of the daemon's own user or of root, and none a link;
// where others may enter, they may write nothing. Who could put a file of theirs there, or a
// link, would have the daemon write where they like. Throws Refusal.
//
// tools/state_folder.pl is the same for the scripts, which do this before anything is built.
void check_state_folder(const std::string &given);

} // namespace vswitch

#endif
