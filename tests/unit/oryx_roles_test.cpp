// SPDX-License-Identifier: Apache-2.0
#include "oryx_agent.h"
#include "oryx_fake_platform.h"

#include "contract/services.h"
#include "netsnmpagent_oryx.h"
#include "roles.h"

namespace {

allowed_vsan_list list_of(const std::vector<uint32_t> &vsans, uint32_t size = 512) {
    allowed_vsan_list list = {size, {}};
    for (uint32_t vsan : vsans) {
        list.bitmap[vsan / 8] = static_cast<uint8_t>(list.bitmap[vsan / 8] | 0x80 >> vsan % 8);
    }
    return list;
}

// The number after `vsan` in the list, or 9999 for none.
uint32_t next_in(const allowed_vsan_list &list, uint32_t vsan) {
    return snmp_get_next_allowed_vsan_in_list(&vsan, list) ? vsan : 9999;
}

TEST(VsanList, TheFirstVsanIsTheHighestBitOfTheFirstByte) {
    allowed_vsan_list list = {512, {}};
    list.bitmap[0] = 0x80;
    list.bitmap[1] = 0x01;
    list.bitmap[511] = 0x01;
    for (uint32_t vsan = 0; vsan < 4096; ++vsan) {
        EXPECT_EQ(snmp_is_vsan_allowed_in_list(vsan, list) != 0, vsan == 0 || vsan == 15 || vsan == 4095) << vsan;
    }
}

TEST(VsanList, NumbersAbove4095AreNeverAllowed) {
    allowed_vsan_list list = {UINT32_MAX, {}};
    memset(list.bitmap, 0xff, sizeof(list.bitmap));
    EXPECT_NE(snmp_is_vsan_allowed_in_list(4095, list), 0);
    for (uint32_t vsan : {4096u, 4097u, 1u << 31, UINT32_MAX}) {
        EXPECT_EQ(snmp_is_vsan_allowed_in_list(vsan, list), 0) << vsan;
    }
}

TEST(VsanList, BytesThatTheSizeLeavesOutDoNotCount) {
    const allowed_vsan_list list = list_of({7, 8}, 1);
    EXPECT_NE(snmp_is_vsan_allowed_in_list(7, list), 0);
    EXPECT_EQ(snmp_is_vsan_allowed_in_list(8, list), 0);
    EXPECT_EQ(next_in(list, 7), 9999u);
    EXPECT_EQ(snmp_is_vsan_allowed_in_list(0, list_of({0}, 0)), 0);
}

TEST(VsanList, TheNextNumberIsStrictlyAfter) {
    const allowed_vsan_list list = list_of({0, 1, 30, 31, 32, 4094, 4095});
    EXPECT_EQ(next_in(list, 0), 1u);
    EXPECT_EQ(next_in(list, 1), 30u);
    EXPECT_EQ(next_in(list, 30), 31u);
    EXPECT_EQ(next_in(list, 31), 32u);
    EXPECT_EQ(next_in(list, 32), 4094u);
    EXPECT_EQ(next_in(list, 4094), 4095u);
}

TEST(VsanList, AfterTheEndThereIsNoNextNumber) {
    const allowed_vsan_list list = list_of({4094, 4095}, UINT32_MAX);
    for (uint32_t vsan : {4095u, 4096u, 4097u, UINT32_MAX - 1, UINT32_MAX}) {
        uint32_t word = vsan;
        EXPECT_EQ(snmp_get_next_allowed_vsan_in_list(&word, list), 0) << vsan;
        EXPECT_EQ(word, vsan);
    }
    EXPECT_EQ(next_in(list_of({10}), 10), 9999u);
    EXPECT_EQ(next_in(list_of({}), 0), 9999u);
    EXPECT_EQ(snmp_get_next_allowed_vsan_in_list(nullptr, list), 0);
}

// The decoder is shown replies on the heap, exactly as long as they say.
bool decodes(const std::vector<uint8_t> &reply) {
    static oryx::Permission role;
    memset(&role, 0xff, sizeof(role));
    uint8_t *copy = static_cast<uint8_t *>(malloc(reply.empty() ? 1 : reply.size()));
    if (!reply.empty()) {
        memcpy(copy, reply.data(), reply.size());
    }
    const bool good = oryx::permission_decode(copy, static_cast<uint32_t>(reply.size()), role);
    free(copy);
    if (!good) {
        EXPECT_TRUE(role.restricted);
        EXPECT_EQ(role.range_count, 0u);
        for (uint8_t byte : role.vsans) {
            EXPECT_EQ(byte, 0);
        }
    }
    return good;
}

TEST(RoleReply, WellFormedOnesAreRead) {
    EXPECT_TRUE(decodes(role_reply(0, {})));
    EXPECT_TRUE(decodes(role_reply(1, {})));
    EXPECT_TRUE(decodes(role_reply(1, {0, 1, 4095}, {{1, 0xffffffff}})));
    EXPECT_TRUE(decodes(role_reply(1, {}, {{1, 2}, {3, 4}, {9, 9}})));
}

TEST(RoleReply, EveryShorterOneIsRestrictedToNothing) {
    const std::vector<uint8_t> whole = role_reply(1, {1, 2}, {{1, 9}});
    for (size_t length = 0; length < whole.size(); ++length) {
        EXPECT_FALSE(decodes(std::vector<uint8_t>(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length))))
            << length;
    }
}

