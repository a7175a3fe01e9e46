// SPDX-License-Identifier: Apache-2.0
// Changes the fabric timers, at once or through a session of the distribution service.
#include <algorithm>

#include "changes/commit.h"
#include "contract/status_codes.h"
#include "model/rules.h"

namespace vswitch {

namespace {

constexpr uint32_t whole_switch = 0; // in place of a VSAN number

std::optional<uint32_t> pending_timer(const SwitchModel &model, uint32_t vsan, Timer timer) {
    if (!model.session()) {
        return std::nullopt;
    }
    const auto &pending = model.session()->pending;
    return pending.contains(vsan) ? pending.at(vsan)[timer] : std::nullopt;
}

// The timers as they will be: what is pending counts as if it were committed. One value
// may stand in for that of a change that is being considered.
class FutureTimers {
  public:
    FutureTimers(const SwitchModel &model, uint32_t vsan, Timer timer, uint32_t value)
        : model_(model), vsan_(vsan), timer_(timer), value_(value) {}

    uint32_t of_switch(Timer timer) const {
        if (vsan_ == whole_switch && timer == timer_) {
            return value_;
        }
        return distributed_switch_timer(model_, timer);
    }

    // The VSAN's own value, or nothing when it follows the switch.
    std::optional<uint32_t> own(uint32_t vsan, Timer timer) const {
        if (vsan == vsan_ && timer == timer_) {
            return value_;
        }
        const auto pending = pending_timer(model_, vsan, timer);
        return pending ? pending : model_.vsan(vsan)->timers[timer];
    }

    bool in_order() const {
        return are_timers_in_order([&](Timer timer) { return of_switch(timer); });
    }

    bool in_order(uint32_t vsan) const {
        return are_timers_in_order([&](Timer timer) { return own(vsan, timer).value_or(of_switch(timer)); });
    }

