// SPDX-License-Identifier: Apache-2.0
// The ports as interfaces, and the switch as a system: what the port manager answers and takes, and
// what becomes of it.
#include <algorithm>
#include <thread>

#include "vswitch_changes_fixture.h"

using namespace vswitch;
using namespace vswitch_test;

namespace {

uint64_t double_word(const Buffer &bytes, size_t offset) {
    return uint64_t{word(bytes, offset)} << 32 | word(bytes, offset + 4);
}

std::string text(const Buffer &bytes, size_t offset) {
    const size_t length = word(bytes, offset);
    return {bytes.begin() + static_cast<ptrdiff_t>(offset) + 4,
            bytes.begin() + static_cast<ptrdiff_t>(offset + 4 + length)};
}

class PortRequests : public ChangeTest {
  protected:
    uint32_t ask(uint32_t opcode, uint32_t kind, const Buffer &payload, const std::string &user = "") {
        Request request;
        request.service = MTS_SERVICE_PORT;
        request.opcode = opcode;
        request.kind = kind;
        request.payload = payload;
        request.length = static_cast<uint32_t>(payload.size());
        request.user = user;
        answer_request(*target_, request, reply_);
        EXPECT_EQ(reply_.has_data, reply_.status == STATUS_SUCCESS && kind != MTS_KIND_SET);
        return reply_.status;
    }

    const Buffer &record(uint32_t if_index) {
        EXPECT_EQ(ask(MTS_OP_PORT, MTS_KIND_GET, words({if_index})), STATUS_SUCCESS) << if_index;
        return reply_.data;
    }

    uint32_t set_word_of(uint32_t if_index, uint32_t key, uint32_t value, const std::string &user = "") {
        return ask(MTS_OP_PORT, MTS_KIND_SET, words({if_index, key, value}), user);
    }

    uint32_t set_alias(uint32_t if_index, const std::string &alias, const std::string &user = "") {
        Buffer payload = words({if_index, PORT_SETTING_ALIAS});
        payload.insert(payload.end(), alias.begin(), alias.end());
        return ask(MTS_OP_PORT, MTS_KIND_SET, payload, user);
    }

    uint32_t set_text(uint32_t which, const std::string &value, const std::string &user = "") {
        Buffer payload = words({which});
        payload.insert(payload.end(), value.begin(), value.end());
        return ask(MTS_OP_SYSTEM, MTS_KIND_SET, payload, user);
    }

