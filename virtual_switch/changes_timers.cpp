/* Changes the fabric timers, at once or through a session of the distribution service. */
#include "commit.h"
#include "syserr/status_codes.h"

namespace vswitch {

namespace {

constexpr std::uint32_t whole_switch = 0; /* in place of a VSAN number */
constexpr std::uint32_t max_timer = 100000;

constexpr std::uint32_t min_timer(Timer timer) {
    return timer == Timer::e_d_tov ? 1000 : 5000;
}

std::optional<std::uint32_t> pending_timer(const SwitchModel &model, std::uint32_t vsan, Timer timer) {
    if (!model.session())
        return std::nullopt;
    const auto found = model.session()->pending.find(vsan);
    return found == model.session()->pending.end() ? std::nullopt : found->second[timer];
}

/*
 * The timers as they will be: what is pending counts as if it were committed. One value
 * may stand in for that of a change that is being considered.
 */
class FutureTimers {
  public:
    FutureTimers(const SwitchModel &model, std::uint32_t vsan, Timer timer, std::uint32_t value)
        : model_(model), vsan_(vsan), timer_(timer), value_(value) {}

    std::uint32_t of_switch(Timer timer) const {
        if (vsan_ == whole_switch && timer == timer_)
            return value_;
        return distributed_switch_timer(model_, timer);
    }

    /* The VSAN's own value, or nothing when it follows the switch. */
    std::optional<std::uint32_t> own(const SwitchModel::VsanRow &row, Timer timer) const {
        if (row.first == vsan_ && timer == timer_)
            return value_;
        const auto pending = pending_timer(model_, row.first, timer);
        return pending ? pending : row.second.timers[timer];
    }

    bool in_order() const { return of_switch(Timer::e_d_tov) < of_switch(Timer::r_a_tov); }

    bool in_order(const SwitchModel::VsanRow &row) const {
        const auto value = [&](Timer timer) { return own(row, timer).value_or(of_switch(timer)); };
        return value(Timer::e_d_tov) < value(Timer::r_a_tov);
    }

  private:
    const SwitchModel &model_;
    std::uint32_t vsan_;
    Timer timer_;
    std::uint32_t value_;
};

/* Whether E_D_TOV stays below R_A_TOV wherever the change is felt. A VSAN in which the
 * order was forced before, and which does not follow the changed value, is no obstacle. */
bool keeps_order(const SwitchModel &model, std::uint32_t vsan, Timer timer, std::uint32_t value) {
    if (timer != Timer::e_d_tov && timer != Timer::r_a_tov)
        return true;
    const FutureTimers future(model, vsan, timer, value);
    if (vsan != whole_switch)
        return future.in_order(*model.vsan(vsan));
    if (!future.in_order())
        return false;
    for (const SwitchModel::VsanRow *row = model.vsan_after(0); row; row = model.vsan_after(row->first))
        if (!future.own(*row, timer) && !future.in_order(*row))
            return false;
    return true;
}

/* The requester may have the session: none is open, or it is the requester's own. */
bool holds_session(const SwitchModel &model, const Requester &requester) {
    return !model.session() || model.session()->user == requester.user;
}

/* REQUIRES: the requester has the right, and the VSAN, if it is not the switch, exists. */
std::uint32_t set_timer(Switch &target, const Requester &requester, std::uint32_t vsan, Timer timer,
                        std::uint32_t value, bool force) {
    if (value < min_timer(timer) || value > max_timer)
        return STATUS_BAD_TIMER;
    const SwitchModel &model = target.model;
    const bool distributed = model.settings().tdx_enabled;
    if (distributed && !holds_session(model, requester))
        return STATUS_TDX_LOCKED;
    if (!force && !keeps_order(model, vsan, timer, value))
        return STATUS_TIMER_ORDER;

    Change change;
    if (distributed) {
        if (pending_timer(model, vsan, timer) == value)
            return STATUS_SUCCESS;
        if (!model.session())
            change.opens_session = std::string(requester.user);
        change.pending.push_back({vsan, timer, value});
    } else if (vsan == whole_switch) {
        if (model.settings().timers[timer] == value)
            return STATUS_SUCCESS;
        change.settings = model.settings();
        change.settings->timers[timer] = value;
    } else {
        const SwitchModel::VsanRow &row = *model.vsan(vsan);
        if (row.second.timers[timer] == value)
            return STATUS_SUCCESS;
        change.vsans.insert(row);
        change.vsans.at(vsan).timers[timer] = value;
    }
    return commit(target, change);
}

/* STATUS_SUCCESS, or why the requester may not end the session. */
std::uint32_t check_session_right(const Switch &target, const Requester &requester) {
    if (!target.model.session())
        return STATUS_TDX_NO_SESSION;
    return requester.is_operator || holds_session(target.model, requester) ? STATUS_SUCCESS : STATUS_TDX_LOCKED;
}

} // namespace

std::uint32_t set_switch_timer(Switch &target, const Requester &requester, Timer timer, std::uint32_t milliseconds,
                               bool force) {
    if (const std::uint32_t status = check_switch_right(target, requester); status != STATUS_SUCCESS)
        return status;
    return set_timer(target, requester, whole_switch, timer, milliseconds, force);
}

std::uint32_t set_vsan_timer(Switch &target, const Requester &requester, std::uint32_t vsan, Timer timer,
                             std::uint32_t milliseconds, bool force) {
    if (vsan == 0 || vsan > max_vsan)
        return STATUS_VSAN_OUT_OF_RANGE;
    if (const std::uint32_t status = check_vsan_right(target, requester, vsan); status != STATUS_SUCCESS)
        return status;
    if (!target.model.vsan(vsan))
        return STATUS_NO_SUCH_VSAN;
    return set_timer(target, requester, vsan, timer, milliseconds, force);
}

std::uint32_t running_timer(const SwitchModel &model, const SwitchModel::VsanRow &row, Timer timer) {
    return row.second.timers[timer].value_or(model.settings().timers[timer]);
}

std::optional<std::uint32_t> distributed_timer(const SwitchModel &model, const SwitchModel::VsanRow &row, Timer timer) {
    const auto pending = pending_timer(model, row.first, timer);
    return pending ? pending : row.second.distributed_timers[timer];
}

std::uint32_t distributed_switch_timer(const SwitchModel &model, Timer timer) {
    return pending_timer(model, whole_switch, timer).value_or(model.settings().timers[timer]);
}

std::uint32_t tdx_commit(Switch &target, const Requester &requester) {
    if (const std::uint32_t status = check_session_right(target, requester); status != STATUS_SUCCESS)
        return status;
    if (target.model.settings().tdx_refusing)
        return STATUS_TDX_NO_FABRIC;
    Change change;
    change.ends_session = true;
    for (const auto &[vsan, timers] : target.model.session()->pending)
        for (const Timer timer : all_timers) {
            const auto value = timers[timer];
            if (!value)
                continue;
            if (vsan == whole_switch) {
                if (!change.settings)
                    change.settings = target.model.settings();
                change.settings->timers[timer] = *value;
            } else {
                Vsan &row = change.vsans.insert(*target.model.vsan(vsan)).first->second;
                row.timers[timer] = *value;
                row.distributed_timers[timer] = *value;
            }
        }
    return commit(target, change);
}

std::uint32_t tdx_abort(Switch &target, const Requester &requester) {
    if (const std::uint32_t status = check_session_right(target, requester); status != STATUS_SUCCESS)
        return status;
    Change change;
    change.ends_session = true;
    return commit(target, change);
}

} // namespace vswitch