TEST(RoleReply, ALongerOneIsRestrictedToNothing) {
    std::vector<uint8_t> reply = role_reply(1, {1}, {{1, 9}});
    reply.push_back(0);
    EXPECT_FALSE(decodes(reply));
}

TEST(RoleReply, OneThatContradictsItselfIsRestrictedToNothing) {
    EXPECT_FALSE(decodes(role_reply(2, {})));
    EXPECT_FALSE(decodes(role_reply(0xffffffff, {1})));
    EXPECT_FALSE(decodes(role_reply(0, {1})));
    EXPECT_FALSE(decodes(role_reply(0, {}, {{1, 2}})));
    EXPECT_FALSE(decodes(role_reply(1, {1}, {{2, 1}})));
}

TEST(RoleReply, RangesThatDoNotAscendOrReachIntoEachOtherAreRestrictedToNothing) {
    EXPECT_FALSE(decodes(role_reply(1, {}, {{5, 6}, {1, 2}})));
    EXPECT_FALSE(decodes(role_reply(1, {}, {{1, 5}, {5, 9}})));
    EXPECT_FALSE(decodes(role_reply(1, {}, {{1, 9}, {3, 4}})));
    EXPECT_FALSE(decodes(role_reply(1, {}, {{1, 2}, {1, 2}})));
}

TEST(RoleReply, ARangeCountThatOverflowsIsRestrictedToNothing) {
    std::vector<uint8_t> reply = role_reply(1, {1}, {{1, 9}});
    // 0x20000001 ranges of 8 bytes are 8 bytes in 32 bits.
    reply[516] = 0x20;
    EXPECT_FALSE(decodes(reply));
}

TEST(RoleReply, ItHoldsUpToItsMostRanges) {
    std::vector<std::pair<uint32_t, uint32_t>> ranges;
    for (uint32_t i = 0; i < ROLE_MAX_RANGES; ++i) {
        ranges.emplace_back(3 * i, 3 * i + 1);
    }
    EXPECT_TRUE(decodes(role_reply(1, {}, ranges)));
    ranges.emplace_back(3 * ROLE_MAX_RANGES, 3 * ROLE_MAX_RANGES);
    EXPECT_FALSE(decodes(role_reply(1, {}, ranges)));
}

// The functions as a handler calls them, within a PDU of alice's.
class RolesTest : public OryxTest {
  protected:
    // Runs `body` inside the handler of a fresh PDU.
    void in_pdu(const std::function<void()> &body, const char *user = "alice") {
        Pdu pdu = Pdu::v3(user);
        pdu.add(NAME_COLUMN);
        objects.on_read = [&](oid *, size_t *, int) { body(); };
        pdu.call(MODE_GET);
    }

    static int fill(allowed_vsan_list &list) {
        list = {512, {}};
        return snmp_get_allowed_vsans_subtree(&list, NAME_COLUMN.data(), NAME_COLUMN.size(), PDU_TYPE_GET);
    }

    static bool restricted_to_nothing() {
        allowed_vsan_list list;
        if (fill(list) != 1) {
            return false;
        }
        for (uint32_t vsan = 0; vsan < 4096; ++vsan) {
            if (snmp_is_vsan_allowed_in_list(vsan, list) ||
                snmp_is_vsan_allowed_subtree(vsan, nullptr, 0, PDU_TYPE_SET)) {
                return false;
            }
        }
        return intf_chk_vsan_role_allowed(1, 3, list) != 0;
    }

