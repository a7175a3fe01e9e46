// SPDX-License-Identifier: Apache-2.0
#include "model/switch_model.h"

#include <algorithm>

namespace vswitch {

namespace {

template <typename Row> const Row *find_row(const std::map<uint32_t, Row> &rows, uint32_t key) {
    const auto row = rows.find(key);
    return row == rows.end() ? nullptr : &row->second;
}

template <typename Row> std::optional<uint32_t> find_key_after(const std::map<uint32_t, Row> &rows, uint32_t key) {
    const auto row = rows.upper_bound(key);
    return row == rows.end() ? std::nullopt : std::optional(row->first);
}

} // namespace

SwitchModel::SwitchModel(SwitchData data) : data_(std::move(data)) {
    for (const auto &[id, vsan] : data_.vsans) {
        if (!vsan.name.empty()) {
            names_.emplace(vsan.name, id);
        }
    }
    for (const auto &[if_index, port] : data_.ports) {
        count_port(if_index, port);
        port_order_.push_back(if_index);
    }
}

void SwitchModel::count_port(uint32_t if_index, const Port &port) {
    members_.insert(Member{port.vsan, if_index});
    PortCount &count = port_counts_[port.vsan];
    ++count.all;
    count.up += port.is_up();
}

void SwitchModel::forget_port(uint32_t if_index, const Port &port) {
    members_.erase({port.vsan, if_index});
    PortCount &count = port_counts_.at(port.vsan);
    count.up -= port.is_up();
    if (--count.all == 0) {
        port_counts_.erase(port.vsan);
    }
}

void SwitchModel::forget_name(uint32_t id) {
    if (const Vsan *former = vsan(id); former && !former->name.empty()) {
        names_.erase(former->name);
    }
}

void SwitchModel::apply(const Change &change) {
    if (change.settings) {
        data_.settings = *change.settings;
    }
    // A name that one gives up another may take.
    for (const auto &[id, vsan] : change.vsans) {
        forget_name(id);
    }
    for (const uint32_t id : change.deleted_vsans) {
        forget_name(id);
    }
    for (const auto &[id, vsan] : change.vsans) {
        data_.vsans[id] = vsan;
        if (!vsan.name.empty()) {
            names_[vsan.name] = id;
        }
    }
    for (const auto &[if_index, port] : change.ports) {
        Port &row = data_.ports.at(if_index);
        forget_port(if_index, row);
        row = port;
        count_port(if_index, row);
    }
    if (change.ends_session()) {
        data_.session.reset();
    }
    if (change.opens_session()) {
        data_.session = DistributionSession{change.holder, {}};
    }
    for (const Change::PendingTimer &value : change.pending) {
        data_.session->pending[value.vsan][value.timer] = value.value;
    }
    for (const uint32_t id : change.deleted_vsans) {
        data_.vsans.erase(id);
        if (data_.session) {
            data_.session->pending.erase(id);
        }
    }
}

Distribution SwitchModel::distribution() const {
    if (data_.session) {
        return Distribution::in_session;
    }
    return data_.settings.tdx_enabled ? Distribution::idle : Distribution::off;
}

const Vsan *SwitchModel::vsan(uint32_t id) const {
    return find_row(data_.vsans, id);
}

const Port *SwitchModel::port(uint32_t if_index) const {
    return find_row(data_.ports, if_index);
}

std::optional<Member> SwitchModel::member(Member key) const {
    return members_.contains(key) ? std::optional(key) : std::nullopt;
}

std::optional<uint32_t> SwitchModel::vsan_after(uint32_t id) const {
    return find_key_after(data_.vsans, id);
}

std::optional<uint32_t> SwitchModel::port_after(uint32_t if_index) const {
    return find_key_after(data_.ports, if_index);
}

std::optional<Member> SwitchModel::member_after(Member key) const {
    const auto next = members_.upper_bound(key);
    return next == members_.end() ? std::nullopt : std::optional(*next);
}

std::optional<uint32_t> SwitchModel::vsan_named(const std::string &name) const {
    const auto found = names_.find(name);
    return found == names_.end() ? std::nullopt : std::optional(found->second);
}

uint32_t SwitchModel::port_number(uint32_t if_index) const {
    const auto place = std::ranges::lower_bound(port_order_, if_index);
    return static_cast<uint32_t>(place - port_order_.begin()) + 1;
}

std::optional<uint32_t> SwitchModel::port_numbered(uint32_t number) const {
    return number >= 1 && number <= port_order_.size() ? std::optional(port_order_[number - 1]) : std::nullopt;
}

std::vector<uint32_t> SwitchModel::ports_of(uint32_t vsan) const {
    std::vector<uint32_t> ports;
    for (auto member = members_.lower_bound({vsan, 0}); member != members_.end() && member->vsan == vsan; ++member) {
        ports.push_back(member->if_index);
    }
    return ports;
}

SwitchModel::PortCount SwitchModel::port_count_of(uint32_t vsan) const {
    const auto found = port_counts_.find(vsan);
    return found == port_counts_.end() ? PortCount() : found->second;
}

bool SwitchModel::is_up(uint32_t vsan) const {
    return data_.vsans.at(vsan).admin_state == ADMIN_STATE_ACTIVE && port_count_of(vsan).up > 0;
}

} // namespace vswitch
