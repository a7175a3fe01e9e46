// SPDX-License-Identifier: Apache-2.0
#include <ctime>

#include <gtest/gtest.h>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include "contract/big_endian.h"
#include "contract/status_codes.h"
#include "port.h"
#include "switchmib_fake_platform.h"

namespace {

using namespace switch_agent;

class PortTest : public testing::Test {
  protected:
    void SetUp() override {
        reset_fake_platform();
        for (uint32_t if_index : {10u, 20u, 30u, 40u}) {
            fake_platform.ports[if_index] = port_record(if_index);
        }
    }
};

bool decode(const PortRecord &record, Port &port) {
    uint8_t bytes[PORT_RECORD_SIZE];
    std::copy(record.begin(), record.end(), bytes);
    return port_decode(bytes, port);
}

// So many seconds before now.
Moment seconds_ago(int seconds) {
    return {static_cast<uint32_t>(time(nullptr) - seconds), 0};
}

// An agent that was started so many seconds ago.
void start_agent_before(int seconds) {
    timeval start = {time(nullptr) - seconds, 0};
    netsnmp_set_agent_starttime(&start);
}

TEST_F(PortTest, EveryFieldOfARecordIsReadFromItsPlace) {
    PortRecord record = port_record(7);
    for (size_t i = PORT_RECORD_LAST_CHANGE; i < record.size(); ++i) {
        record[i] = static_cast<uint8_t>(i);
    }
    write_be32(&record[PORT_RECORD_ALIAS_LENGTH], PORT_ALIAS_MAX);
    Port port;
    ASSERT_TRUE(decode(record, port));
    EXPECT_EQ(port.if_index, 7u);
    EXPECT_EQ(port.number, 7u);
    EXPECT_EQ(port.speed, PORT_SPEED_DEFAULT);
    EXPECT_EQ(port.last_change.seconds, 0x18191a1bu);
    EXPECT_EQ(port.last_change.microseconds, 0x1c1d1e1fu);
    EXPECT_EQ(port.discontinuity.seconds, 0x20212223u);
    EXPECT_EQ(port.wwn[0], 0x28);
    EXPECT_EQ(port.wwn[7], 0x2f);
    EXPECT_EQ(port.alias[0], 0x34);
    EXPECT_EQ(port.since.seconds, 0x74757677u);
    EXPECT_EQ(port.now.seconds, 0xfcfdfeffu);
    EXPECT_EQ(port.counters[0].base, 0x7c7d7e7f80818283u);
    EXPECT_EQ(port.counters[0].rate, 0x8485868788898a8bu);
    EXPECT_EQ(port.counters[PORT_COUNTER_OUT_DISCARDS].rate, 0xf4f5f6f7f8f9fafbu);
}

TEST_F(PortTest, ARecordWithAValueThatNoPortHasIsNone) {
    const std::pair<port_record_at, uint32_t> wrong[] = {
        {PORT_RECORD_ADMIN, 0}, {PORT_RECORD_ADMIN, 3}, {PORT_RECORD_OPER, 0},          {PORT_RECORD_OPER, 7},
        {PORT_RECORD_TRAPS, 0}, {PORT_RECORD_TRAPS, 3}, {PORT_RECORD_ALIAS_LENGTH, 65}, {PORT_RECORD_ALIAS_LENGTH, ~0u},
    };
    Port port;
    EXPECT_TRUE(decode(port_record(7), port));
    for (const auto &[at, word] : wrong) {
        PortRecord record = port_record(7);
        write_be32(&record[at], word);
        EXPECT_FALSE(decode(record, port)) << at << " " << word;
    }
}

TEST_F(PortTest, ACounterIsItsBaseWhileItDoesNotCount) {
    Port port = {};
    port.now = {5000, 0};
    port.counters[PORT_COUNTER_IN_OCTETS] = {5, 1000};
    EXPECT_EQ(port_counter_value(port, PORT_COUNTER_IN_OCTETS), 5u);
    port.since = {5000, 1};
    EXPECT_EQ(port_counter_value(port, PORT_COUNTER_IN_OCTETS), 5u);
}

TEST_F(PortTest, ACounterGrowsByItsRateAndBeginsAgainBehindItsLastValue) {
    Port port = {};
    port.since = {4950, 500000};
    port.now = {5000, 0};
    port.counters[PORT_COUNTER_IN_OCTETS] = {5, 1000};
    port.counters[PORT_COUNTER_OUT_OCTETS] = {UINT64_MAX, UINT32_MAX};
    EXPECT_EQ(port_counter_value(port, PORT_COUNTER_IN_OCTETS), 5 + 49500u);
    EXPECT_EQ(port_counter_value(port, PORT_COUNTER_OUT_OCTETS), 49 * uint64_t{UINT32_MAX} + UINT32_MAX / 2 - 1);
}

TEST_F(PortTest, ACounterGoesByTheSwitchsClockAlone) {
    Port port = {};
    port.since = {100, 0};
    port.now = {200, 0};
    port.counters[PORT_COUNTER_IN_OCTETS] = {0, 3};
    for (const int age : {0, 50, 1000}) {
        start_agent_before(age);
        EXPECT_EQ(port_counter_value(port, PORT_COUNTER_IN_OCTETS), 300u);
    }
}

TEST_F(PortTest, ATimeStampIsTheUptimeThen) {
    start_agent_before(100);
    EXPECT_EQ(time_stamp({0, 0}), 0u);
    EXPECT_EQ(time_stamp(seconds_ago(101)), 0u);
    EXPECT_NEAR(time_stamp(seconds_ago(60)), 4000, 1);
    EXPECT_EQ(time_stamp(seconds_ago(60)), time_stamp(seconds_ago(60)));
}

TEST_F(PortTest, ATimeStampIsNotLaterThanNow) {
    start_agent_before(100);
    EXPECT_NEAR(time_stamp(seconds_ago(-1000)), 10000, 200);
}

TEST_F(PortTest, TheColumnsOfARowInOnePduCostOneRequest) {
    const Port *port = nullptr;
    for (int column = 0; column < 10; ++column) {
        ASSERT_EQ(port_after(10, port), Lookup::found);
        EXPECT_EQ(port->if_index, 20u);
    }
    EXPECT_EQ(port_at(20, port), Lookup::found);
    EXPECT_EQ(fake_platform.requests, 1u);
}

TEST_F(PortTest, TheEndOfATableCostsOneRequestInAPdu) {
    const Port *port = nullptr;
    for (int column = 0; column < 10; ++column) {
        EXPECT_EQ(port_after(40, port), Lookup::absent);
    }
    EXPECT_EQ(fake_platform.requests, 1u);
}

TEST_F(PortTest, AFailureCostsOneRequestInAPdu) {
    fake_platform.status = STATUS_STORE_FAILED;
    const Port *port = nullptr;
    for (int column = 0; column < 10; ++column) {
        EXPECT_EQ(port_at(10, port), Lookup::failed);
    }
    EXPECT_EQ(fake_platform.requests, 1u);
}

TEST_F(PortTest, AnotherPduAsksAgain) {
    const Port *port = nullptr;
    port_at(10, port);
    ++fake_platform.pdu;
    port_at(10, port);
    EXPECT_EQ(fake_platform.requests, 2u);
}

TEST_F(PortTest, AnotherRowOfThePduIsAskedFor) {
    const Port *port = nullptr;
    EXPECT_EQ(port_at(10, port), Lookup::found);
    EXPECT_EQ(port_at(20, port), Lookup::found);
    EXPECT_EQ(port->if_index, 20u);
    EXPECT_EQ(port_at(15, port), Lookup::absent);
    EXPECT_EQ(fake_platform.requests, 3u);
}

TEST_F(PortTest, WhatWasChangedIsAskedForAgain) {
    const Port *port = nullptr;
    port_at(10, port);
    forget_port();
    port_at(10, port);
    EXPECT_EQ(fake_platform.requests, 2u);
}

TEST_F(PortTest, WhoseRoleHasSomePortsFindsThoseOnly) {
    fake_platform.role = {20, 40};
    const Port *port = nullptr;
    ASSERT_EQ(port_after(0, port), Lookup::found);
    EXPECT_EQ(port->if_index, 20u);
    ASSERT_EQ(port_after(20, port), Lookup::found);
    EXPECT_EQ(port->if_index, 40u);
    EXPECT_EQ(port_after(40, port), Lookup::absent);
    EXPECT_EQ(port_at(10, port), Lookup::absent);
    EXPECT_EQ(port_at(20, port), Lookup::found);
    fake_platform.role.emplace();
    ++fake_platform.pdu;
    EXPECT_EQ(port_after(0, port), Lookup::absent);
}

TEST_F(PortTest, APortThatWasNotAskedForIsAFailure) {
    const PortRecord record = port_record(20);
    fake_platform.reply.emplace(record.begin(), record.end());
    const Port *port = nullptr;
    EXPECT_EQ(port_at(10, port), Lookup::failed);
    EXPECT_EQ(port_after(20, port), Lookup::failed);
    EXPECT_EQ(port_after(30, port), Lookup::failed);
    EXPECT_EQ(port_after(19, port), Lookup::found);
}

TEST_F(PortTest, AReplyOfAnotherLengthIsAFailure) {
    const PortRecord record = port_record(10);
    for (const size_t length : {size_t{0}, size_t{4}, record.size() - 1}) {
        ++fake_platform.pdu;
        fake_platform.reply.emplace(record.begin(), record.begin() + static_cast<long>(length));
        const Port *port = nullptr;
        EXPECT_EQ(port_at(10, port), Lookup::failed) << length;
    }
    ++fake_platform.pdu;
    fake_platform.reply.emplace(record.begin(), record.end());
    fake_platform.reply->push_back(0);
    const Port *port = nullptr;
    EXPECT_EQ(port_at(10, port), Lookup::failed);
}

} // namespace