    FakeObjects objects;
};

TEST_F(RolesTest, ARestrictedUserGetsExactlyOneAndTheList) {
    fake_switch.reply = role_reply(1, {1, 30});
    in_pdu([&] {
        allowed_vsan_list list;
        EXPECT_EQ(fill(list), 1);
        EXPECT_EQ(list.size, 512u);
        EXPECT_EQ(memcmp(list.bitmap, list_of({1, 30}).bitmap, 512), 0);
        EXPECT_NE(snmp_is_vsan_allowed_subtree(30, nullptr, 0, PDU_TYPE_SET), 0);
        EXPECT_EQ(snmp_is_vsan_allowed_subtree(31, nullptr, 0, PDU_TYPE_SET), 0);
        EXPECT_EQ(snmp_is_vsan_allowed_subtree(4096, nullptr, 0, PDU_TYPE_SET), 0);
    });
}

TEST_F(RolesTest, AnUnrestrictedUserGetsExactlyZero) {
    fake_switch.reply = role_reply(0, {});
    in_pdu([&] {
        allowed_vsan_list list;
        EXPECT_EQ(fill(list), 0);
        EXPECT_NE(snmp_is_vsan_allowed_subtree(1, nullptr, 0, PDU_TYPE_GET), 0);
        EXPECT_EQ(intf_chk_vsan_role_allowed(1, 3, list), 0);
    });
}

TEST_F(RolesTest, OutsideAnyPduNothingIsRestrictedAndNobodyAsked) {
    fake_switch.reply = role_reply(1, {});
    allowed_vsan_list list;
    EXPECT_EQ(fill(list), 0);
    EXPECT_NE(snmp_is_vsan_allowed_subtree(1, nullptr, 0, PDU_TYPE_GET), 0);
    EXPECT_EQ(intf_chk_vsan_role_allowed(1, 1, list), 0);
    EXPECT_TRUE(fake_switch.requests.empty());
}

TEST_F(RolesTest, TheSwitchIsAskedByTheUsersName) {
    fake_switch.reply = role_reply(1, {1});
    in_pdu([&] { restricted_to_nothing(); });
    ASSERT_EQ(fake_switch.requests.size(), 1u);
    EXPECT_EQ(fake_switch.requests[0].opcode, MTS_OP_ROLE_OF_USER);
    EXPECT_EQ(fake_switch.requests[0].kind, 1u);
    EXPECT_EQ(fake_switch.requests[0].service, MTS_SERVICE_ROLES);
    EXPECT_EQ(fake_switch.requests[0].user, "alice");
    EXPECT_EQ(fake_switch.requests[0].queue, mts_response_q);
}

TEST_F(RolesTest, OnePduAsksOnceAndTheNextAsksAgain) {
    fake_switch.reply = role_reply(1, {1});
    Pdu pdu = Pdu::v3("alice");
    pdu.add(NAME_COLUMN);
    pdu.add(NAME_COLUMN);
    objects.on_read = [&](oid *, size_t *, int) {
        allowed_vsan_list list;
        EXPECT_EQ(fill(list), 1);
    };
    pdu.call(MODE_GET);
    pdu.call(MODE_GETNEXT);
    EXPECT_EQ(fake_switch.requests.size(), 1u);

    // The role has changed meanwhile.
    fake_switch.reply = role_reply(0, {});
    in_pdu([&] {
        allowed_vsan_list list;
        EXPECT_EQ(fill(list), 0);
    });
    EXPECT_EQ(fake_switch.requests.size(), 2u);
}

TEST_F(RolesTest, EachUserHasARoleOfTheirOwn) {
    fake_switch.reply = role_reply(0, {});
    in_pdu([&] { snmp_is_vsan_allowed_subtree(1, nullptr, 0, PDU_TYPE_GET); }, "root");
    fake_switch.reply = role_reply(1, {});
    in_pdu([&] { EXPECT_TRUE(restricted_to_nothing()); }, "alice");
}

