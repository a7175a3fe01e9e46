// SPDX-License-Identifier: Apache-2.0
// The room `model`: what a switch is, in memory and on disk, and the files that say so. It knows
// neither requests nor who asks. May include contract/ only.
//
// The running switch: its configuration in memory, with what follows from it. Every query is one
// keyed lookup, whatever the number of rows.
#ifndef VSWITCH_SWITCH_MODEL_H
#define VSWITCH_SWITCH_MODEL_H

#include <compare>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "model/switch_data.h"

namespace vswitch {

// A port that is in a VSAN.
struct Member {
    uint32_t vsan = 0;
    uint32_t if_index = 0;

    auto operator<=>(const Member &) const = default;
};

class SwitchModel {
  public:
    explicit SwitchModel(SwitchData data);

    const Settings &settings() const { return data_.settings; }
    const std::optional<DistributionSession> &session() const { return data_.session; }
    Distribution distribution() const;
    const SwitchData &data() const { return data_; }
    uint32_t vsan_count() const { return static_cast<uint32_t>(data_.vsans.size()); }
    uint32_t port_count() const { return static_cast<uint32_t>(data_.ports.size()); }

    const std::map<uint32_t, Vsan> &vsans() const { return data_.vsans; }
    const std::map<uint32_t, Port> &ports() const { return data_.ports; }

    // What has that very key, or null. It stays valid until the model changes.
    const Vsan *vsan(uint32_t id) const;
    const Port *port(uint32_t if_index) const;
    std::optional<Member> member(Member key) const;

    // The number of the VSAN of that name, which is not empty.
    std::optional<uint32_t> vsan_named(const std::string &name) const;

    // The first key that is greater, compared unsigned.
    std::optional<uint32_t> vsan_after(uint32_t id) const;
    std::optional<uint32_t> port_after(uint32_t if_index) const;
    std::optional<Member> member_after(Member key) const;

    // A port's place in the order of ifIndexes, counted from 1: n of its name "fcn". REQUIRES: it
    // exists.
    uint32_t port_number(uint32_t if_index) const;
    // The ifIndex of the port of that name, or nothing when there are not so many.
    std::optional<uint32_t> port_numbered(uint32_t number) const;

    // Whether the VSAN is up: it is active and one of its ports is up. REQUIRES: it exists.
    bool is_up(uint32_t vsan) const;

    // How many ports a VSAN has, and how many of them are up.
    struct PortCount {
        uint32_t all = 0;
        uint32_t up = 0;
    };
    PortCount port_count_of(uint32_t vsan) const;

    // The ifIndexes of a VSAN's ports, ascending.
    std::vector<uint32_t> ports_of(uint32_t vsan) const;

    // REQUIRES: the result is a switch: every port in `change` exists, the VSANs that ports
    // are in remain, names are unique, and a session is open where values are pending. Names may
    // pass from one VSAN to another.
    void apply(const Change &change);

  private:
    void count_port(uint32_t if_index, const Port &port);
    void forget_port(uint32_t if_index, const Port &port);
    void forget_name(uint32_t id);

    SwitchData data_;
    std::map<std::string, uint32_t> names_; // VSAN numbers; without VSANs that have no name
    std::set<Member> members_;
    std::map<uint32_t, PortCount> port_counts_; // by VSAN number; without VSANs that have none
    std::vector<uint32_t> port_order_;          // ifIndexes, ascending: no port comes or goes
};

} // namespace vswitch

#endif
