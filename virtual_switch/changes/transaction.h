// SPDX-License-Identifier: Apache-2.0
// Several changes as one: all of them or none, in one transaction of the database, and with one set
// of events afterwards, which say what is different between before and after.
//
// They are made one after the other to a draft, a switch of its own that nobody keeps and nobody
// hears of; each sees what those before it did. Then what became of the draft is made of the switch.
#ifndef VSWITCH_TRANSACTION_H
#define VSWITCH_TRANSACTION_H

#include <string>
#include <vector>

#include "changes/changes.h"

namespace vswitch {

// Makes `draft` one of `the_switch`: REQUIRES that it was made from the data of its model, and has neither
// database nor role file.
void begin_draft(Switch &draft, const Switch &the_switch);

// Has a draft's roles edited, too: reads those of the switch, which may stand in a file that
// somebody has spoilt. Does nothing the second time. Throws Refusal.
void draft_roles(Switch &draft, const Switch &the_switch);

// What a switch shall be. Its ports are those that the switch has.
struct Wanted {
    const SwitchData &data;
    const std::vector<Role> *roles; // null: as they are
};

// Makes the switch what is wanted. Where roles change, too, their new file is written and on the disk first,
// then the database, and then the file takes its place; should it fail to, what was in the
// database is written back. So both are new, or neither is, but for a machine that stops between the
// last two: it starts with the former roles.
//
// STATUS_STORE_FAILED, STATUS_BAD_ROLE or STATUS_ROLES_NOT_WRITTEN with nothing changed. *sentence,
// unless null, receives what is wrong where the status has not enough to say.
uint32_t make_it(Switch &the_switch, const Wanted &wanted, std::string *sentence);

} // namespace vswitch

#endif
