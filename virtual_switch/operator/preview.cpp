// SPDX-License-Identifier: Apache-2.0
// What a change of much at once would change, told without making it.
#include <map>
#include <string_view>

#include "changes/commit.h"
#include "model/difference.h"
#include "model/json_settings.h"
#include "operator/transaction.h"

namespace vswitch {

namespace {

using Json = JsonReader::Json;

// Rows {"object", "setting", "former", "value"}.
class Differences {
  public:
    template <typename Value>
    void add(const std::string &object, const char *setting, const Value &former, const Value &value) {
        if (former != value) {
            rows_.push_back({{"object", object}, {"setting", setting}, {"former", former}, {"value", value}});
        }
    }

    void add_flag(const std::string &object, const char *setting, uint32_t former, uint32_t value) {
        add(object, setting, former == TRUTH_TRUE, value == TRUTH_TRUE);
    }

    Json take() { return std::move(rows_); }

  private:
    Json rows_ = Json::array();
};

void add_vsan(Differences &differences, uint32_t id, const Vsan &former, const Vsan &vsan) {
    const std::string object = fmt::format("VSAN {}", id);
    differences.add(object, "mtu", former.mtu, vsan.mtu);
    differences.add(object, "loadBalancing", std::string(word_of(load_balancing_words, former.load_balancing)),
                    std::string(word_of(load_balancing_words, vsan.load_balancing)));
    differences.add(object, "interop", former.interop, vsan.interop);
    differences.add_flag(object, "inorderDelivery", former.inorder_delivery, vsan.inorder_delivery);
    differences.add(object, "networkDropLatency", former.drop_latency, vsan.drop_latency);
    differences.add(object, "distributedTimers", timers_json(former.distributed_timers),
                    timers_json(vsan.distributed_timers));
}

// What events tell of changes of a VSAN, but not of one that is new.
void add_new_vsan(Differences &differences, uint32_t id, const Vsan &vsan) {
    const std::string object = fmt::format("VSAN {}", id);
    const Vsan usual = new_vsan(id);
    differences.add(object, "name", usual.name, vsan.name);
    differences.add(object, "timers", timers_json(usual.timers), timers_json(vsan.timers));
}

void add_settings(Differences &differences, const Settings &former, const Settings &settings) {
    const std::string object = "the switch";
    differences.add_flag(object, "inorderDelivery", former.inorder_delivery, settings.inorder_delivery);
    differences.add(object, "statusEvents", former.status_events, settings.status_events);
    differences.add(object, "tdxEnabled", former.tdx_enabled, settings.tdx_enabled);
    differences.add(object, "tdxShowRun", former.tdx_show_run, settings.tdx_show_run);
    differences.add(object, "tdxRefuse", former.tdx_refusing, settings.tdx_refusing);
}

void add_session(Differences &differences, const SwitchModel &model, const Change &change) {
    const auto holder = [](const auto &session) { return session ? Json(session->user) : Json(nullptr); };
    const Json former = holder(model.session());
    differences.add("the distribution session", "user", former,
                    change.opens_session()  ? Json(change.holder)
                    : change.ends_session() ? Json(nullptr)
                                            : former);
    for (const Change::PendingTimer &pending : change.pending) {
        const std::string object =
            pending.vsan == 0 ? "the pending timers" : fmt::format("the pending timers of VSAN {}", pending.vsan);
        differences.add(object, kind_of(pending.timer).word, Json(nullptr), Json(pending.value));
    }
}

using RolesByName = std::map<std::string_view, const Role *>;

RolesByName by_name(const std::vector<Role> &roles) {
    RolesByName result;
    for (const Role &role : roles) {
        result.emplace(role.name, &role);
    }
    return result;
}

Json names_of(const std::vector<Role> &roles) {
    Json names = Json::array();
    for (const Role &role : roles) {
        names.push_back(role.name);
    }
    return names;
}

void add_roles(Differences &differences, const std::vector<Role> &former, const std::vector<Role> &roles) {
    const RolesByName before = by_name(former);
    const RolesByName after = by_name(roles);
    const auto json = [](const RolesByName &list, const std::string &name) {
        const auto found = list.find(name);
        return found == list.end() ? Json(nullptr) : role_json(*found->second);
    };
    const auto object = [](const Role &role) { return fmt::format("role {}", role.name); };
    for (const Role &role : roles) {
        differences.add(object(role), "role", json(before, role.name), role_json(role));
    }
    for (const Role &role : former) {
        if (!after.contains(role.name)) {
            differences.add(object(role), "role", role_json(role), Json(nullptr));
        }
    }
    if (former.size() == roles.size()) {
        differences.add("the roles", "order", names_of(former), names_of(roles));
    }
}

// What no event tells of.
Json further_differences(const Switch &the_switch, const Change &change, const Wanted &wanted) {
    Differences differences;
    const SwitchModel &model = the_switch.model;
    for (const auto &[id, vsan] : change.vsans) {
        const Vsan *former = model.vsan(id);
        add_vsan(differences, id, former ? *former : new_vsan(id), vsan);
        if (!former) {
            add_new_vsan(differences, id, vsan);
        }
    }
    for (const auto &[if_index, port] : change.ports) {
        differences.add(fmt::format("port fc{}", model.port_number(if_index)), "denyList",
                        model.port(if_index)->deny_list, port.deny_list);
    }
    if (change.settings) {
        add_settings(differences, model.settings(), *change.settings);
    }
    add_session(differences, model, change);
    if (wanted.roles) {
        add_roles(differences, the_switch.roles.list(), *wanted.roles);
    }
    return differences.take();
}

std::string hexadecimal(Bytes bytes) {
    std::string text;
    for (const uint8_t byte : bytes) {
        text += fmt::format("{:02x}", byte);
    }
    return text;
}

// The events that a change would publish, were none of them switched off.
Json event_differences(const Switch &the_switch, Change change) {
    Switch draft(the_switch.model.data(), Roles());
    begin_draft(draft, the_switch);
    change.settings = change.settings.value_or(the_switch.model.settings());
    change.settings->status_events = true;
    bring_into_force(draft, change);
    Json rows = Json::array();
    for (const Event &event : draft.events.staged()) {
        rows.push_back({{"class", event.event_class}, {"payload", hexadecimal(event.payload)}});
    }
    return rows;
}

} // namespace

void change_or_tell(Call &call, const Wanted &wanted, const std::string &what) {
    ServedSwitch &the_switch = call.the_switch;
    const Change change = difference(the_switch.model.data(), wanted.data);
    call.reply["changed"] = !is_empty(change) || (wanted.roles && *wanted.roles != the_switch.roles.list());
    if (call.arguments.flag("dryRun").value_or(false)) {
        Json changes = event_differences(the_switch, change);
        for (Json &row : further_differences(the_switch, change, wanted)) {
            changes.push_back(std::move(row));
        }
        call.reply["changes"] = std::move(changes);
        return;
    }
    std::string sentence;
    const uint32_t status = make_it(the_switch, wanted, &sentence);
    if (status != STATUS_SUCCESS && !sentence.empty()) {
        throw Refusal(status, fmt::format("{} is refused: {}", what, sentence));
    }
    require(status, what);
}

} // namespace vswitch