    void set_traffic(uint32_t if_index, const PortRates &rates) {
        Port port = data().ports.at(if_index);
        port.traffic = rates;
        ASSERT_EQ(vswitch::set_port(*target_, operator_, if_index, port), STATUS_SUCCESS);
    }
};

TEST_F(PortRequests, RecordHasItsFieldsAtTheirOffsets) {
    SwitchData changed = data();
    changed.settings.wwn = 0x1000021234567890;
    Port &port = changed.ports.at(103);
    port.enabled = false;
    port.alias = "to the tape";
    port.speed = 16000;
    port.traps = false;
    port.last_change = {1700000000, 999999};
    port.traffic = {1, 2, 3, 4, 5, 6, 7, 0xffffffff};
    target_->model = SwitchModel(changed);
    Buffer expected(PORT_RECORD_SIZE);
    const std::pair<size_t, uint32_t> fields[] = {
        {0, 103},     {4, 3},           {8, 2},           {12, 2},  {16, 16000},      {20, 2},  {24, 1700000000},
        {28, 999999}, {40, 0x20030212}, {44, 0x34567890}, {48, 11}, {136, 1},         {152, 2}, {168, 3},
        {184, 4},     {200, 5},         {216, 6},         {232, 7}, {248, 0xffffffff}};
    for (const auto &[offset, value] : fields) {
        store_word(expected, offset, value);
    }
    std::memcpy(&expected[52], "to the tape", 11);
    const Timestamp start = target_->clock.start();
    store_word(expected, 32, static_cast<uint32_t>(start.seconds));
    store_word(expected, 36, start.microseconds);
    const Buffer told = record(103);
    std::copy(told.begin() + PORT_RECORD_NOW, told.end(), expected.begin() + PORT_RECORD_NOW);
    EXPECT_EQ(told, expected);
    EXPECT_GE(double_word(told, PORT_RECORD_NOW), start.seconds << 32 | start.microseconds);
    const Timestamp now = target_->clock.now();
    EXPECT_LE(double_word(told, PORT_RECORD_NOW), now.seconds << 32 | now.microseconds);
}

TEST_F(PortRequests, PortIsInServiceWithoutAliasAndTrafficUntilSomebodySaysOtherwise) {
    const Buffer port = record(101);
    EXPECT_EQ(word(port, PORT_RECORD_ADMIN), uint32_t{PORT_UP});
    EXPECT_EQ(word(port, PORT_RECORD_OPER), uint32_t{PORT_UP});
    EXPECT_EQ(word(port, PORT_RECORD_SPEED), 8000u);
    EXPECT_EQ(word(port, PORT_RECORD_TRAPS), uint32_t{PORT_TRAPS_ENABLED});
    EXPECT_EQ(text(port, PORT_RECORD_ALIAS_LENGTH), "");
    EXPECT_EQ(double_word(port, PORT_RECORD_LAST_CHANGE), 0u) << "never";
    for (size_t at = PORT_RECORD_COUNTERS; at < PORT_RECORD_NOW; at += 8) {
        EXPECT_EQ(double_word(port, at), 0u) << at;
    }
}

TEST_F(PortRequests, GetNextIsOrderedUnsignedAndEnds) {
    std::vector<uint32_t> seen, numbers;
    uint32_t if_index = 0;
    while (seen.size() < 10 && ask(MTS_OP_PORT, MTS_KIND_GET_NEXT, words({if_index})) == STATUS_SUCCESS) {
        seen.push_back(if_index = word(reply_.data, PORT_RECORD_IF_INDEX));
        numbers.push_back(word(reply_.data, PORT_RECORD_NUMBER));
    }
    EXPECT_EQ(seen, (std::vector<uint32_t>{101, 102, 103, 104, 105, 106}));
    EXPECT_EQ(numbers, (std::vector<uint32_t>{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(reply_.status, STATUS_NO_MORE_INTERFACES);
    EXPECT_EQ(ask(MTS_OP_PORT, MTS_KIND_GET_NEXT, words({0xffffffff})), STATUS_NO_MORE_INTERFACES);
}

TEST_F(PortRequests, PortThatDoesNotExistIsRefused) {
    const SwitchData before = data();
    for (const uint32_t if_index : {0u, 100u, 107u, 0xffffffffu}) {
        EXPECT_EQ(ask(MTS_OP_PORT, MTS_KIND_GET, words({if_index})), STATUS_NO_SUCH_INTERFACE) << if_index;
        EXPECT_EQ(set_word_of(if_index, PORT_SETTING_ADMIN, PORT_DOWN), STATUS_NO_SUCH_INTERFACE) << if_index;
        EXPECT_EQ(set_alias(if_index, "x"), STATUS_NO_SUCH_INTERFACE) << if_index;
    }
    EXPECT_EQ(data(), before);
}

TEST_F(PortRequests, SettingsAreKept) {
    ASSERT_EQ(set_word_of(101, PORT_SETTING_ADMIN, PORT_DOWN), STATUS_SUCCESS);
    ASSERT_EQ(set_word_of(101, PORT_SETTING_TRAPS, PORT_TRAPS_DISABLED), STATUS_SUCCESS);
    ASSERT_EQ(set_alias(101, "Bandarchiv f\xc3\xbcr alle"), STATUS_SUCCESS);
    const Buffer before = record(101);
    EXPECT_EQ(word(before, PORT_RECORD_ADMIN), uint32_t{PORT_DOWN});
    EXPECT_EQ(word(before, PORT_RECORD_OPER), uint32_t{PORT_DOWN});
    EXPECT_EQ(word(before, PORT_RECORD_TRAPS), uint32_t{PORT_TRAPS_DISABLED});
    EXPECT_EQ(text(before, PORT_RECORD_ALIAS_LENGTH), "Bandarchiv f\xc3\xbcr alle");
    const Port port = data().ports.at(101);
    EXPECT_EQ(restarted().ports.at(101), port);
    ASSERT_EQ(set_alias(101, ""), STATUS_SUCCESS);
    ASSERT_EQ(set_word_of(101, PORT_SETTING_ADMIN, PORT_UP), STATUS_SUCCESS);
    EXPECT_EQ(restarted().ports.at(101).alias, "");
    EXPECT_TRUE(data().ports.at(101).is_up());
}

TEST_F(PortRequests, ValueThatTheSettingCannotHaveIsRefused) {
    const SwitchData before = data();
    for (const uint32_t value : {0u, 3u, 0x80000001u, 0xffffffffu}) { // 3 is testing
        EXPECT_EQ(set_word_of(101, PORT_SETTING_ADMIN, value), STATUS_BAD_RECORD) << value;
        EXPECT_EQ(set_word_of(101, PORT_SETTING_TRAPS, value), STATUS_BAD_RECORD) << value;
    }
    for (const uint32_t key : {0u, 4u, 0xffffffffu}) {
        EXPECT_EQ(set_word_of(101, key, 1), STATUS_BAD_RECORD) << key;
    }
    EXPECT_EQ(data(), before);
}

TEST_F(PortRequests, SettingOfTheWrongLengthIsRefused) {
    const SwitchData before = data();
    for (const uint32_t key : {uint32_t{PORT_SETTING_ADMIN}, uint32_t{PORT_SETTING_TRAPS}}) {
        for (const size_t size : {0u, 4u, 7u, 8u, 11u, 13u, 16u, 72u, 73u}) {
            Buffer payload = words({101, key, 2});
            payload.resize(size);
            EXPECT_EQ(ask(MTS_OP_PORT, MTS_KIND_SET, payload), STATUS_BAD_LENGTH) << key << " " << size;
        }
    }
    EXPECT_EQ(set_alias(101, std::string(65, 'x')), STATUS_BAD_LENGTH);
    EXPECT_EQ(ask(MTS_OP_PORT, MTS_KIND_GET, {}), STATUS_BAD_LENGTH);
    EXPECT_EQ(ask(MTS_OP_PORT, MTS_KIND_GET_NEXT, Buffer(8)), STATUS_BAD_LENGTH);
    EXPECT_EQ(ask(MTS_OP_PORT, MTS_KIND_DELETE, words({101})), STATUS_NO_SUCH_KIND);
    EXPECT_EQ(data(), before);
}

// Text that nobody could show: no UTF-8, longer than it need be, a half of a pair, beyond the last
// character, or one that moves the cursor.
const std::string bad_texts[] = {"\x80",
                                 "a\xff",
                                 "\xc3",
                                 "\xc3(",
                                 "\xc0\x80",
                                 "\xe0\x80\xaf",
                                 "\xed\xa0\x80",
                                 "\xf4\x90\x80\x80",
                                 "\xf8\x88\x80\x80\x80",
                                 std::string("a\0b", 3),
                                 "two\nlines",
                                 "\x1b[2J",
                                 "\x7f",
                                 "\xc2\x9b"};
const std::string good_texts[] = {"",         "plain",       "f\xc3\xbcr", "\xe2\x82\xac", "\xf0\x9f\x94\x8c",
                                  "\xc2\xa0", "\xef\xbf\xbd"};

TEST_F(PortRequests, AliasIsUtf8WithoutControlCharacters) {
    const SwitchData before = data();
    for (const std::string &alias : bad_texts) {
        EXPECT_EQ(set_alias(101, alias), STATUS_BAD_RECORD) << testing::PrintToString(alias);
    }
    EXPECT_EQ(data(), before);
    for (const std::string &alias : good_texts) {
        EXPECT_EQ(set_alias(101, alias), STATUS_SUCCESS) << alias;
        EXPECT_EQ(text(record(101), PORT_RECORD_ALIAS_LENGTH), alias);
    }
}

TEST_F(PortRequests, LongestAliasFillsItsField) {
    const std::string longest(64, 'x');
    ASSERT_EQ(set_alias(101, longest), STATUS_SUCCESS);
    EXPECT_EQ(text(record(101), PORT_RECORD_ALIAS_LENGTH), longest);
    EXPECT_EQ(restarted().ports.at(101).alias, longest);
}

TEST_F(PortRequests, RestrictedUserSetsOwnPortsOnly) {
    EXPECT_EQ(set_alias(101, "mine", "alice"), STATUS_SUCCESS);
    EXPECT_EQ(set_word_of(103, PORT_SETTING_ADMIN, PORT_DOWN, "alice"), STATUS_SUCCESS);
    const SwitchData before = data();
    EXPECT_EQ(set_alias(104, "not mine", "alice"), STATUS_INTERFACE_RESTRICTED);
    EXPECT_EQ(set_word_of(104, PORT_SETTING_ADMIN, PORT_DOWN, "alice"), STATUS_INTERFACE_RESTRICTED);
    EXPECT_EQ(set_word_of(107, PORT_SETTING_ADMIN, PORT_DOWN, "alice"), STATUS_INTERFACE_RESTRICTED);
    EXPECT_EQ(set_text(SYSTEM_NAME, "alices", "alice"), STATUS_SWITCH_RESTRICTED);
    EXPECT_EQ(data(), before);
}

TEST_F(PortRequests, PortOutOfServiceCountsAsDownForItsVsan) {
    ASSERT_TRUE(target_->model.is_up(10));
    ASSERT_EQ(set_word_of(101, PORT_SETTING_ADMIN, PORT_DOWN), STATUS_SUCCESS);
    EXPECT_TRUE(target_->model.is_up(10)) << "port 102 is up";
    ASSERT_EQ(set_word_of(102, PORT_SETTING_ADMIN, PORT_DOWN), STATUS_SUCCESS);
    EXPECT_FALSE(target_->model.is_up(10));
    ASSERT_EQ(set_link(*target_, operator_, 101, false), STATUS_SUCCESS);
    ASSERT_EQ(set_word_of(101, PORT_SETTING_ADMIN, PORT_UP), STATUS_SUCCESS);
    EXPECT_FALSE(target_->model.is_up(10)) << "its cable is not in";
    EXPECT_EQ(word(record(101), PORT_RECORD_OPER), uint32_t{PORT_DOWN});
    ASSERT_EQ(set_link(*target_, operator_, 101, true), STATUS_SUCCESS);
    EXPECT_TRUE(target_->model.is_up(10));
    EXPECT_FALSE(restarted().ports.at(102).is_up());
    EXPECT_TRUE(target_->model.is_up(10));
}

TEST_F(PortRequests, LastChangeIsThatOfTheOperationalState) {
    const auto last_change = [&] { return double_word(record(104), PORT_RECORD_LAST_CHANGE); };
    ASSERT_EQ(set_word_of(104, PORT_SETTING_ADMIN, PORT_DOWN), STATUS_SUCCESS);
    ASSERT_EQ(set_alias(104, "x"), STATUS_SUCCESS);
    EXPECT_EQ(last_change(), 0u) << "it was down and is down";
    ASSERT_EQ(set_word_of(104, PORT_SETTING_ADMIN, PORT_UP), STATUS_SUCCESS);
    const Timestamp before = target_->clock.now();
    ASSERT_EQ(set_link(*target_, operator_, 104, true), STATUS_SUCCESS);
    const uint64_t changed = last_change();
    const Timestamp noted = data().ports.at(104).last_change;
    EXPECT_EQ(changed, noted.seconds << 32 | noted.microseconds);
    EXPECT_GE(noted, before);
    EXPECT_LE(noted, target_->clock.now());
    ASSERT_EQ(set_port(104, 10), STATUS_SUCCESS);
    EXPECT_EQ(last_change(), changed) << "in another VSAN the link is the same";
    EXPECT_EQ(restarted().ports.at(104).last_change, noted);
}

TEST_F(PortRequests, LastChangeOfARunWhoseClockWasAheadIsTheStart) {
    SwitchData changed = data();
    changed.ports.at(101).last_change = {0xfffffff0, 0};
    target_->model = SwitchModel(changed);
    EXPECT_EQ(word(record(101), PORT_RECORD_LAST_CHANGE), target_->clock.start().seconds);
}

TEST_F(PortRequests, CountersGrowFromTheirBaseWhileThePortIsUp) {
    const Timestamp start = target_->clock.start();
    const uint64_t since_start = start.seconds << 32 | start.microseconds;
    EXPECT_EQ(double_word(record(101), PORT_RECORD_SINCE), since_start);
    EXPECT_EQ(double_word(record(104), PORT_RECORD_SINCE), 0u) << "without link";

    set_traffic(101, {1000000, 0, 0, 0, 0, 0, 0, 0});
    const Buffer running = record(101);
    EXPECT_GT(double_word(running, PORT_RECORD_SINCE), since_start);
    EXPECT_EQ(double_word(running, PORT_RECORD_COUNTERS), 0u) << "there was no traffic before";
    EXPECT_EQ(double_word(running, PORT_RECORD_COUNTERS + 8), 1000000u);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));

    ASSERT_EQ(set_link(*target_, operator_, 101, false), STATUS_SUCCESS);
    const Buffer stopped = record(101);
    EXPECT_EQ(double_word(stopped, PORT_RECORD_SINCE), 0u);
    const uint64_t counted = double_word(stopped, PORT_RECORD_COUNTERS);
    EXPECT_GE(counted, 5000u) << "a unit a microsecond";
    EXPECT_LT(counted, 60000000u);
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    ASSERT_EQ(set_link(*target_, operator_, 101, true), STATUS_SUCCESS);
    EXPECT_EQ(double_word(record(101), PORT_RECORD_COUNTERS), counted) << "nothing while the cable was out";
    EXPECT_NE(double_word(record(101), PORT_RECORD_SINCE), 0u);
    EXPECT_EQ(double_word(record(101), PORT_RECORD_DISCONTINUITY), since_start) << "they only ever grow";
}

TEST_F(PortRequests, TrafficIsKeptAndItsCountersBeginAnew) {
    const PortRates rates = {1, 0, 3, 0, 0xffffffff, 0, 0, 8};
    set_traffic(101, rates);
    EXPECT_EQ(restarted().ports.at(101).traffic, rates);
    const Buffer port = record(101);
    for (size_t counter = 0; counter < PORT_COUNTER_COUNT; ++counter) {
        EXPECT_EQ(double_word(port, PORT_RECORD_COUNTERS + 16 * counter), 0u);
        EXPECT_EQ(double_word(port, PORT_RECORD_COUNTERS + 16 * counter + 8), rates[counter]);
    }
    set_traffic(101, {});
    EXPECT_EQ(restarted().ports.at(101).traffic, PortRates{});
}

TEST(Traffic, CountersFollowFromRatesAndTimeAlone) {
    Port port;
    port.traffic = {3, 0, 0, 0, 4294967295, 0, 0, 0};
    Traffic traffic({100, 900000});
    traffic.settle(1, port, {102, 100000});
    const PortCount first = traffic.of(1, port);
    EXPECT_EQ(first.since, (Timestamp{102, 100000}));
    EXPECT_EQ(first.base[PORT_COUNTER_IN_OCTETS], 3u) << "1.2 seconds, in whole units";
    EXPECT_EQ(first.base[PORT_COUNTER_OUT_OCTETS], 5153960754u);
    traffic.settle(1, port, {1000000102, 100000});
    EXPECT_EQ(traffic.of(1, port).base[PORT_COUNTER_OUT_OCTETS], 5153960754u + 4294967295u * uint64_t{1000000000});
    port.enabled = false;
    traffic.settle(1, port, {2000000000, 0});
    EXPECT_EQ(traffic.of(1, port).base[PORT_COUNTER_IN_OCTETS], 3000000003u);
    EXPECT_EQ(traffic.of(1, port).since, Timestamp());
    EXPECT_EQ(traffic.of(2, port).base, PortCount().base);
}

TEST_F(PortRequests, SystemRecordHasItsTextsAndTheName) {
    ASSERT_EQ(ask(MTS_OP_SYSTEM, MTS_KIND_GET, {}), STATUS_SUCCESS);
    ASSERT_EQ(reply_.data.size(), 788u);
    EXPECT_EQ(text(reply_.data, 0), "");
    EXPECT_EQ(text(reply_.data, 260), "vswitch");
    EXPECT_EQ(text(reply_.data, 520), "");
    EXPECT_EQ(double_word(reply_.data, 780), data().settings.wwn);
    EXPECT_EQ(ask(MTS_OP_SYSTEM, MTS_KIND_GET, words({1})), STATUS_BAD_LENGTH);
}

TEST_F(PortRequests, SystemTextsAreKept) {
    const std::string longest(255, 'y');
    ASSERT_EQ(set_text(SYSTEM_CONTACT, "alice@example.net"), STATUS_SUCCESS);
    ASSERT_EQ(set_text(SYSTEM_NAME, ""), STATUS_SUCCESS);
    ASSERT_EQ(set_text(SYSTEM_LOCATION, longest), STATUS_SUCCESS);
    EXPECT_EQ(restarted().settings.system, (SystemTexts{"alice@example.net", "", longest}));
    ASSERT_EQ(ask(MTS_OP_SYSTEM, MTS_KIND_GET, {}), STATUS_SUCCESS);
    EXPECT_EQ(text(reply_.data, 0), "alice@example.net");
    EXPECT_EQ(text(reply_.data, 260), "");
    EXPECT_EQ(text(reply_.data, 520), longest);
}

TEST_F(PortRequests, SystemTextThatIsNoneIsRefused) {
    const SwitchData before = data();
    for (const std::string &value : bad_texts) {
        EXPECT_EQ(set_text(SYSTEM_LOCATION, value), STATUS_BAD_RECORD) << testing::PrintToString(value);
    }
    EXPECT_EQ(set_text(SYSTEM_NAME, std::string(256, 'y')), STATUS_BAD_LENGTH);
    EXPECT_EQ(set_text(SYSTEM_TEXT_COUNT, "x"), STATUS_BAD_RECORD);
    EXPECT_EQ(set_text(0xffffffff, "x"), STATUS_BAD_RECORD);
    EXPECT_EQ(ask(MTS_OP_SYSTEM, MTS_KIND_SET, Buffer(3)), STATUS_BAD_LENGTH);
    EXPECT_EQ(data(), before);
}

TEST_F(PortRequests, ChangeThatCannotBeWrittenChangesNothing) {
    const SwitchData before = data();
    {
        const FullDisk disk;
        EXPECT_EQ(set_alias(101, "x"), STATUS_STORE_FAILED);
        EXPECT_EQ(set_word_of(101, PORT_SETTING_ADMIN, PORT_DOWN), STATUS_STORE_FAILED);
        EXPECT_EQ(set_text(SYSTEM_NAME, "x"), STATUS_STORE_FAILED);
    }
    EXPECT_EQ(data(), before);
    EXPECT_EQ(restarted(), before);
}

TEST(Identity, NameOfANewSwitchHasAnAddressThatIsNoMakers) {
    for (int switches = 0; switches < 64; ++switches) {
        SwitchData fresh = empty_configuration();
        give_identity(fresh);
        EXPECT_EQ(fresh.settings.wwn >> 48, 0x1000u) << "NAA 1";
        EXPECT_EQ(fresh.settings.wwn >> 40 & 3, 2u) << "locally administered, and no group";
        EXPECT_EQ(port_wwn(fresh.settings.wwn, 48), (fresh.settings.wwn & 0xffffffffffff) | 0x2030000000000000);
    }
}

TEST(Identity, PortsOfASwitchHaveNamesOfTheirOwn) {
    std::set<uint64_t> names;
    for (uint32_t number = 1; number <= 4096; ++number) {
        names.insert(port_wwn(0x3aaaaaaaaaaaaaaa, number));
    }
    EXPECT_EQ(names.size(), 4096u);
    EXPECT_EQ(port_wwn(0x3fffffffffffffff, 1), 0x2001feffffffffffu) << "whatever kind of name the switch has";
}

TEST_F(PortRequests, PortsAreNumberedInTheOrderOfTheirIndexes) {
    for (uint32_t number = 1; number <= 6; ++number) {
        EXPECT_EQ(target_->model.port_number(100 + number), number);
        EXPECT_EQ(target_->model.port_numbered(number), 100 + number);
    }
    EXPECT_FALSE(target_->model.port_numbered(0));
    EXPECT_FALSE(target_->model.port_numbered(7));
}

} // namespace
