// SPDX-License-Identifier: Apache-2.0
// Users who may touch only some interfaces: the read of the interface table's columns,
// and the rule that reading and moving share.

#include "module_test.h"

namespace {

using calls = std::vector<std::string>;

constexpr int to_move = 1;
constexpr int to_read = 3;
constexpr int for_get = 160;
constexpr int for_set = 163;

class IfRestriction : public ModuleTest {
  protected:
    const oid_name name = registered_object(16).instance({9});

    int process(int operation, uint32_t vsan, int pdu_type, uint32_t if_index = 9) const {
        return process_for_vsan_restriction(if_index, operation, vsan, name.data(), name.size(), pdu_type);
    }

    static void interface_nine_is_in_vsan(uint32_t vsan) {
        for (const uint32_t kind : {1u, 2u}) {
            platform.on(124, kind) = reply_script().reply(if_record(9, vsan, 3));
        }
    }
};

TEST_F(IfRestriction, AnUnrestrictedUserIsAllowedWithoutAnyTest) {
    platform.barred_interfaces = {{9, 1}};
    for (const int operation : {to_move, to_read, 0, 2, -1}) {
        EXPECT_EQ(process(operation, 20, for_set), 0);
    }
    EXPECT_EQ(platform.allowed_calls.size(), 5u);
    EXPECT_TRUE(platform.role_checks.empty());
    EXPECT_TRUE(platform.vsan_checks.empty());
}

TEST_F(IfRestriction, OnlyAListResultOfExactlyOneRestricts) {
    platform.restrict_to({});
    platform.barred_interfaces = {{9, 1}};
    for (const int result : {2, -1, 255, 256, 0}) {
        platform.restriction_result = result;
        EXPECT_EQ(process(to_move, 20, for_set), 0) << result;
        EXPECT_EQ(process(to_read, 20, for_get), 0) << result;
    }
    EXPECT_TRUE(platform.role_checks.empty());
    platform.restriction_result = 1;
    EXPECT_EQ(process(to_read, 20, for_get), 1);
}

TEST_F(IfRestriction, TheListIsAskedForTheNameAndPduTypeGiven) {
    process(to_move, 20, for_set);
    process(to_read, 20, for_get);
    ASSERT_EQ(platform.allowed_calls.size(), 2u);
    EXPECT_EQ(platform.allowed_calls[0].pdu_type, for_set);
    EXPECT_EQ(platform.allowed_calls[1].pdu_type, for_get);
    for (const allowed_vsans_call &call : platform.allowed_calls) {
        EXPECT_EQ(call.name, name);
        EXPECT_EQ(call.size, 512u);
        EXPECT_TRUE(call.bitmap_is_zero);
    }
}

TEST_F(IfRestriction, TheRoleTestsResultIsReturnedAsItIs) {
    platform.restrict_to({20});
    for (const int barred : {1, -1, 77, INT32_MIN}) {
        platform.barred_interfaces = {{9, barred}};
        for (const int operation : {to_move, to_read}) {
            EXPECT_EQ(process(operation, 20, for_set), barred);
        }
    }
    EXPECT_TRUE(platform.vsan_checks.empty()) << "the VSAN is not looked at";
    EXPECT_TRUE(platform.errors_set.empty());
}

TEST_F(IfRestriction, TheRoleTestGetsInterfaceOperationAndList) {
    platform.restrict_to({20});
    process(to_read, 30, for_get, 0xFFFFFFFF);
    process(to_move, 20, for_set, 5);
    ASSERT_EQ(platform.role_checks.size(), 2u);
    EXPECT_EQ(platform.role_checks[0].if_index, 0xFFFFFFFFu);
    EXPECT_EQ(platform.role_checks[0].operation, to_read);
    EXPECT_EQ(platform.role_checks[1].if_index, 5u);
    EXPECT_EQ(platform.role_checks[1].operation, to_move);
    for (const role_check &check : platform.role_checks) {
        EXPECT_EQ(check.list_size, 512u);
    }
}

TEST_F(IfRestriction, OnlyMovingNeedsTheTargetVsan) {
    platform.restrict_to({20});
    for (const int operation : {to_read, 0, 2, 4, -1}) {
        EXPECT_EQ(process(operation, 30, for_get), 0) << operation;
    }
    EXPECT_TRUE(platform.vsan_checks.empty());
    EXPECT_TRUE(platform.errors_set.empty());
}

TEST_F(IfRestriction, MovingIntoAPermittedVsanIsAllowed) {
    platform.restrict_to({20});
    EXPECT_EQ(process(to_move, 20, for_set), 0);
    ASSERT_EQ(platform.vsan_checks.size(), 1u);
    EXPECT_EQ(platform.vsan_checks[0].vsan, 20u);
    EXPECT_EQ(platform.vsan_checks[0].name, name);
    EXPECT_EQ(platform.vsan_checks[0].pdu_type, for_set);
    for (const int permitted : {2, -1}) {
        platform.permitted_result = permitted;
        EXPECT_EQ(process(to_move, 20, for_set), 0) << permitted;
    }
    EXPECT_TRUE(platform.errors_set.empty());
}

TEST_F(IfRestriction, MovingIntoAnotherVsanIsRecordedAndRefusedWithFive) {
    platform.restrict_to({20});
    EXPECT_EQ(process(to_move, 30, for_set), 5);
    EXPECT_EQ(platform.errors_set, (std::vector<std::pair<uint32_t, uint32_t>>{{0x4049002C, 584}}));
    EXPECT_TRUE(platform.error_records.empty());
}

TEST_F(IfRestriction, VsanColumnIsDecidedByTheInterfaceRoleAlone) {
    interface_nine_is_in_vsan(30);
    platform.restrict_to({20});
    EXPECT_EQ(get(16, {9}).number(), 30) << "the VSAN itself is not permitted";
    EXPECT_EQ(get_next(16, {}).number(), 30);
    platform.barred_interfaces = {{9, 1}};
    EXPECT_FALSE(get(16, {9}).present);
    EXPECT_FALSE(get_next(16, {}).present);
    EXPECT_TRUE(platform.errors_set.empty()) << "a read leaves no error";
    EXPECT_TRUE(platform.vsan_checks.empty());
}

TEST_F(IfRestriction, VsanColumnIsTestedForTheRowThatCameBack) {
    interface_nine_is_in_vsan(20);
    platform.restrict_to({20});
    registered_object object(16);
    EXPECT_TRUE(object.get_next(object.instance({5, 6})).present);
    ASSERT_EQ(platform.allowed_calls.size(), 1u);
    EXPECT_EQ(platform.allowed_calls[0].name, object.instance({9})) << "the row's own name";
    EXPECT_EQ(platform.allowed_calls[0].pdu_type, for_get);
    ASSERT_EQ(platform.role_checks.size(), 1u);
    EXPECT_EQ(platform.role_checks[0].if_index, 9u);
    EXPECT_EQ(platform.role_checks[0].operation, to_read);
}

TEST_F(IfRestriction, ABarredRowStillHandsOverTheWriteMethod) {
    interface_nine_is_in_vsan(20);
    platform.restrict_to({20});
    platform.barred_interfaces = {{9, 1}};
    const read_answer answer = get(16, {9});
    EXPECT_FALSE(answer.present);
    EXPECT_EQ(answer.write_method, set_vsanIfVsan) << "a SET is refused by the write method, not as not writable";
}

TEST_F(IfRestriction, AMissingRowIsNotTested) {
    platform.on(124, 1).status(some_failure);
    platform.restrict_to({20});
    EXPECT_FALSE(get(16, {9}).present);
    EXPECT_TRUE(platform.journal_of("allowed").empty());
}

TEST_F(IfRestriction, DenyListIsShownToEverybody) {
    interface_nine_is_in_vsan(30);
    platform.restrict_to({});
    platform.barred_interfaces = {{9, 1}};
    EXPECT_EQ(get(17, {9}).number(), 3);
    EXPECT_EQ(get_next(17, {}).number(), 3);
    EXPECT_TRUE(platform.allowed_calls.empty());
    EXPECT_TRUE(platform.role_checks.empty());
}

} // namespace
