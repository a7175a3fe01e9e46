// SPDX-License-Identifier: Apache-2.0
// SNMPv1 and v2c messages, written and read without the agent's own library, so that the
// two can disagree.
#ifndef SNMP_MESSAGE_H
#define SNMP_MESSAGE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

using snmp_name = std::vector<uint32_t>;

struct snmp_varbind {
    snmp_name name;
    uint8_t type = 5; // NULL
    std::vector<uint8_t> value;

    bool operator==(const snmp_varbind &) const = default;
};

constexpr uint8_t pdu_get = 0xA0;
constexpr uint8_t pdu_get_next = 0xA1;
constexpr uint8_t pdu_response = 0xA2;
constexpr uint8_t pdu_set = 0xA3;
constexpr uint8_t pdu_get_bulk = 0xA5;

constexpr uint8_t type_end_of_mib_view = 0x82;

struct snmp_message {
    int64_t version = 1; // 0 is v1, 1 is v2c
    std::string community;
    uint8_t command = pdu_get;
    int64_t request_id = 0;
    int64_t error = 0; // GETBULK: the non-repeaters
    int64_t index = 0; // GETBULK: the most repetitions
    std::vector<snmp_varbind> varbinds;
};

// REQUIRES: names have at least two arcs, and those two fit one byte.
std::vector<uint8_t> encode(const snmp_message &message);

// Nothing when the bytes are not exactly one well-formed message.
std::optional<snmp_message> decode(const std::vector<uint8_t> &bytes);

#endif