TEST_F(RolesTest, MemoryOfAnotherVersionIsReportedOnce) {
    fake_switch.reply = role_reply(0, {});
    fake_switch.has_other_memory = true;
    for (int i = 0; i < 3; ++i) {
        in_pdu([&] { snmp_is_vsan_allowed_subtree(1, nullptr, 0, PDU_TYPE_GET); });
    }
    EXPECT_EQ(log_lines_with("memory of another version"), 1u);
}

// Switches that publish the generation of their settings. Each test has numbers of its
// own, for what is kept outlasts it.
class KeptRolesTest : public RolesTest {
  protected:
    void SetUp() override {
        RolesTest::SetUp();
        static uint64_t last = 0;
        fake_switch.generation = last += 100;
        fake_switch.reply = role_reply(1, {7});
    }

    // Whether a PDU of the user's may touch VSAN 7 and nothing else.
    bool may_touch_7(const char *user = "alice") {
        bool result = false;
        in_pdu(
            [&] {
                allowed_vsan_list list;
                result = fill(list) == 1 && memcmp(list.bitmap, list_of({7}).bitmap, 512) == 0;
            },
            user);
        return result;
    }

    // Whether a PDU of alice's asks for her role, and may not touch anything.
    bool asks_in_vain() {
        const size_t before = fake_switch.requests.size();
        bool result = false;
        in_pdu([&] { result = restricted_to_nothing(); });
        return result && fake_switch.requests.size() == before + 1;
    }
};

TEST_F(KeptRolesTest, ARoleIsKeptForAsLongAsNothingChanges) {
    for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(may_touch_7());
    }
    EXPECT_EQ(fake_switch.requests.size(), 1u);
    fake_switch.reply = role_reply(0, {});
    EXPECT_TRUE(may_touch_7());
    ++fake_switch.generation;
    EXPECT_FALSE(may_touch_7());
    EXPECT_FALSE(may_touch_7());
    EXPECT_EQ(fake_switch.requests.size(), 2u);
    fake_switch.reply = role_reply(1, {7});
    --fake_switch.generation;
    EXPECT_TRUE(may_touch_7()) << "any other number is a change";
}

TEST_F(KeptRolesTest, OnlyItsOwnUserHasIt) {
    EXPECT_TRUE(may_touch_7("alice"));
    fake_switch.reply = role_reply(0, {});
    EXPECT_FALSE(may_touch_7("bob"));
    EXPECT_FALSE(may_touch_7("alic"));
    EXPECT_FALSE(may_touch_7("alice"));
    EXPECT_EQ(fake_switch.requests.size(), 4u);
}

TEST_F(KeptRolesTest, NothingIsKeptOfASwitchThatDoesNotPublishAnything) {
    fake_switch.generation = 0;
    for (size_t i = 1; i <= 3; ++i) {
        EXPECT_TRUE(may_touch_7());
        EXPECT_EQ(fake_switch.requests.size(), i);
    }
    fake_switch.generation = 1;
    EXPECT_TRUE(may_touch_7());
    EXPECT_EQ(fake_switch.requests.size(), 4u);
    fake_switch.generation = 0;
    EXPECT_TRUE(may_touch_7());
    EXPECT_EQ(fake_switch.requests.size(), 5u);
}

TEST_F(KeptRolesTest, ARoleThatTheSwitchDidNotGiveIsNotKept) {
    fake_switch.status = UINT32_MAX;
    fake_switch.error_number = ETIMEDOUT;
    EXPECT_TRUE(asks_in_vain());
    EXPECT_TRUE(asks_in_vain());
    fake_switch.status = 0;
    fake_switch.reply->pop_back();
    EXPECT_TRUE(asks_in_vain());
    EXPECT_TRUE(asks_in_vain());
    fake_switch.reply = role_reply(1, {7});
    EXPECT_TRUE(may_touch_7());
    fake_switch.status = 0x40490001;
    EXPECT_TRUE(may_touch_7()) << "there was no need to ask";
}

TEST_F(KeptRolesTest, AChangeWhileTheSwitchIsAskedMakesTheNextPduAskAgain) {
    fake_switch.generation_meanwhile = fake_switch.generation + 1;
    EXPECT_TRUE(may_touch_7());
    fake_switch.reply = role_reply(0, {});
    EXPECT_FALSE(may_touch_7());
    EXPECT_FALSE(may_touch_7());
    EXPECT_EQ(fake_switch.requests.size(), 2u);
}

