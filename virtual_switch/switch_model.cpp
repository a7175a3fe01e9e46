#include "switch_model.h"

namespace vswitch {

namespace {

template <typename Map> const typename Map::value_type *find_row(const Map &map, std::uint32_t key) {
    const auto row = map.find(key);
    return row == map.end() ? nullptr : &*row;
}

template <typename Map> const typename Map::value_type *find_row_after(const Map &map, std::uint32_t key) {
    const auto row = map.upper_bound(key);
    return row == map.end() ? nullptr : &*row;
}

} // namespace

SwitchModel::SwitchModel(SwitchData data) : data_(std::move(data)) {
    for (const auto &[id, vsan] : data_.vsans)
        if (!vsan.name.empty())
            names_.emplace(vsan.name, id);
    for (const auto &[if_index, port] : data_.ports)
        count_port(if_index, port);
}

void SwitchModel::count_port(std::uint32_t if_index, const Port &port) {
    members_.emplace(port.vsan, if_index);
    if (port.link_up)
        ++up_ports_[port.vsan];
}

void SwitchModel::forget_port(std::uint32_t if_index, const Port &port) {
    members_.erase({port.vsan, if_index});
    if (!port.link_up)
        return;
    const auto up = up_ports_.find(port.vsan);
    if (--up->second == 0)
        up_ports_.erase(up);
}

void SwitchModel::apply(const Change &change) {
    if (change.settings)
        data_.settings = *change.settings;
    for (const auto &[id, vsan] : change.vsans) {
        Vsan &row = data_.vsans[id];
        if (row.name != vsan.name) {
            if (!row.name.empty())
                names_.erase(row.name);
            if (!vsan.name.empty())
                names_[vsan.name] = id;
        }
        row = vsan;
    }
    for (const auto &[if_index, port] : change.ports) {
        Port &row = data_.ports.at(if_index);
        forget_port(if_index, row);
        row = port;
        count_port(if_index, row);
    }
    if (change.ends_session)
        data_.session.reset();
    if (change.opens_session)
        data_.session = TimerSession{*change.opens_session, {}};
    for (const Change::PendingTimer &value : change.pending)
        data_.session->pending[value.vsan][value.timer] = value.value;
    for (const std::uint32_t id : change.deleted_vsans) {
        const auto row = data_.vsans.find(id);
        if (!row->second.name.empty())
            names_.erase(row->second.name);
        data_.vsans.erase(row);
        if (data_.session)
            data_.session->pending.erase(id);
    }
}

const SwitchModel::VsanRow *SwitchModel::vsan(std::uint32_t id) const {
    return find_row(data_.vsans, id);
}

const SwitchModel::PortRow *SwitchModel::port(std::uint32_t if_index) const {
    return find_row(data_.ports, if_index);
}

std::optional<SwitchModel::Member> SwitchModel::member(Member key) const {
    return members_.contains(key) ? std::optional(key) : std::nullopt;
}

const SwitchModel::VsanRow *SwitchModel::vsan_after(std::uint32_t id) const {
    return find_row_after(data_.vsans, id);
}

const SwitchModel::PortRow *SwitchModel::port_after(std::uint32_t if_index) const {
    return find_row_after(data_.ports, if_index);
}

std::optional<SwitchModel::Member> SwitchModel::member_after(Member key) const {
    const auto next = members_.upper_bound(key);
    return next == members_.end() ? std::nullopt : std::optional(*next);
}

const SwitchModel::VsanRow *SwitchModel::vsan_named(const std::string &name) const {
    const auto found = names_.find(name);
    return found == names_.end() ? nullptr : vsan(found->second);
}

std::vector<std::uint32_t> SwitchModel::ports_of(std::uint32_t vsan) const {
    std::vector<std::uint32_t> ports;
    for (auto member = members_.lower_bound({vsan, 0}); member != members_.end() && member->first == vsan; ++member)
        ports.push_back(member->second);
    return ports;
}

bool SwitchModel::is_up(const VsanRow &row) const {
    return row.second.admin_state == vsan_active && up_ports_.contains(row.first);
}

} // namespace vswitch
