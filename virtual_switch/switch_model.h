/* The running switch: its configuration in memory, with what follows from it. Every
 * query is one keyed lookup, whatever the number of rows. */
#ifndef VSWITCH_SWITCH_MODEL_H
#define VSWITCH_SWITCH_MODEL_H

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "switch_data.h"

namespace vswitch {

class SwitchModel {
  public:
    using VsanRow = std::map<std::uint32_t, Vsan>::value_type;
    using PortRow = std::map<std::uint32_t, Port>::value_type;
    using Member = std::pair<std::uint32_t, std::uint32_t>; /* VSAN number, ifIndex */

    explicit SwitchModel(SwitchData data);

    const Settings &settings() const { return data_.settings; }
    const std::optional<TimerSession> &session() const { return data_.session; }
    const SwitchData &data() const { return data_; }
    std::uint32_t vsan_count() const { return static_cast<std::uint32_t>(data_.vsans.size()); }
    std::uint32_t port_count() const { return static_cast<std::uint32_t>(data_.ports.size()); }

    /* The row with that very key, or null. Rows stay valid until the model changes. */
    const VsanRow *vsan(std::uint32_t id) const;
    const PortRow *port(std::uint32_t if_index) const;
    std::optional<Member> member(Member key) const;

    /* The VSAN of that name, which is not empty, or null. */
    const VsanRow *vsan_named(const std::string &name) const;

    /* The first row whose key is greater, compared unsigned, or null. */
    const VsanRow *vsan_after(std::uint32_t id) const;
    const PortRow *port_after(std::uint32_t if_index) const;
    std::optional<Member> member_after(Member key) const;

    /* Whether the VSAN is up: it is active and one of its ports is up. */
    bool is_up(const VsanRow &row) const;

    /* The ifIndexes of a VSAN's ports, ascending. */
    std::vector<std::uint32_t> ports_of(std::uint32_t vsan) const;

    /* REQUIRES: the result is a switch: every port in `change` exists, the VSANs that ports
     * are in remain, names are unique, and a session is open where values are pending. */
    void apply(const Change &change);

  private:
    void count_port(std::uint32_t if_index, const Port &port);
    void forget_port(std::uint32_t if_index, const Port &port);

    SwitchData data_;
    std::map<std::string, std::uint32_t> names_; /* VSAN numbers; without VSANs that have no name */
    std::set<Member> members_;
    std::map<std::uint32_t, std::uint32_t> up_ports_; /* ports with a link, by VSAN number */
};

} // namespace vswitch

#endif
