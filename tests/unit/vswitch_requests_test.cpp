// SPDX-License-Identifier: Apache-2.0
// Every request that the managers and the platform's services answer, and every way of
// asking wrongly.
#include <tuple>

#include "vswitch_test_support.h"

using namespace vswitch;
using namespace vswitch_test;

namespace {

constexpr char configuration[] = R"({
    "vsans": [
        {"id": 1, "name": "default"},
        {"id": 10, "name": "prod", "mtu": 2048, "loadBalancing": "srcIdDestId", "interop": 3,
         "inorderDelivery": 1, "networkDropLatency": 700, "timers": {"ratov": 20000}},
        {"id": 20, "state": "suspended"},
        {"id": 4095, "name": "abcdefghijklmnopqrstuvwxyz012345"}
    ],
    "ports": [
        {"ifIndex": 5, "vsan": 10, "link": "down"},
        {"ifIndex": 16777216, "vsan": 20},
        {"ifIndex": 16781312, "vsan": 10, "denyList": 7},
        {"ifIndex": 4294967295, "vsan": 4095, "link": "down"}
    ],
    "timers": {"edtov": 3000}, "switchLatency": 11, "networkLatency": 22, "inorderDelivery": 1
})";

class Requests : public testing::Test {
  protected:
    Requests() : target_(parse_configuration(configuration, "test"), Roles()) {}

    const Reply &ask(uint32_t service, uint32_t opcode, uint32_t kind, const Buffer &payload,
                     std::optional<uint32_t> length = std::nullopt) {
        Request request;
        request.service = service;
        request.opcode = opcode;
        request.kind = kind;
        request.payload = payload;
        request.length = length.value_or(static_cast<uint32_t>(payload.size()));
        answer_request(target_, request, reply_);
        EXPECT_EQ(reply_.has_data, reply_.status == 0);
        if (reply_.status != 0) {
            EXPECT_TRUE(reply_.data.empty());
        }
        return reply_;
    }

    const Reply &vsan_manager(uint32_t opcode, uint32_t kind, const Buffer &payload,
                              std::optional<uint32_t> length = std::nullopt) {
        return ask(MANAGER_SAP_VSAN, opcode, kind, payload, length);
    }

    // The VSAN after `id`, or 0 at the end of the table.
    uint32_t vsan_after(uint32_t id) {
        const Reply &reply = vsan_manager(149, 2, vsan_block(id));
        return reply.status == 0 ? word(reply.data, 520) : 0;
    }

    Settings &settings() {
        return const_cast<Settings &>(target_.model.settings()); // the model is the fixture's own
    }

    ServedSwitch target_;
    Reply reply_;
};

TEST_F(Requests, VsanRecordHasItsFieldsAtTheirOffsets) {
    const Reply &reply = vsan_manager(149, 1, vsan_block(10));
    ASSERT_EQ(reply.status, STATUS_SUCCESS);
    ASSERT_EQ(reply.data.size(), 2632u);
    Buffer expected(2632);
    store_word(expected, 520, 10);
    store_word(expected, 524, 1);    // media type
    store_word(expected, 528, 1);    // administrative state
    store_word(expected, 532, 2048); // MTU
    store_word(expected, 536, 1);    // in-order delivery
    store_word(expected, 540, 3);    // interoperability mode
    store_word(expected, 544, 1);    // load balancing
    store_word(expected, 548, 1);    // row status
    store_word(expected, 552, 1);    // operational state
    std::memcpy(&expected[556], "prod", 4);
    store_word(expected, 592, 700); // network drop latency
    EXPECT_EQ(reply.data, expected);
}

