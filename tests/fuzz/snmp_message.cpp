// SPDX-License-Identifier: Apache-2.0
#include "snmp_message.h"

#include "ber.h"

namespace {

using ber::Octets;
using ber::Reader;
using ber::View;

void append(Octets &to, View more) {
    to.insert(to.end(), more.begin(), more.end());
}

Octets integer(int64_t number) {
    Octets content;
    for (int shift = 24; shift >= 0; shift -= 8) {
        content.push_back(static_cast<uint8_t>(number >> shift));
    }
    return ber::element(ber::tag_integer, content);
}

Octets encoded_name(const snmp_name &name) {
    Octets content;
    ber::append_arc(content, name.at(0) * 40 + name.at(1));
    for (size_t i = 2; i < name.size(); ++i) {
        ber::append_arc(content, name[i]);
    }
    return ber::element(ber::tag_oid, content);
}

std::optional<snmp_name> decoded_name(View content) {
    if (content.empty() || content.back() >= 0x80) {
        return std::nullopt;
    }
    snmp_name name;
    uint64_t arc = 0;
    for (const uint8_t octet : content) {
        arc = arc << 7 | (octet & 0x7Fu);
        if (arc > UINT32_MAX) {
            return std::nullopt;
        }
        if (octet >= 0x80) {
            continue;
        }
        if (name.empty()) {
            const auto first = static_cast<uint32_t>(arc < 80 ? arc / 40 : 2);
            name = {first, static_cast<uint32_t>(arc) - first * 40};
        } else {
            name.push_back(static_cast<uint32_t>(arc));
        }
        arc = 0;
    }
    return name;
}

std::optional<snmp_varbind> decoded_varbind(View content) {
    Reader pair(content);
    const auto name = pair.take(ber::tag_oid);
    const auto arcs = name ? decoded_name(*name) : std::nullopt;
    snmp_varbind varbind;
    varbind.type = pair.next_tag();
    const auto value = pair.take(varbind.type);
    if (!arcs || !value || !pair.at_end()) {
        return std::nullopt;
    }
    varbind.name = *arcs;
    varbind.value.assign(value->begin(), value->end());
    return varbind;
}

} // namespace

std::vector<uint8_t> encode(const snmp_message &message) {
    Octets list;
    for (const snmp_varbind &varbind : message.varbinds) {
        Octets pair = encoded_name(varbind.name);
        append(pair, ber::element(varbind.type, varbind.value));
        append(list, ber::element(ber::tag_sequence, pair));
    }
    Octets pdu = integer(message.request_id);
    append(pdu, integer(message.error));
    append(pdu, integer(message.index));
    append(pdu, ber::element(ber::tag_sequence, list));

    Octets content = integer(message.version);
    append(content, ber::element(ber::tag_octet_string, Octets(message.community.begin(), message.community.end())));
    append(content, ber::element(message.command, pdu));
    return ber::element(ber::tag_sequence, content);
}

std::optional<snmp_message> decode(const std::vector<uint8_t> &bytes) {
    Reader whole(bytes);
    const auto message = whole.take(ber::tag_sequence);
    if (!message || !whole.at_end()) {
        return std::nullopt;
    }
    snmp_message result;
    Reader parts(*message);
    const auto version = parts.take_integer();
    const auto community = parts.take(ber::tag_octet_string);
    result.command = parts.next_tag();
    const auto pdu = parts.take(result.command);
    if (!version || !community || !pdu || !parts.at_end()) {
        return std::nullopt;
    }
    result.version = *version;
    result.community.assign(community->begin(), community->end());

    Reader fields(*pdu);
    const auto request_id = fields.take_integer();
    const auto error = fields.take_integer();
    const auto index = fields.take_integer();
    const auto varbinds = fields.take(ber::tag_sequence);
    if (!request_id || !error || !index || !varbinds || !fields.at_end()) {
        return std::nullopt;
    }
    result.request_id = *request_id;
    result.error = *error;
    result.index = *index;

    for (Reader list(*varbinds); !list.at_end();) {
        const auto content = list.take(ber::tag_sequence);
        const auto varbind = content ? decoded_varbind(*content) : std::nullopt;
        if (!varbind) {
            return std::nullopt;
        }
        result.varbinds.push_back(*varbind);
    }
    return result;
}
