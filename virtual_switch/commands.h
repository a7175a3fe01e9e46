/*
 * What the operator's tool says to the switch: one JSON object a request, one a reply.
 *
 *   {"command": "vsan.show", "id": 10}
 *
 * A refused command changes nothing. Its reply has a status of its own and the data
 * {"error": "a sentence", "status": "0x40190001"}. Commands that list take "after", the
 * key of the last row that the caller has, and "limit"; "more": true in the reply says
 * that rows follow. commands_*.cpp have the commands, a table of them at the end of each.
 */
#ifndef VSWITCH_COMMANDS_H
#define VSWITCH_COMMANDS_H

#include "services.h"

namespace vswitch {

/* Answers a request of opcode MTS_OP_SWITCH_COMMAND: appends the reply's data and returns
 * the status. */
std::uint32_t answer_command(Switch &target, const Request &request, Buffer &data);

} // namespace vswitch

#endif