  private:
    const SwitchModel &model_;
    uint32_t vsan_;
    Timer timer_;
    uint32_t value_;
};

// Whether E_D_TOV stays below R_A_TOV wherever the change is felt. A VSAN in which the
// order was forced before, and which does not follow the changed value, is no obstacle.
bool keeps_order(const SwitchModel &model, uint32_t vsan, Timer timer, uint32_t value) {
    if (timer != Timer::e_d_tov && timer != Timer::r_a_tov) {
        return true;
    }
    const FutureTimers future(model, vsan, timer, value);
    if (vsan != whole_switch) {
        return future.in_order(vsan);
    }
    if (!future.in_order()) {
        return false;
    }
    return std::ranges::all_of(model.vsans(), [&](const auto &row) {
        const auto &[id, vsan_of_id] = row;
        return future.own(id, timer) || future.in_order(id);
    });
}

// The requester may have the session: none is open, or it is the requester's own.
bool holds_session(const SwitchModel &model, const Requester &requester) {
    return model.distribution() != Distribution::in_session || model.session()->user == requester.user;
}

// REQUIRES: the requester has the right, and the VSAN, if it is not the switch, exists.
uint32_t set_timer(Switch &the_switch, const Requester &requester, uint32_t vsan, Timer timer, uint32_t value,
                   bool force) {
    if (const uint32_t status = check_timer(timer, value); status != STATUS_SUCCESS) {
        return status;
    }
    const SwitchModel &model = the_switch.model;
    const bool distributed = model.distribution() != Distribution::off;
    if (distributed && !holds_session(model, requester)) {
        return STATUS_TDX_LOCKED;
    }
    if (!force && !keeps_order(model, vsan, timer, value)) {
        return STATUS_TIMER_ORDER;
    }

    Change change;
    if (distributed) {
        if (pending_timer(model, vsan, timer) == value) {
            return STATUS_SUCCESS;
        }
        if (model.distribution() == Distribution::idle) {
            change.session = Change::Session::opens;
            change.holder = requester.user;
        }
        change.pending.push_back({vsan, timer, value});
    } else if (vsan == whole_switch) {
        if (model.settings().timers[timer] == value) {
            return STATUS_SUCCESS;
        }
        change.settings = model.settings();
        change.settings->timers[timer] = value;
    } else {
        const Vsan &present = *model.vsan(vsan);
        if (present.timers[timer] == value) {
            return STATUS_SUCCESS;
        }
        change.vsans[vsan] = present;
        change.vsans[vsan].timers[timer] = value;
    }
    return commit(the_switch, change);
}

// STATUS_SUCCESS, or why the requester may not end the session.
uint32_t check_session_right(const Switch &the_switch, const Requester &requester) {
    if (the_switch.model.distribution() != Distribution::in_session) {
        return STATUS_TDX_NO_SESSION;
    }
    return requester.is_operator || holds_session(the_switch.model, requester) ? STATUS_SUCCESS : STATUS_TDX_LOCKED;
}

} // namespace

uint32_t set_switch_timer(Switch &the_switch, const Requester &requester, Timer timer, uint32_t milliseconds,
                          bool force) {
    if (const uint32_t status = check_switch_right(the_switch, requester); status != STATUS_SUCCESS) {
        return status;
    }
    return set_timer(the_switch, requester, whole_switch, timer, milliseconds, force);
}

uint32_t set_vsan_timer(Switch &the_switch, const Requester &requester, uint32_t vsan, Timer timer,
                        uint32_t milliseconds, bool force) {
    if (const uint32_t status = check_vsan_number(vsan); status != STATUS_SUCCESS) {
        return status;
    }
    if (const uint32_t status = check_vsan_right(the_switch, requester, vsan); status != STATUS_SUCCESS) {
        return status;
    }
    if (!the_switch.model.vsan(vsan)) {
        return STATUS_NO_SUCH_VSAN;
    }
    return set_timer(the_switch, requester, vsan, timer, milliseconds, force);
}

uint32_t running_timer(const SwitchModel &model, uint32_t vsan, Timer timer) {
    return model.vsan(vsan)->timers[timer].value_or(model.settings().timers[timer]);
}

std::optional<uint32_t> distributed_timer(const SwitchModel &model, uint32_t vsan, Timer timer) {
    const auto pending = pending_timer(model, vsan, timer);
    return pending ? pending : model.vsan(vsan)->distributed_timers[timer];
}

uint32_t distributed_switch_timer(const SwitchModel &model, Timer timer) {
    return pending_timer(model, whole_switch, timer).value_or(model.settings().timers[timer]);
}

uint32_t tdx_commit(Switch &the_switch, const Requester &requester) {
    if (const uint32_t status = check_session_right(the_switch, requester); status != STATUS_SUCCESS) {
        return status;
    }
    if (the_switch.model.settings().tdx_refusing) {
        return STATUS_TDX_NO_FABRIC;
    }
    Change change;
    change.session = Change::Session::ends;
    for (const auto &[vsan, timers] : the_switch.model.session()->pending) {
        for (const TimerKind &kind : timer_kinds) {
            const Timer timer = kind.timer;
            const auto value = timers[timer];
            if (!value) {
                continue;
            }
            if (vsan == whole_switch) {
                if (!change.settings) {
                    change.settings = the_switch.model.settings();
                }
                change.settings->timers[timer] = *value;
            } else {
                change.vsans.emplace(vsan, *the_switch.model.vsan(vsan));
                Vsan &changed = change.vsans.at(vsan);
                changed.timers[timer] = *value;
                changed.distributed_timers[timer] = *value;
            }
        }
    }
    return commit(the_switch, change);
}

uint32_t tdx_abort(Switch &the_switch, const Requester &requester) {
    if (const uint32_t status = check_session_right(the_switch, requester); status != STATUS_SUCCESS) {
        return status;
    }
    Change change;
    change.session = Change::Session::ends;
    return commit(the_switch, change);
}

} // namespace vswitch
