// SPDX-License-Identifier: Apache-2.0
// What this library has hooked into the agent lives exactly as long as its code is
// mapped. It is set up when the library is loaded, not in the entry that the agent
// calls: the module is linked against this library and brings it in by itself when
// it is loaded directly, and its constructor registers its objects before the agent
// could call anything. The loader runs this constructor before the module's and
// this destructor after it.
//
// Nor is anything taken down in the other entry: a module that somebody else loaded
// as well stays in service, and without the hooks a restricted user would be nobody,
// whom nothing is forbidden.
#include <cerrno>

#include "front_handler.h"
#include "mts_counters.h"
#include "notifications.h"

namespace {

[[gnu::constructor]] void on_load() {
    oryx::front_handler_start();
    // So an operator can tell what a client's messages cost.
    mts_count_requests(program_invocation_short_name);
}

[[gnu::destructor]] void on_unload() {
    oryx::notifications_stop();
    oryx::front_handler_stop();
}

} // namespace