TEST_F(Requests, VsanHasTheDefaultsWhereNothingElseIsSaid) {
    const Reply &reply = vsan_manager(149, 1, vsan_block(20));
    ASSERT_EQ(reply.status, STATUS_SUCCESS);
    EXPECT_EQ(word(reply.data, 528), 2u) << "suspended";
    EXPECT_EQ(word(reply.data, 532), 2112u);
    EXPECT_EQ(word(reply.data, 536), 2u);
    EXPECT_EQ(word(reply.data, 540), 100u);
    EXPECT_EQ(word(reply.data, 544), 2u);
    EXPECT_STREQ(reinterpret_cast<const char *>(&reply.data[556]), "VSAN0020");
    EXPECT_EQ(word(reply.data, 592), 500u);
}

TEST_F(Requests, LongestNameIsFollowedByANul) {
    const Reply &reply = vsan_manager(149, 1, vsan_block(4095));
    EXPECT_STREQ(reinterpret_cast<const char *>(&reply.data[556]), "abcdefghijklmnopqrstuvwxyz012345");
}

TEST_F(Requests, VsanIsUpWhenActiveWithAPortThatIsUp) {
    const auto oper_state = [&](uint32_t id) { return word(vsan_manager(149, 1, vsan_block(id)).data, 552); };
    EXPECT_EQ(oper_state(10), 1u) << "active, one of two ports up";
    EXPECT_EQ(oper_state(20), 2u) << "suspended, port up";
    EXPECT_EQ(oper_state(1), 2u) << "active, no port";
    EXPECT_EQ(oper_state(4095), 2u) << "active, its port down";
}

TEST_F(Requests, VsanGetTellsMissingFromImpossibleNumbers) {
    EXPECT_EQ(vsan_manager(149, 1, vsan_block(11)).status, STATUS_NO_SUCH_VSAN);
    EXPECT_EQ(vsan_manager(149, 1, vsan_block(4094)).status, STATUS_NO_SUCH_VSAN);
    for (const uint32_t id : {0u, 4096u, 0x80000000u, 0xffffffffu}) {
        EXPECT_EQ(vsan_manager(149, 1, vsan_block(id)).status, STATUS_VSAN_OUT_OF_RANGE) << id;
    }
}

TEST_F(Requests, VsanGetNextGivesTheFirstGreaterNumber) {
    EXPECT_EQ(vsan_after(0), 1u);
    EXPECT_EQ(vsan_after(1), 10u);
    EXPECT_EQ(vsan_after(11), 20u);
    EXPECT_EQ(vsan_after(4094), 4095u);
    for (const uint32_t id : {4095u, 4096u, 0x7fffffffu, 0x80000000u, 0xffffffffu}) {
        EXPECT_EQ(vsan_manager(149, 2, vsan_block(id)).status, STATUS_NO_MORE_VSANS) << id;
    }
}

TEST_F(Requests, VsanGetNextIsOrderedAndCompleteWith4095Vsans) {
    target_.model = SwitchModel(parse_configuration(R"({"vsanRange": [{"first": 1, "last": 4095}]})", "test"));
    uint32_t id = 0;
    for (uint32_t expected = 1; expected <= 4095; ++expected) {
        id = vsan_after(id);
        ASSERT_EQ(id, expected);
    }
    EXPECT_EQ(vsan_after(id), 0u);
    EXPECT_EQ(word(vsan_manager(125, 1, {}, 4).data, 0), 4095u);
}

TEST_F(Requests, VsanRestOfTheRecordIsHandedBackUnchanged) {
    SwitchData data = empty_configuration();
    std::vector<uint8_t> rest(VSAN_REST_SIZE);
    for (size_t at = 0; at < rest.size(); ++at) {
        rest[at] = static_cast<uint8_t>(at * 7 + 1);
    }
    data.vsans.at(1).rest = rest;
    target_.model = SwitchModel(std::move(data));
    const Reply &reply = vsan_manager(149, 1, vsan_block(1));
    ASSERT_EQ(reply.data.size(), 2632u);
    EXPECT_TRUE(std::equal(rest.begin(), rest.end(), reply.data.begin() + 596));
    EXPECT_EQ(word(reply.data, 2628), 0u);
}

