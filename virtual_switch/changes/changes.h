// SPDX-License-Identifier: Apache-2.0
// The room `changes`: what may be changed, by whom, and what is published then. It knows
// neither requests nor records. May include model/ and contract/.
//
// Every change of the switch, whoever asks for it: a manager's SET or DELETE, or the
// operator's tool.
//
// Each function checks the request and the requester's rights, writes the change to the
// database in one transaction, then changes the running switch and publishes the events.
// It returns STATUS_SUCCESS, or a status that says why nothing has changed at all;
// STATUS_STORE_FAILED when the database could not be written. A request that leaves
// everything as it is succeeds without a transaction and without events.
#ifndef VSWITCH_CHANGES_H
#define VSWITCH_CHANGES_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "changes/switch.h"

namespace vswitch {

// Who asks. The roles restrict the users of the management protocol; an operator of the
// switch itself may do everything. The user's name is also that of the holder of a
// distribution session, so an operator has one, too.
struct Requester {
    std::string_view user; // empty when there is none
    bool is_operator = false;
};

// VSANs. See model/rules.h for what a record must be.

// Gives VSAN `id` the configuration `wanted`; its timers stay as they are. A VSAN that
// does not exist is created when `create_allowed`, else STATUS_NO_SUCH_VSAN. In-order
// delivery 0 and drop latency 0 leave the VSAN's value as it is, on creation the default.
// An empty `rest` stands for zeros.
uint32_t change_vsan(Switch &the_switch, const Requester &requester, uint32_t id, const Vsan &wanted,
                     bool create_allowed);

// Deletes VSAN `id`, with its timers; its ports move to VSAN 1.
uint32_t delete_vsan(Switch &the_switch, const Requester &requester, uint32_t id);

// What a VSAN is created with when nobody says anything else.
Vsan new_vsan(uint32_t id);

// Ports.

// A restricted requester needs both the interface and the VSAN `vsan`.
uint32_t move_port(Switch &the_switch, const Requester &requester, uint32_t if_index, uint32_t vsan);
uint32_t set_deny_list(Switch &the_switch, const Requester &requester, uint32_t if_index, uint32_t deny_list);
// Both at once, as an interface record does.
uint32_t change_port(Switch &the_switch, const Requester &requester, uint32_t if_index, uint32_t vsan,
                     uint32_t deny_list);
// Plugs the port's cable in or pulls it.
uint32_t set_link(Switch &the_switch, const Requester &requester, uint32_t if_index, bool up);
// Gives the port the settings of `wanted`: alias, administrative state, speed, traps and traffic. Its
// VSAN, deny list and cable stay as they are. STATUS_BAD_RECORD for settings that no port has.
uint32_t set_port(Switch &the_switch, const Requester &requester, uint32_t if_index, const Port &wanted);

// Switch-wide settings; a restricted requester may change none of them.

uint32_t set_latency(Switch &the_switch, const Requester &requester, const LatencyKind &which, uint32_t milliseconds);

// `value` is TRUTH_TRUE or TRUTH_FALSE.
uint32_t set_inorder_delivery(Switch &the_switch, const Requester &requester, uint32_t value);

// STATUS_BAD_RECORD for texts that are none, see model/rules.h.
uint32_t set_system_texts(Switch &the_switch, const Requester &requester, const SystemTexts &texts);

// Whether VSAN events (class 145) are published.
uint32_t set_status_events(Switch &the_switch, const Requester &requester, bool on);

// Fabric timers, in milliseconds.
//
// A change that would leave E_D_TOV at or above R_A_TOV, in a VSAN or switch-wide, is
// refused with STATUS_TIMER_ORDER unless it is forced. While the distribution service
// governs the timers, a change goes into the open session, which it opens if there is
// none; STATUS_TDX_LOCKED when another user holds the session.
uint32_t set_switch_timer(Switch &the_switch, const Requester &requester, Timer timer, uint32_t milliseconds,
                          bool force);
uint32_t set_vsan_timer(Switch &the_switch, const Requester &requester, uint32_t vsan, Timer timer,
                        uint32_t milliseconds, bool force);

// The timer's value in the running configuration of a VSAN, which exists: its own or the
// switch-wide one.
uint32_t running_timer(const SwitchModel &model, uint32_t vsan, Timer timer);

// What the distribution service answers: the open session's value, else the one in its
// record; nothing when the VSAN, which exists, has none.
std::optional<uint32_t> distributed_timer(const SwitchModel &model, uint32_t vsan, Timer timer);

// The switch-wide value at the distribution service: the open session's, else the running one.
uint32_t distributed_switch_timer(const SwitchModel &model, Timer timer);

// The distribution service of the fabric timers. Its session, if one is open, is
// the_switch.model.session(): who holds it, and what is pending.

// STATUS_TDX_SESSION_OPEN refuses to disable it while a session is open.
uint32_t tdx_enable(Switch &the_switch, const Requester &requester, bool enabled);
// In show-run mode reads show the running configuration.
uint32_t tdx_show_run(Switch &the_switch, const Requester &requester, bool on);
// Whether the service refuses reads and commits, as it does while it has no fabric.
uint32_t tdx_refuse(Switch &the_switch, const Requester &requester, bool on);
// Makes the pending values those of the service's record and of the running timers. The
// session's holder may do it, and an operator. STATUS_TDX_NO_SESSION without a session.
uint32_t tdx_commit(Switch &the_switch, const Requester &requester);
// Drops the pending values. Who may do it is as for tdx_commit.
uint32_t tdx_abort(Switch &the_switch, const Requester &requester);

// Roles. The role file is read again before it is rewritten, so that what somebody has
// written into it by hand is kept and comes into force, too.
//
// *sentence, unless null, receives what is wrong where the status has not enough to say.

// Adds a role, or replaces the one of the same name when `replace`, else STATUS_ROLE_EXISTS.
uint32_t add_role(Switch &the_switch, const Requester &requester, const Role &role, bool replace,
                  std::string *sentence);
// The same where an existing role becomes what `merge` makes of it. `role` receives what the role is then.
uint32_t add_role(Switch &the_switch, const Requester &requester, Role &role,
                  const std::function<Role(const Role &present)> &merge, std::string *sentence);
uint32_t remove_role(Switch &the_switch, const Requester &requester, const std::string &name, std::string *sentence);

} // namespace vswitch

#endif
