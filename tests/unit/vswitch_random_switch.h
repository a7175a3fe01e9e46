// SPDX-License-Identifier: Apache-2.0
// Switches with whatever a switch can have, drawn from a seed.
#ifndef VSWITCH_RANDOM_SWITCH_H
#define VSWITCH_RANDOM_SWITCH_H

#include <iterator>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "model/configuration.h"
#include "model/roles.h"
#include "model/rules.h"

namespace vswitch_test {

// All of them have the same ports, so that one can become another.
class RandomSwitches {
  public:
    explicit RandomSwitches(uint32_t seed) : random_(seed) {}

    vswitch::SwitchData data() {
        vswitch::SwitchData data = vswitch::parse_configuration(R"({"portCount": 12})", "test");
        data.vsans.clear();
        uint32_t place = 0;
        for (const uint32_t id : {1u, 2u, 3u, 10u, 100u, 101u, 102u, 999u, 1000u, 4094u, 4095u}) {
            if (id == 1 || often()) {
                data.vsans[id] = vsan(++place);
            }
        }
        for (auto &[if_index, port] : data.ports) {
            change_port(port, data);
        }
        change_settings(data.settings);
        return data;
    }

    std::optional<vswitch::DistributionSession> session(vswitch::SwitchData &data) {
        if (!often()) {
            return std::nullopt;
        }
        data.settings.tdx_enabled = true;
        vswitch::DistributionSession session{often() ? "alice" : "bob", {}};
        for (const auto &[id, vsan] : data.vsans) {
            const uint32_t key = id == 1 ? 0 : id;
            if (const auto values = timers(); often() && values != vswitch::PartialTimers()) {
                session.pending[key] = values;
            }
        }
        return session;
    }

    std::vector<vswitch::Role> roles() {
        std::vector<vswitch::Role> roles;
        for (const char *name : {"tapes", "B\u00fcro \"2\"", "ops"}) {
            if (often()) {
                roles.push_back({name, {{1, 1}, {10, 10 + number(20)}}, {{16777216, 16777216}}, {"alice", "bob \\"}});
            }
        }
        return roles;
    }

  private:
    uint32_t number(uint32_t below) { return static_cast<uint32_t>(random_() % below); }
    bool often() { return number(2) == 1; }

    // The names of all VSANs are drawn from one small set, so that they change their places.
    vswitch::Vsan vsan(uint32_t place) {
        vswitch::Vsan vsan;
        vsan.name = often() ? "" : "name-" + std::to_string((place + shift_) % 16);
        vsan.admin_state = often() ? ADMIN_STATE_ACTIVE : ADMIN_STATE_SUSPENDED;
        vsan.mtu = often() ? 2112 : 1 + number(65535);
        vsan.load_balancing = often() ? LOAD_BALANCING_EXCHANGES : LOAD_BALANCING_ADDRESSES;
        vsan.interop = often() ? VSAN_INTEROP_NONE : 1 + number(4);
        vsan.inorder_delivery = often() ? TRUTH_TRUE : TRUTH_FALSE;
        vsan.drop_latency = often() ? 500 : 1 + number(60000);
        vsan.timers = timers();
        vsan.distributed_timers = timers();
        return vsan;
    }

    vswitch::PartialTimers timers() {
        vswitch::PartialTimers timers;
        for (const vswitch::TimerKind &kind : vswitch::timer_kinds) {
            if (often()) {
                timers[kind.timer] = kind.least + number(kind.greatest - kind.least + 1);
            }
        }
        return timers;
    }

    void change_port(vswitch::Port &port, const vswitch::SwitchData &data) {
        auto vsan = data.vsans.begin();
        std::advance(vsan, number(static_cast<uint32_t>(data.vsans.size())));
        port.vsan = vsan->first;
        port.deny_list = often() ? 0 : static_cast<uint32_t>(random_());
        port.link_up = often();
        port.enabled = often();
        port.alias = often() ? "" : "rack \"7\" B\u00fcro \\ " + std::to_string(number(9));
        port.speed = often() ? 8000 : 32000;
        port.traps = often();
        for (uint32_t &rate : port.traffic) {
            rate = often() ? 0 : static_cast<uint32_t>(random_());
        }
    }

    void change_settings(vswitch::Settings &settings) {
        shift_ = number(16);
        settings.wwn = (uint64_t{1} << 60) + number(1000);
        for (const vswitch::TimerKind &kind : vswitch::timer_kinds) {
            settings.timers[kind.timer] = often() ? kind.initial : kind.least + number(kind.greatest - kind.least);
        }
        settings.switch_latency = often() ? 500 : number(60001);
        settings.network_latency = often() ? 2000 : number(60001);
        settings.inorder_delivery = often() ? TRUTH_TRUE : TRUTH_FALSE;
        settings.tdx_enabled = often();
        settings.tdx_show_run = often();
        settings.tdx_refusing = often();
        settings.status_events = often();
        settings.system = {often() ? "" : "a@b", often() ? "vswitch" : "", often() ? "" : "R\u00e4ck\"\\"};
    }

    std::mt19937 random_;
    uint32_t shift_ = 0;
};

} // namespace vswitch_test

#endif