TEST_F(Requests, CountsAreOneWord) {
    EXPECT_EQ(vsan_manager(125, 1, {}, 4).data, words({4}));
    EXPECT_EQ(vsan_manager(128, 1, {}, 4).data, words({4}));
}

TEST_F(Requests, LastChangeIsSecondsAndMicroseconds) {
    settings().last_change = {1700000000, 999999};
    EXPECT_EQ(vsan_manager(126, 1, {}, 8).data, words({1700000000, 999999}));
}

TEST_F(Requests, LatenciesAreToldApartByKey) {
    EXPECT_EQ(vsan_manager(136, 1, words({17, 0, 0})).data, words({17, 11, 0}));
    EXPECT_EQ(vsan_manager(136, 1, words({18, 0, 0})).data, words({18, 22, 0}));
    EXPECT_EQ(vsan_manager(136, 1, words({19, 0, 0})).status, STATUS_BAD_RECORD);
}

TEST_F(Requests, InorderDeliveryIsATruthValue) {
    EXPECT_EQ(vsan_manager(140, 1, {}, 4).data, words({1}));
    target_.model = SwitchModel(empty_configuration());
    EXPECT_EQ(vsan_manager(140, 1, {}, 4).data, words({2}));
}

TEST_F(Requests, SwitchWideTimersAreToldApartByKey) {
    const std::pair<uint32_t, uint32_t> timers[] = {{7, 3000}, {8, 10000}, {9, 5000}, {10, 5000}};
    for (const auto &[key, value] : timers) {
        const Reply &reply = vsan_manager(127, 1, timer_record(key, 0, 0));
        ASSERT_EQ(reply.data.size(), 15u) << key;
        EXPECT_EQ(word(reply.data, 0), key);
        EXPECT_EQ(word(reply.data, 4), value);
    }
}

TEST_F(Requests, VsanTimerIsItsOwnOrElseTheSwitchWideOne) {
    EXPECT_EQ(word(vsan_manager(127, 1, timer_record(8, 1, 10)).data, 4), 20000u);
    EXPECT_EQ(word(vsan_manager(127, 1, timer_record(7, 1, 10)).data, 4), 3000u);
    EXPECT_EQ(word(vsan_manager(127, 1, timer_record(8, 1, 20)).data, 4), 10000u);
}

TEST_F(Requests, TimerAnswerRepeatsWhatTheRequestSaysBesidesTheValue) {
    Buffer record;
    append_timer_record(record, {8, 77, 1, 1, 10, 0xab});
    Buffer expected;
    append_timer_record(expected, {8, 20000, 1, 1, 10, 0xab});
    EXPECT_EQ(vsan_manager(127, 1, record).data, expected);
}

TEST_F(Requests, TimerKey0OfAVsanHasValue0WhenTheVsanExists) {
    settings().tdx_enabled = true;
    for (const uint32_t kind : {1u, 5u}) {
        const Reply &reply = vsan_manager(127, kind, timer_record(0, 1, 10));
        ASSERT_EQ(reply.status, STATUS_SUCCESS) << kind;
        EXPECT_EQ(word(reply.data, 4), 0u);
        EXPECT_EQ(vsan_manager(127, kind, timer_record(0, 1, 11)).status, STATUS_NO_SUCH_VSAN) << kind;
    }
}

TEST_F(Requests, TimerOfAVsanThatIsNotThereIsRefused) {
    EXPECT_EQ(vsan_manager(127, 1, timer_record(8, 1, 11)).status, STATUS_NO_SUCH_VSAN);
    EXPECT_EQ(vsan_manager(127, 1, timer_record(8, 1, 0)).status, STATUS_VSAN_OUT_OF_RANGE);
    EXPECT_EQ(vsan_manager(127, 1, timer_record(8, 1, 4096)).status, STATUS_VSAN_OUT_OF_RANGE);
}

