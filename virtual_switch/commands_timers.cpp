/* Commands about the fabric timers, the latencies and the distribution service. */
#include "command_table.h"

namespace vswitch {

namespace {

using Json = JsonReader::Json;

Json timers_json(const PartialTimers &timers) {
    Json json = Json::object();
    for (const auto &[name, timer] : timer_words)
        if (timers[timer])
            json[name] = *timers[timer];
    return json;
}

Json vsan_timers_json(const SwitchModel &model, const SwitchModel::VsanRow &row) {
    Json json = {{"id", row.first}, {"own", timers_json(row.second.timers)}};
    for (const auto &[name, timer] : timer_words) {
        json["running"][name] = running_timer(model, row, timer);
        if (const auto distributed = distributed_timer(model, row, timer))
            json["distributed"][name] = *distributed;
    }
    return json;
}

/* With "vsan" the values of that VSAN, without it the switch's and those of all VSANs. */
void show_timers(Call &call) {
    const SwitchModel &model = call.target.model;
    const Settings &settings = model.settings();
    const auto wanted = call.arguments.number("vsan", 1, max_vsan);
    const std::uint32_t after = call.arguments.number("after", 0, UINT32_MAX).value_or(0);
    Page page(call, "vsans");
    for (const auto &[name, timer] : timer_words)
        call.reply["switch"][name] = settings.timers[timer];
    call.reply["switchLatency"] = settings.switch_latency;
    call.reply["networkLatency"] = settings.network_latency;
    call.reply["inorderDelivery"] = settings.inorder_delivery == truth_true;
    if (wanted) {
        const auto *row = model.vsan(*wanted);
        if (!row)
            throw CommandRefused(STATUS_NO_SUCH_VSAN, fmt::format("VSAN {} does not exist.", *wanted));
        page.add(vsan_timers_json(model, *row));
        return;
    }
    for (const auto *row = model.vsan_after(after); row && page.add(vsan_timers_json(model, *row));)
        row = model.vsan_after(row->first);
}

/* As require, naming the session's holder where somebody else's session is in the way. */
void require_unlocked(const Call &call, std::uint32_t status, const std::string &what) {
    const auto &session = call.target.model.session();
    if (status == STATUS_TDX_LOCKED && session)
        throw CommandRefused(status, fmt::format("{}: {}; it is held by \"{}\".", what, status_text(status),
                                                 JsonReader::printable(session->user)));
    require(status, what);
}

void set_timers(Call &call) {
    enum Setting : std::uint32_t { first_latency = 100, second_latency, delivery };
    constexpr std::pair<const char *, std::uint32_t> settings[] = {
        {"edtov", static_cast<std::uint32_t>(Timer::e_d_tov)},
        {"ratov", static_cast<std::uint32_t>(Timer::r_a_tov)},
        {"dstov", static_cast<std::uint32_t>(Timer::d_s_tov)},
        {"fstov", static_cast<std::uint32_t>(Timer::f_s_tov)},
        {"switchLatency", first_latency},
        {"networkLatency", second_latency},
        {"inorderDelivery", delivery}};
    const Arguments &arguments = call.arguments;
    const std::uint32_t setting = arguments.required_word("setting", settings);
    const auto vsan = arguments.number("vsan", 1, max_vsan);
    const auto timer = timer_of_key(setting);
    const std::string what = arguments.required_text("setting", 32) + (vsan ? fmt::format(" of VSAN {}", *vsan) : "");
    if (!timer) {
        if (vsan || arguments.json().contains("force"))
            arguments.reader().fail("\"vsan\" and \"force\" are for timers only");
        require(setting == delivery
                    ? set_inorder_delivery(call.target, call.requester,
                                           arguments.required_flag("value") ? truth_true : truth_false)
                    : set_latency(call.target, call.requester,
                                  setting == first_latency ? Latency::switch_latency : Latency::network_latency,
                                  arguments.required_number("value", 0, UINT32_MAX)),
                what);
    } else {
        const std::uint32_t value = arguments.required_number("value", 0, UINT32_MAX);
        const bool force = arguments.flag("force").value_or(false);
        require_unlocked(call,
                         vsan ? set_vsan_timer(call.target, call.requester, *vsan, *timer, value, force)
                              : set_switch_timer(call.target, call.requester, *timer, value, force),
                         what);
    }
    call.reply = {{"setting", arguments.json()["setting"]}, {"value", arguments.json()["value"]}};
    if (vsan)
        call.reply["vsan"] = *vsan;
    call.reply["pending"] = timer && call.target.model.session().has_value();
}

/* The service's settings, its session's holder, and by VSAN what is pending. */
void show_tdx(Call &call) {
    const SwitchModel &model = call.target.model;
    const Settings &settings = model.settings();
    const auto after = call.arguments.number("after", 0, max_vsan);
    Page page(call, "pending");
    call.reply["enabled"] = settings.tdx_enabled;
    call.reply["showRun"] = settings.tdx_show_run;
    call.reply["refusing"] = settings.tdx_refusing;
    if (!model.session())
        return;
    call.reply["user"] = model.session()->user;
    for (const auto &[vsan, timers] : model.session()->pending)
        if ((!after || vsan > *after) && !page.add({{"vsan", vsan}, {"timers", timers_json(timers)}}))
            break;
}

void answer_tdx(Call &call, std::uint32_t status) {
    require_unlocked(call, status, "Distribution service");
    show_tdx(call);
}

void enable_tdx(Call &call) {
    answer_tdx(call, tdx_enable(call.target, call.requester, true));
}

void disable_tdx(Call &call) {
    answer_tdx(call, tdx_enable(call.target, call.requester, false));
}

void switch_show_run(Call &call) {
    answer_tdx(call, tdx_show_run(call.target, call.requester, call.arguments.required_flag("on")));
}

void switch_refusing(Call &call) {
    answer_tdx(call, tdx_refuse(call.target, call.requester, call.arguments.required_flag("on")));
}

void commit_tdx(Call &call) {
    answer_tdx(call, tdx_commit(call.target, call.requester));
}

void abort_tdx(Call &call) {
    answer_tdx(call, tdx_abort(call.target, call.requester));
}

const Command commands[] = {
    {"timers.show", kind_get, show_timers, {"vsan", "after", "limit"}},
    {"timers.set", kind_set, set_timers, {"setting", "value", "vsan", "force"}},
    {"tdx.show", kind_get, show_tdx, {"after", "limit"}},
    {"tdx.enable", kind_set, enable_tdx, {}},
    {"tdx.disable", kind_set, disable_tdx, {}},
    {"tdx.show-run", kind_set, switch_show_run, {"on"}},
    {"tdx.refuse", kind_set, switch_refusing, {"on"}},
    {"tdx.commit", kind_set, commit_tdx, {}},
    {"tdx.abort", kind_set, abort_tdx, {}},
};

} // namespace

std::span<const Command> timer_commands() {
    return commands;
}

} // namespace vswitch
