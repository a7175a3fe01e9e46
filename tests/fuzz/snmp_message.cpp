#include "snmp_message.h"

#include <span>

namespace {

using bytes = std::vector<uint8_t>;
using view = std::span<const uint8_t>;

constexpr uint8_t tag_integer = 0x02;
constexpr uint8_t tag_octets = 0x04;
constexpr uint8_t tag_name = 0x06;
constexpr uint8_t tag_sequence = 0x30;

void append(bytes &to, const bytes &more) {
    to.insert(to.end(), more.begin(), more.end());
}

bytes element(uint8_t tag, const bytes &content) {
    bytes result = {tag};
    const size_t length = content.size();
    if (length < 0x80)
        result.push_back(static_cast<uint8_t>(length));
    else
        append(result, {0x82, static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length)});
    append(result, content);
    return result;
}

bytes integer(int64_t number) {
    bytes content;
    for (int shift = 24; shift >= 0; shift -= 8)
        content.push_back(static_cast<uint8_t>(number >> shift));
    return element(tag_integer, content);
}

bytes encoded_name(const snmp_name &name) {
    bytes content = {static_cast<uint8_t>(name.at(0) * 40 + name.at(1))};
    for (size_t i = 2; i < name.size(); ++i) {
        for (int shift = 28; shift > 0; shift -= 7) {
            if (name[i] >> shift != 0)
                content.push_back(static_cast<uint8_t>(0x80 | (name[i] >> shift & 0x7F)));
        }
        content.push_back(static_cast<uint8_t>(name[i] & 0x7F));
    }
    return element(tag_name, content);
}

// Takes elements off the front of a message; once one is malformed, everything is.
class reader {
  public:
    explicit reader(view input) : rest(input) {}

    bool failed() const { return is_bad; }
    bool at_end() const { return rest.empty(); }

    view take(uint8_t tag) {
        uint8_t found = 0;
        const view content = take_any(found);
        return found == tag ? content : fail();
    }

    view take_any(uint8_t &tag) {
        if (rest.size() < 2)
            return fail();
        tag = rest[0];
        size_t length = rest[1];
        size_t at = 2;
        if (length >= 0x80) {
            size_t count = length & 0x7F;
            if (count > 4 || rest.size() - at < count)
                return fail();
            for (length = 0; count > 0; --count)
                length = length << 8 | rest[at++];
        }
        if (rest.size() - at < length)
            return fail();
        const view content = rest.subspan(at, length);
        rest = rest.subspan(at + length);
        return content;
    }

    int64_t take_integer() {
        const view content = take(tag_integer);
        if (content.empty() || content.size() > 8) {
            fail();
            return 0;
        }
        uint64_t number = content[0] >= 0x80 ? UINT64_MAX : 0;
        for (const uint8_t byte : content)
            number = number << 8 | byte;
        return static_cast<int64_t>(number);
    }

    snmp_name take_name() {
        const view content = take(tag_name);
        snmp_name name;
        uint64_t arc = 0;
        for (const uint8_t byte : content) {
            arc = arc << 7 | (byte & 0x7Fu);
            if (arc > UINT32_MAX)
                fail();
            if (byte >= 0x80)
                continue;
            if (name.empty()) {
                const auto first = static_cast<uint32_t>(arc < 80 ? arc / 40 : 2);
                name = {first, static_cast<uint32_t>(arc) - first * 40};
            } else {
                name.push_back(static_cast<uint32_t>(arc));
            }
            arc = 0;
        }
        if (content.empty() || content.back() >= 0x80)
            fail();
        return name;
    }

  private:
    view fail() {
        is_bad = true;
        rest = {};
        return {};
    }

    view rest;
    bool is_bad = false;
};

} // namespace

std::vector<uint8_t> encode(const snmp_message &message) {
    bytes list;
    for (const snmp_varbind &varbind : message.varbinds) {
        bytes pair = encoded_name(varbind.name);
        append(pair, element(varbind.type, varbind.value));
        append(list, element(tag_sequence, pair));
    }
    bytes pdu = integer(message.request_id);
    append(pdu, integer(message.error));
    append(pdu, integer(message.index));
    append(pdu, element(tag_sequence, list));

    bytes content = integer(message.version);
    append(content, element(tag_octets, bytes(message.community.begin(), message.community.end())));
    append(content, element(message.command, pdu));
    return element(tag_sequence, content);
}

std::optional<snmp_message> decode(const std::vector<uint8_t> &bytes) {
    reader whole{view(bytes)};
    reader content(whole.take(tag_sequence));
    snmp_message message;
    message.version = content.take_integer();
    const view community = content.take(tag_octets);
    message.community.assign(community.begin(), community.end());
    reader pdu(content.take_any(message.command));
    message.request_id = pdu.take_integer();
    message.error = pdu.take_integer();
    message.index = pdu.take_integer();
    reader list(pdu.take(tag_sequence));
    bool is_bad =
        whole.failed() || !whole.at_end() || content.failed() || !content.at_end() || pdu.failed() || !pdu.at_end();
    while (!is_bad && !list.at_end()) {
        reader pair(list.take(tag_sequence));
        snmp_varbind varbind;
        varbind.name = pair.take_name();
        const view value = pair.take_any(varbind.type);
        varbind.value.assign(value.begin(), value.end());
        is_bad = pair.failed() || !pair.at_end() || list.failed();
        message.varbinds.push_back(varbind);
    }
    if (is_bad)
        return std::nullopt;
    return message;
}
