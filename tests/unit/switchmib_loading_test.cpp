// SPDX-License-Identifier: Apache-2.0
#include <vector>

#include <gtest/gtest.h>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include "contract/events.h"
#include "switch_mib.h"
#include "switchmib_fake_platform.h"

namespace {

const std::vector<std::vector<oid>> OBJECTS = {
    {1, 3, 6, 1, 2, 1, 1, 1}, {1, 3, 6, 1, 2, 1, 1, 2},     {1, 3, 6, 1, 2, 1, 1, 3},     {1, 3, 6, 1, 2, 1, 1, 4},
    {1, 3, 6, 1, 2, 1, 1, 5}, {1, 3, 6, 1, 2, 1, 1, 6},     {1, 3, 6, 1, 2, 1, 1, 7},     {1, 3, 6, 1, 2, 1, 2, 1},
    {1, 3, 6, 1, 2, 1, 2, 2}, {1, 3, 6, 1, 2, 1, 31, 1, 1}, {1, 3, 6, 1, 2, 1, 31, 1, 5},
};

size_t served() {
    size_t count = 0;
    for (const std::vector<oid> &name : OBJECTS) {
        const netsnmp_subtree *subtree = netsnmp_subtree_find(name.data(), name.size(), nullptr, "");
        count += subtree && subtree->reginfo && subtree->namelen == name.size();
    }
    return count;
}

class LoadingTest : public testing::Test {
  protected:
    void SetUp() override { reset_fake_platform(); }
    void TearDown() override { deinit_switchmib(); }
};

TEST_F(LoadingTest, RegistersEveryObjectAndTakesItBack) {
    for (int round = 0; round < 3; ++round) {
        init_switchmib();
        EXPECT_EQ(served(), OBJECTS.size());
        EXPECT_TRUE(fake_platform.classes.contains(EVENT_PORT_CHANGED));
        deinit_switchmib();
        EXPECT_EQ(served(), 0u);
        EXPECT_TRUE(fake_platform.classes.empty());
    }
    EXPECT_EQ(fake_platform.log, "");
}

TEST_F(LoadingTest, ASecondCallOfEitherEntryChangesNothing) {
    init_switchmib();
    init_switchmib();
    EXPECT_EQ(served(), OBJECTS.size());
    deinit_switchmib();
    deinit_switchmib();
    EXPECT_EQ(served(), 0u);
}

TEST_F(LoadingTest, AsksTheSwitchForNothing) {
    init_switchmib();
    EXPECT_EQ(fake_platform.requests, 0u);
}

TEST_F(LoadingTest, WhatTheAgentServesItselfIsLeftToIt) {
    oid name[] = {1, 3, 6, 1, 2, 1, 2, 2};
    const auto nothing = [](netsnmp_mib_handler *, netsnmp_handler_registration *, netsnmp_agent_request_info *,
                            netsnmp_request_info *) { return SNMP_ERR_NOERROR; };
    ASSERT_EQ(netsnmp_register_handler(
                  netsnmp_create_handler_registration("own", nothing, name, OID_LENGTH(name), HANDLER_CAN_RONLY)),
              MIB_REGISTERED_OK);
    init_switchmib();
    EXPECT_NE(fake_platform.log.find("does not take ifTable"), std::string::npos);
    deinit_switchmib();
    EXPECT_EQ(served(), 1u);
    unregister_mib(name, OID_LENGTH(name));
}

} // namespace