TEST_F(Requests, TimerRecordWithAFieldThatCannotBeIsRefused) {
    EXPECT_EQ(vsan_manager(127, 1, timer_record(0, 0, 0)).status, STATUS_BAD_RECORD) << "switch-wide, no key";
    EXPECT_EQ(vsan_manager(127, 1, timer_record(6, 0, 0)).status, STATUS_BAD_RECORD);
    EXPECT_EQ(vsan_manager(127, 1, timer_record(11, 1, 10)).status, STATUS_BAD_RECORD);
    EXPECT_EQ(vsan_manager(127, 1, timer_record(8, 2, 10)).status, STATUS_BAD_RECORD);
    EXPECT_EQ(vsan_manager(127, 1, timer_record(8, 0, 10)).status, STATUS_BAD_RECORD) << "switch-wide, yet a VSAN";
}

TEST_F(Requests, DistributedTimerIsRefusedUnlessTheServiceGoverns) {
    EXPECT_EQ(vsan_manager(127, 5, timer_record(8, 1, 10)).status, STATUS_TDX_REFUSED);
    settings().tdx_enabled = true;
    settings().tdx_show_run = true;
    EXPECT_EQ(vsan_manager(127, 5, timer_record(8, 0, 0)).status, STATUS_TDX_REFUSED);
}

TEST_F(Requests, DistributedTimersAreARecordOfTheirOwnThatMayLackAVsan) {
    target_.model = SwitchModel(parse_configuration(
        R"({"vsans": [{"id": 10, "timers": {"ratov": 20000}}],
            "tdx": {"fctimer": {"enabled": true, "timers": {"10": {"ratov": 30000}}}}})",
        "test"));
    EXPECT_EQ(word(vsan_manager(127, 5, timer_record(8, 1, 10)).data, 4), 30000u);
    EXPECT_EQ(word(vsan_manager(127, 1, timer_record(8, 1, 10)).data, 4), 20000u);
    EXPECT_EQ(vsan_manager(127, 5, timer_record(7, 1, 10)).status, STATUS_NO_SUCH_ATTRIBUTE);
    EXPECT_EQ(vsan_manager(127, 5, timer_record(8, 1, 1)).status, STATUS_NO_SUCH_ATTRIBUTE);
    EXPECT_EQ(word(vsan_manager(127, 5, timer_record(8, 0, 0)).data, 4), 10000u) << "switch-wide";
}

TEST_F(Requests, InterfaceRecordLeavesTheRowStatusInMachineOrder) {
    const Reply &reply = vsan_manager(124, 1, words({16781312, 0, 0, 0}));
    ASSERT_EQ(reply.data.size(), 16u);
    EXPECT_EQ(word(reply.data, 0), 16781312u);
    EXPECT_EQ(word(reply.data, 4), 10u);
    EXPECT_EQ(word(reply.data, 8), 7u);
    uint32_t row_status = 0;
    std::memcpy(&row_status, &reply.data[12], 4);
    EXPECT_EQ(row_status, 1u);
}

TEST_F(Requests, InterfaceGetNextIsOrderedUnsignedAndEnds) {
    std::vector<uint32_t> seen;
    uint32_t if_index = 0;
    while (seen.size() < 10 && vsan_manager(124, 2, words({if_index, 0, 0, 0})).status == 0) {
        seen.push_back(if_index = word(reply_.data, 0));
    }
    EXPECT_EQ(seen, (std::vector<uint32_t>{5, 16777216, 16781312, 4294967295}));
    EXPECT_EQ(reply_.status, STATUS_NO_MORE_INTERFACES);
    EXPECT_EQ(word(vsan_manager(124, 2, words({4294967294, 0, 0, 0})).data, 0), 4294967295u);
    EXPECT_EQ(vsan_manager(124, 1, words({6, 0, 0, 0})).status, STATUS_NO_SUCH_INTERFACE);
    EXPECT_EQ(vsan_manager(124, 1, words({0, 0, 0, 0})).status, STATUS_NO_SUCH_INTERFACE);
}