TEST_F(KeptRolesTest, OnePduHasOneRole) {
    in_pdu([&] {
        allowed_vsan_list list;
        EXPECT_EQ(fill(list), 1);
        fake_switch.reply = role_reply(0, {});
        ++fake_switch.generation;
        EXPECT_EQ(fill(list), 1);
        fake_switch.generation = 0;
        EXPECT_EQ(fill(list), 1);
    });
    EXPECT_EQ(fake_switch.requests.size(), 1u);

    // Also when it is one that was kept.
    fake_switch.generation = 1;
    EXPECT_FALSE(may_touch_7());
    in_pdu([&] {
        allowed_vsan_list list;
        EXPECT_EQ(fill(list), 0);
        fake_switch.reply = role_reply(1, {7});
        ++fake_switch.generation;
        EXPECT_EQ(fill(list), 0);
    });
    EXPECT_EQ(fake_switch.requests.size(), 2u);
    EXPECT_TRUE(may_touch_7());
}

TEST_F(RolesTest, AFailedRequestRestrictsToNothing) {
    // Status 0 without a reply, a refusal, no switch, a refusal that brings a role along.
    in_pdu([&] { EXPECT_TRUE(restricted_to_nothing()); });
    fake_switch.status = 0x40490001;
    in_pdu([&] { EXPECT_TRUE(restricted_to_nothing()); });
    fake_switch.status = UINT32_MAX;
    fake_switch.error_number = ECONNREFUSED;
    in_pdu([&] { EXPECT_TRUE(restricted_to_nothing()); });
    fake_switch.reply = role_reply(0, {});
    in_pdu([&] { EXPECT_TRUE(restricted_to_nothing()); });
}

TEST_F(RolesTest, ADamagedReplyRestrictsToNothing) {
    fake_switch.reply = role_reply(0, {});
    fake_switch.reply->pop_back();
    in_pdu([&] { EXPECT_TRUE(restricted_to_nothing()); });
}

TEST_F(RolesTest, AFailedPduAsksOnlyOnce) {
    fake_switch.status = UINT32_MAX;
    in_pdu([&] {
        EXPECT_TRUE(restricted_to_nothing());
        EXPECT_TRUE(restricted_to_nothing());
    });
    EXPECT_EQ(fake_switch.requests.size(), 1u);
}

TEST_F(RolesTest, ASwitchThatIsDownCostsOneLineAndItsReturnOne) {
    // Whatever an earlier test left behind.
    fake_switch.reply = role_reply(0, {});
    in_pdu([&] { restricted_to_nothing(); });
    agent_log.clear();

    fake_switch.status = UINT32_MAX;
    fake_switch.error_number = ECONNREFUSED;
    for (int i = 0; i < 3; ++i) {
        in_pdu([&] { restricted_to_nothing(); });
    }
    ASSERT_EQ(agent_log.size(), 1u);
    EXPECT_NE(agent_log[0].find(strerror(ECONNREFUSED)), std::string::npos);

    fake_switch.status = 0;
    for (int i = 0; i < 3; ++i) {
        in_pdu([&] { restricted_to_nothing(); });
    }
    EXPECT_EQ(agent_log.size(), 2u);
}

TEST_F(RolesTest, InterfacesAreAllowedByTheRolesRanges) {
    fake_switch.reply = role_reply(1, {}, {{10, 20}, {30, 30}, {0xfffffff0, 0xffffffff}});
    in_pdu([&] {
        allowed_vsan_list list;
        fill(list);
        for (uint32_t inside : {10u, 15u, 20u, 30u, 0xfffffff0u, 0xffffffffu}) {
            EXPECT_EQ(intf_chk_vsan_role_allowed(inside, 3, list), 0) << inside;
        }
        for (uint32_t outside : {0u, 9u, 21u, 29u, 31u, 0xffffffefu}) {
            EXPECT_NE(intf_chk_vsan_role_allowed(outside, 1, list), 0) << outside;
        }
    });
}

TEST_F(RolesTest, NoListToFillIsTolerated) {
    fake_switch.reply = role_reply(1, {1});
    in_pdu([&] { EXPECT_EQ(snmp_get_allowed_vsans_subtree(nullptr, nullptr, 0, PDU_TYPE_GET), 1); });
}

} // namespace
