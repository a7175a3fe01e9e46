// SPDX-License-Identifier: Apache-2.0
#include "services/parcels.h"

#include <algorithm>
#include <random>
#include <utility>

#include "contract/status_codes.h"

namespace vswitch {

uint32_t Parcels::keep(std::string content) {
    // Another number than that of an earlier run of the daemon, which somebody may still have.
    static std::mt19937 numbers(std::random_device{}());
    uint32_t number = 0;
    while (number == 0 || std::ranges::find(parcels_, number, &Parcel::number) != parcels_.end()) {
        number = static_cast<uint32_t>(numbers());
    }
    if (parcels_.size() >= max_parcels) {
        parcels_.pop_back();
    }
    parcels_.push_front({number, std::move(content)});
    return number;
}

std::list<Parcels::Parcel>::iterator Parcels::find(uint32_t number) {
    const auto found = std::ranges::find(parcels_, number, &Parcel::number);
    if (found != parcels_.end()) {
        parcels_.splice(parcels_.begin(), parcels_, found);
    }
    return found;
}

uint32_t Parcels::add(uint32_t number, uint32_t at, Bytes part) {
    const auto parcel = find(number);
    if (parcel == parcels_.end()) {
        return STATUS_NO_SUCH_PARCEL;
    }
    std::string &content = parcel->content;
    if (at != content.size() || content.size() > max_upload || part.size() > max_upload - content.size()) {
        return STATUS_BAD_LENGTH;
    }
    content.append(part.begin(), part.end());
    return STATUS_SUCCESS;
}

uint32_t Parcels::read(uint32_t number, uint32_t at, size_t limit, Buffer &output) {
    const auto parcel = find(number);
    if (parcel == parcels_.end()) {
        return STATUS_NO_SUCH_PARCEL;
    }
    const std::string &content = parcel->content;
    if (at > content.size()) {
        return STATUS_BAD_LENGTH;
    }
    const size_t size = std::min(limit, content.size() - at);
    const auto begin = content.begin() + static_cast<ptrdiff_t>(at);
    output.insert(output.end(), begin, begin + static_cast<ptrdiff_t>(size));
    if (at + size == content.size()) {
        parcels_.erase(parcel);
    }
    return STATUS_SUCCESS;
}

std::optional<std::string> Parcels::take(uint32_t number) {
    const auto parcel = find(number);
    if (parcel == parcels_.end()) {
        return std::nullopt;
    }
    std::string content = std::move(parcel->content);
    parcels_.erase(parcel);
    return content;
}

} // namespace vswitch