TEST_F(Requests, SwitchNameIsEightBytesAndDiffersBetweenSwitches) {
    SwitchData one = empty_configuration();
    SwitchData other = empty_configuration();
    give_identity(one);
    give_identity(other);
    target_.model = SwitchModel(one);
    const Buffer name = ask(MANAGER_SAP_PORT, 1282, 1, {}).data;
    ASSERT_EQ(name.size(), 8u);
    EXPECT_NE(name, Buffer(8));
    EXPECT_EQ(ask(MANAGER_SAP_PORT, 1282, 1, {}).data, name);
    target_.model = SwitchModel(other);
    EXPECT_NE(ask(MANAGER_SAP_PORT, 1282, 1, {}).data, name);
}

TEST_F(Requests, MembershipIsOrderedByVsanAndThenInterface) {
    std::vector<std::pair<uint32_t, uint32_t>> seen;
    uint32_t vsan = 0;
    uint32_t if_index = 0;
    while (seen.size() < 10 &&
           ask(MANAGER_SAP_PORT, MTS_OP_PORT_MEMBERSHIP, 2, words({vsan, if_index, 0})).status == 0) {
        vsan = word(reply_.data, 0);
        if_index = word(reply_.data, 4);
        EXPECT_EQ(word(reply_.data, 8), 1u) << "configured";
        seen.emplace_back(vsan, if_index);
    }
    const std::vector<std::pair<uint32_t, uint32_t>> expected = {
        {10, 5}, {10, 16781312}, {20, 16777216}, {4095, 4294967295}};
    EXPECT_EQ(seen, expected);
    EXPECT_EQ(reply_.status, STATUS_NO_MORE_MEMBERSHIPS);
}

TEST_F(Requests, MembershipGetNextMayStartAnywhere) {
    const auto after = [&](uint32_t vsan, uint32_t if_index) {
        const Reply &reply = ask(MANAGER_SAP_PORT, MTS_OP_PORT_MEMBERSHIP, 2, words({vsan, if_index, 0}));
        return reply.status ? std::pair(0u, 0u) : std::pair(word(reply.data, 0), word(reply.data, 4));
    };
    EXPECT_EQ(after(10, 0), std::pair(10u, 5u));
    EXPECT_EQ(after(10, 6), std::pair(10u, 16781312u));
    EXPECT_EQ(after(10, 0xffffffff), std::pair(20u, 16777216u));
    EXPECT_EQ(after(11, 0), std::pair(20u, 16777216u));
    EXPECT_EQ(after(0xffffffff, 0xffffffff), std::pair(0u, 0u));
}

TEST_F(Requests, MembershipGetWantsThatVeryPair) {
    EXPECT_EQ(ask(MANAGER_SAP_PORT, MTS_OP_PORT_MEMBERSHIP, 1, words({10, 5, 0})).data, words({10, 5, 1}));
    EXPECT_EQ(ask(MANAGER_SAP_PORT, MTS_OP_PORT_MEMBERSHIP, 1, words({20, 5, 0})).status, STATUS_NO_SUCH_MEMBERSHIP);
    EXPECT_EQ(ask(MANAGER_SAP_PORT, MTS_OP_PORT_MEMBERSHIP, 1, words({0, 0, 0})).status, STATUS_NO_SUCH_MEMBERSHIP);
}

TEST_F(Requests, ChangesOfTheWrongLengthAreRefused) {
    const std::tuple<uint32_t, uint32_t, uint32_t> changes[] = {
        {124, 3, 16}, {127, 3, 15}, {136, 3, 12}, {140, 3, 4}, {149, 3, 2632}, {149, 4, 2632}, {8018, 3, 4}};
    for (const auto &[opcode, kind, size] : changes) {
        EXPECT_EQ(vsan_manager(opcode, kind, Buffer(size - 1)).status, STATUS_BAD_LENGTH) << opcode;
        EXPECT_EQ(vsan_manager(opcode, kind, Buffer(size + 1)).status, STATUS_BAD_LENGTH) << opcode;
        EXPECT_EQ(vsan_manager(opcode, kind, {}, size).status, STATUS_BAD_LENGTH) << opcode;
    }
}

