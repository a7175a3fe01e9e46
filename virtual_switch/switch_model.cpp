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
    for (const auto &[if_index, port] : data_.ports) {
        members_.emplace(port.vsan, if_index);
        if (port.link_up)
            ++up_ports_[port.vsan];
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

bool SwitchModel::is_up(const VsanRow &row) const {
    return row.second.admin_state == vsan_active && up_ports_.contains(row.first);
}

} // namespace vswitch
