// SPDX-License-Identifier: Apache-2.0
// Commands about the fabric timers, the latencies and the distribution service.
#include <algorithm>

#include "model/json_settings.h"
#include "operator/command_table.h"

namespace vswitch {

namespace {

using Json = JsonReader::Json;

Json vsan_timers_json(const SwitchModel &model, uint32_t id) {
    Json json = {{"id", id}, {"own", timers_json(model.vsan(id)->timers)}};
    for (const TimerKind &kind : timer_kinds) {
        json["running"][kind.word] = running_timer(model, id, kind.timer);
        if (const auto distributed = distributed_timer(model, id, kind.timer)) {
            json["distributed"][kind.word] = *distributed;
        }
    }
    return json;
}

// With "vsan" the values of that VSAN, without it the switch's and those of all VSANs.
void show_timers(Call &call) {
    const SwitchModel &model = call.the_switch.model;
    const Settings &settings = model.settings();
    const auto wanted = call.arguments.number("vsan", vsan_numbers);
    const uint32_t after = call.arguments.number("after", any_number).value_or(0);
    Page page(call, "vsans");
    for (const TimerKind &kind : timer_kinds) {
        call.reply["switch"][kind.word] = settings.timers[kind.timer];
    }
    for (const LatencyKind &kind : latency_kinds) {
        call.reply[kind.word] = settings.*kind.setting;
    }
    call.reply["inorderDelivery"] = settings.inorder_delivery == TRUTH_TRUE;
    if (wanted) {
        require_vsan(call.the_switch, *wanted);
        page.add(vsan_timers_json(model, *wanted));
        return;
    }
    auto id = model.vsan_after(after);
    while (id && page.add(vsan_timers_json(model, *id))) {
        id = model.vsan_after(*id);
    }
}

// As require, naming the session's holder where somebody else's session is in the way.
void require_unlocked(const Call &call, uint32_t status, const std::string &what) {
    const auto &session = call.the_switch.model.session();
    if (status == STATUS_TDX_LOCKED && session) {
        throw Refusal(status, fmt::format("{}: {}; it is held by \"{}\".", what, status_text(status),
                                          JsonReader::printable(session->user)));
    }
    require(status, what);
}

// What timers.set can set. The value of a word is the attribute's key, but for in-order delivery,
// which has none.
constexpr uint32_t no_key = 0;
#define TIMER_WORD(key, name, word, least, greatest, initial) {word, key},
#define LATENCY_WORD(key, name, word, tool_word, initial) {word, key},
constexpr Word setting_words[] = {FABRIC_TIMERS(TIMER_WORD) SWITCH_LATENCIES(LATENCY_WORD){"inorderDelivery", no_key}};
#undef TIMER_WORD
#undef LATENCY_WORD

void set_timer(Call &call, Timer timer, const std::string &what) {
    const Arguments &arguments = call.arguments;
    const auto vsan = arguments.number("vsan", vsan_numbers);
    const uint32_t value = arguments.required_number("value", any_number);
    const bool force = arguments.flag("force").value_or(false);
    if (const uint32_t status = check_timer(timer, value); status != STATUS_SUCCESS) {
        const TimerKind &kind = kind_of(timer);
        throw Refusal(status, fmt::format("{} is {} to {} milliseconds.", what, kind.least, kind.greatest));
    }
    require_unlocked(call,
                     vsan ? set_vsan_timer(call.the_switch, call.requester, *vsan, timer, value, force)
                          : set_switch_timer(call.the_switch, call.requester, timer, value, force),
                     what);
}

// A latency, or in-order delivery.
void set_setting(Call &call, uint32_t key, const std::string &what) {
    const Arguments &arguments = call.arguments;
    if (arguments.json().contains("vsan") || arguments.json().contains("force")) {
        arguments.reader().fail("\"vsan\" and \"force\" are for timers only");
    }
    const LatencyKind *latency = std::ranges::find(latency_kinds, key, &LatencyKind::key);
    require(latency != std::end(latency_kinds)
                ? set_latency(call.the_switch, call.requester, *latency, arguments.required_number("value", any_number))
                : set_inorder_delivery(call.the_switch, call.requester,
                                       arguments.required_flag("value") ? TRUTH_TRUE : TRUTH_FALSE),
            what);
}

void set_timers(Call &call) {
    const Arguments &arguments = call.arguments;
    const uint32_t key = arguments.required_word("setting", setting_words);
    const auto vsan = arguments.number("vsan", vsan_numbers);
    const std::string what = arguments.required_text("setting", 32) + (vsan ? fmt::format(" of VSAN {}", *vsan) : "");
    const auto timer = timer_of_key(key);
    if (timer) {
        set_timer(call, *timer, what);
    } else {
        set_setting(call, key, what);
    }
    call.reply = {{"setting", arguments.json()["setting"]}, {"value", arguments.json()["value"]}};
    if (vsan) {
        call.reply["vsan"] = *vsan;
    }
    call.reply["pending"] = timer && call.the_switch.model.session().has_value();
}

// The service's settings, its session's holder, and by VSAN what is pending.
void show_tdx(Call &call) {
    const SwitchModel &model = call.the_switch.model;
    const Settings &settings = model.settings();
    const auto after = call.arguments.number("after", {0, VSAN_NUMBER_MAX});
    Page page(call, "pending");
    call.reply["enabled"] = settings.tdx_enabled;
    call.reply["showRun"] = settings.tdx_show_run;
    call.reply["refusing"] = settings.tdx_refusing;
    if (!model.session()) {
        return;
    }
    call.reply["user"] = model.session()->user;
    for (const auto &[vsan, timers] : model.session()->pending) {
        if ((!after || vsan > *after) && !page.add({{"vsan", vsan}, {"timers", timers_json(timers)}})) {
            break;
        }
    }
}

void answer_tdx(Call &call, uint32_t status) {
    require_unlocked(call, status, "Distribution service");
    show_tdx(call);
}

void enable_tdx(Call &call) {
    answer_tdx(call, tdx_enable(call.the_switch, call.requester, true));
}

void disable_tdx(Call &call) {
    answer_tdx(call, tdx_enable(call.the_switch, call.requester, false));
}

void switch_show_run(Call &call) {
    answer_tdx(call, tdx_show_run(call.the_switch, call.requester, call.arguments.required_flag("on")));
}

void switch_refusing(Call &call) {
    answer_tdx(call, tdx_refuse(call.the_switch, call.requester, call.arguments.required_flag("on")));
}

void commit_tdx(Call &call) {
    answer_tdx(call, tdx_commit(call.the_switch, call.requester));
}

void abort_tdx(Call &call) {
    answer_tdx(call, tdx_abort(call.the_switch, call.requester));
}

const Command commands[] = {
    {"timers.show", MTS_KIND_GET, show_timers, {"vsan", "after", "limit"}},
    {"timers.set", MTS_KIND_SET, set_timers, {"setting", "value", "vsan", "force"}, true},
    {"tdx.show", MTS_KIND_GET, show_tdx, {"after", "limit"}},
    {"tdx.enable", MTS_KIND_SET, enable_tdx, {}, true},
    {"tdx.disable", MTS_KIND_SET, disable_tdx, {}, true},
    {"tdx.show-run", MTS_KIND_SET, switch_show_run, {"on"}, true},
    {"tdx.refuse", MTS_KIND_SET, switch_refusing, {"on"}, true},
    {"tdx.commit", MTS_KIND_SET, commit_tdx, {}, true},
    {"tdx.abort", MTS_KIND_SET, abort_tdx, {}, true},
};

} // namespace

std::span<const Command> timer_commands() {
    return commands;
}

} // namespace vswitch
