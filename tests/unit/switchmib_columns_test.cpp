// SPDX-License-Identifier: Apache-2.0
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "if_columns.h"

namespace {

using namespace switch_agent;

Port make_port() {
    Port port = {};
    port.if_index = 0x01000000;
    port.number = 4294967295u;
    port.admin = PORT_UP;
    port.oper = PORT_DOWN;
    port.traps = PORT_TRAPS_ENABLED;
    port.speed = PORT_SPEED_DEFAULT;
    return port;
}

std::string text_of(const Value &value) {
    return {static_cast<const char *>(value.bytes), value.length};
}

TEST(IfColumns, EachCurrentColumnHasAValueOfItsTypeAndNoOtherHas) {
    const std::set<unsigned> integers = {1, 3, 4, 7, 8}, texts = {2, 6}, deprecated = {12, 18};
    const Port port = make_port();
    Value value;
    for (unsigned column = 1; column <= 20; ++column) {
        ASSERT_EQ(if_table_value(port, column, value), !deprecated.contains(column)) << column;
        const uint8_t type = integers.contains(column) ? ASN_INTEGER
                             : texts.contains(column)  ? ASN_OCTET_STR
                             : column == 5             ? ASN_GAUGE
                             : column == 9             ? ASN_TIMETICKS
                                                       : ASN_COUNTER;
        EXPECT_TRUE(deprecated.contains(column) || value.type == type) << column;
    }
    for (unsigned column : {0u, 21u, 22u, ~0u}) {
        EXPECT_FALSE(if_table_value(port, column, value)) << column;
    }
}

TEST(IfColumns, EachColumnOfTheExtensionHasAValueOfItsType) {
    const std::set<unsigned> integers = {14, 16, 17}, texts = {1, 18};
    const Port port = make_port();
    Value value;
    for (unsigned column = 1; column <= 19; ++column) {
        ASSERT_TRUE(if_x_table_value(port, column, value)) << column;
        const uint8_t type = integers.contains(column)     ? ASN_INTEGER
                             : texts.contains(column)      ? ASN_OCTET_STR
                             : column == 15                ? ASN_GAUGE
                             : column == 19                ? ASN_TIMETICKS
                             : column >= 6 && column <= 13 ? ASN_COUNTER64
                                                           : ASN_COUNTER;
        EXPECT_EQ(value.type, type) << column;
    }
    EXPECT_FALSE(if_x_table_value(port, 0, value));
    EXPECT_FALSE(if_x_table_value(port, 20, value));
}

TEST(IfColumns, ANameOfAnyNumberHasRoom) {
    Value value;
    ASSERT_TRUE(if_table_value(make_port(), IF_DESCR, value));
    EXPECT_EQ(text_of(value), "fc4294967295");
}

TEST(IfColumns, TheGaugeOfSpeedStopsAtItsEnd) {
    Port port = make_port();
    Value value;
    const std::pair<uint32_t, uint32_t> speeds[] = {
        {0, 0}, {4000, 4000000000}, {4294, 4294000000}, {4295, 4294967295}, {32000, 4294967295}};
    for (const auto &[speed, gauge] : speeds) {
        port.speed = speed;
        ASSERT_TRUE(if_table_value(port, IF_SPEED, value));
        EXPECT_EQ(value.room.count, gauge) << speed;
        ASSERT_TRUE(if_x_table_value(port, IF_HIGH_SPEED, value));
        EXPECT_EQ(value.room.count, speed);
    }
}

TEST(IfColumns, BothViewsOfACounterAreOfOneValue) {
    Port port = make_port();
    port.counters[PORT_COUNTER_OUT_FRAMES] = {0x123456789abcdef0, 0};
    Value value;
    ASSERT_TRUE(if_x_table_value(port, IF_HC_OUT_UCAST_PKTS, value));
    EXPECT_EQ(value.room.wide.high, 0x12345678u);
    EXPECT_EQ(value.room.wide.low, 0x9abcdef0u);
    ASSERT_TRUE(if_table_value(port, IF_OUT_UCAST_PKTS, value));
    EXPECT_EQ(value.room.count, 0x9abcdef0u);
}

} // namespace