TEST_F(Requests, WrongLengthIsRefusedForEveryRequestWithAPayload) {
    const std::tuple<uint32_t, uint32_t, uint32_t, uint32_t> reads[] = {
        {MANAGER_SAP_VSAN, 124, 1, 16},
        {MANAGER_SAP_VSAN, 124, 2, 16},
        {MANAGER_SAP_VSAN, 127, 1, 15},
        {MANAGER_SAP_VSAN, 127, 5, 15},
        {MANAGER_SAP_VSAN, 136, 1, 12},
        {MANAGER_SAP_VSAN, 149, 1, 2632},
        {MANAGER_SAP_VSAN, 149, 2, 2632},
        {MANAGER_SAP_PORT, MTS_OP_PORT_MEMBERSHIP, 1, 12},
        {MANAGER_SAP_PORT, MTS_OP_PORT_MEMBERSHIP, 2, 12}};
    for (const auto &[service, opcode, kind, size] : reads) {
        EXPECT_EQ(ask(service, opcode, kind, Buffer(size - 1)).status, STATUS_BAD_LENGTH) << opcode;
        EXPECT_EQ(ask(service, opcode, kind, Buffer(size + 1)).status, STATUS_BAD_LENGTH) << opcode;
        EXPECT_EQ(ask(service, opcode, kind, {}).status, STATUS_BAD_LENGTH) << opcode;
        EXPECT_EQ(ask(service, opcode, kind, {}, size).status, STATUS_BAD_LENGTH)
            << opcode << ", length without payload";
    }
}

TEST_F(Requests, WrongLengthIsRefusedForEveryRequestWithoutPayload) {
    const std::tuple<uint32_t, uint32_t, uint32_t> reads[] = {
        {MANAGER_SAP_VSAN, 125, 4}, {MANAGER_SAP_VSAN, 126, 8},  {MANAGER_SAP_VSAN, 128, 4},
        {MANAGER_SAP_VSAN, 140, 4}, {MANAGER_SAP_PORT, 1282, 0}, {MTS_SERVICE_SWITCH, MTS_OP_SWITCH_COUNTERS, 0}};
    for (const auto &[service, opcode, length] : reads) {
        EXPECT_EQ(ask(service, opcode, 1, {}, length).status, STATUS_SUCCESS) << opcode;
        EXPECT_EQ(ask(service, opcode, 1, {}, length + 1).status, STATUS_BAD_LENGTH) << opcode;
        EXPECT_EQ(ask(service, opcode, 1, Buffer(4)).status, STATUS_BAD_LENGTH) << opcode;
    }
}

TEST_F(Requests, UnknownServiceOpcodeAndKindHaveDistinctStatuses) {
    EXPECT_EQ(ask(0, 149, 1, vsan_block(1)).status, STATUS_NO_SUCH_SERVICE);
    EXPECT_EQ(ask(16, 149, 1, vsan_block(1)).status, STATUS_NO_SUCH_SERVICE);
    EXPECT_EQ(vsan_manager(123, 1, {}).status, STATUS_NO_SUCH_OPCODE);
    EXPECT_EQ(vsan_manager(1282, 1, {}).status, STATUS_NO_SUCH_OPCODE) << "the port manager's";
    EXPECT_EQ(ask(MANAGER_SAP_PORT, 149, 1, vsan_block(1)).status, STATUS_NO_SUCH_OPCODE);
    for (const uint32_t kind : {0u, 5u, 6u, 0xffffffffu}) {
        EXPECT_EQ(vsan_manager(149, kind, vsan_block(1)).status, STATUS_NO_SUCH_KIND) << kind;
    }
    EXPECT_EQ(vsan_manager(125, 2, {}, 4).status, STATUS_NO_SUCH_KIND);
    EXPECT_EQ(vsan_manager(125, 3, {}, 4).status, STATUS_NO_SUCH_KIND);
    EXPECT_EQ(vsan_manager(8018, 1, Buffer(4)).status, STATUS_NO_SUCH_KIND);
}

TEST_F(Requests, DistributionStateIsThatOfTheFeature) {
    const auto state = [&](const char *feature) { return ask(MTS_SERVICE_TDX, 9201, 1, text_bytes(feature)).data; };
    EXPECT_EQ(state("fctimer"), words({0, 0}));
    settings().tdx_enabled = true;
    EXPECT_EQ(state("fctimer"), words({1, 0}));
    settings().tdx_show_run = true;
    EXPECT_EQ(state("fctimer"), words({1, 1}));
    EXPECT_EQ(state("other"), words({0, 0}));
    EXPECT_EQ(state(""), words({0, 0}));
}

TEST_F(Requests, RoleOfAUserWithoutOneIsUnrestricted) {
    const Reply &reply = ask(MTS_SERVICE_ROLES, 9101, 1, text_bytes("alice"));
    ASSERT_EQ(reply.data.size(), 520u);
    EXPECT_EQ(reply.data, Buffer(520));
    EXPECT_EQ(ask(MTS_SERVICE_ROLES, 9101, 1, Buffer(257, 'a')).status, STATUS_BAD_LENGTH);
}

TEST_F(Requests, RoleOfARestrictedUserCarriesBitmapAndRanges) {
    target_.roles = parse_roles(R"({"roles": [{"name": "r", "vsans": ["1", "8-9", "4095"],
                                               "interfaces": ["5", "16777216-16781312"], "users": ["alice"]}]})",
                                "test");
    const Reply &reply = ask(MTS_SERVICE_ROLES, 9101, 1, text_bytes("alice"));
    ASSERT_EQ(reply.data.size(), 536u);
    Buffer expected(516);
    store_word(expected, 0, 1);
    expected[4] = 0x40;       // VSAN 1
    expected[4 + 1] = 0xc0;   // VSANs 8 and 9
    expected[4 + 511] = 0x01; // VSAN 4095
    const Buffer ranges = words({2, 5, 5, 16777216, 16781312});
    expected.insert(expected.end(), ranges.begin(), ranges.end());
    EXPECT_EQ(reply.data, expected);
    EXPECT_EQ(word(ask(MTS_SERVICE_ROLES, 9101, 1, text_bytes("alic")).data, 0), 0u);
}

TEST_F(Requests, CountersCountByServiceOpcodeAndKindButNotThemselves) {
    vsan_manager(149, 1, vsan_block(1));
    vsan_manager(149, 1, vsan_block(99));
    vsan_manager(149, 2, vsan_block(1));
    ask(99, 1, 1, {});
    ask(MTS_SERVICE_SWITCH, 9001, 1, {});
    const Buffer &data = ask(MTS_SERVICE_SWITCH, 9001, 1, {}).data;
    EXPECT_EQ(std::string(data.begin(), data.end()),
              R"({"requests": [{"service": 15, "opcode": 149, "kind": 1, "count": 2}, )"
              R"({"service": 15, "opcode": 149, "kind": 2, "count": 1}, )"
              R"({"service": 99, "opcode": 1, "kind": 1, "count": 1}], )"
              R"("connections": 0, "dropped_connections": 0, "subscriptions": 0})");
}

TEST_F(Requests, CountersStayBoundedWhateverClientsAsk) {
    for (uint32_t opcode = 0; opcode < 100000; opcode += 10) {
        ask(77, opcode, 1, {});
    }
    EXPECT_LE(target_.counters.requests.size(), 257u);
    uint64_t total = 0;
    for (const auto &[key, count] : target_.counters.requests) {
        total += count;
    }
    EXPECT_EQ(total, 10000u);
}

} // namespace
