// SPDX-License-Identifier: Apache-2.0
// Roles that are changed while the switch runs: in force at once, in their file for good.
#include <sys/stat.h>

#include "vswitch_changes_fixture.h"

using namespace vswitch;
using namespace vswitch_test;

namespace {

const Role ops{"ops", {{20, 29}, {4095, 4095}}, {{1, 4294967295}}, {"bob", "carol"}};

TEST_F(ChangeTest, AddedRoleIsInForceAtOnceAndAfterARestart) {
    EXPECT_EQ(set_name(10, "his", "bob"), STATUS_SUCCESS);
    ASSERT_EQ(add_role(*target_, operator_, ops, false, nullptr), STATUS_SUCCESS);
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(set_name(10, "not_his", "bob"), STATUS_VSAN_RESTRICTED);
        EXPECT_EQ(set_vsan(block_of(29), "bob"), STATUS_SUCCESS);
        EXPECT_EQ(set_name(20, "hers", "alice"), STATUS_VSAN_RESTRICTED) << "the other role remains";
        ASSERT_EQ(target_->roles.list().size(), 2u);
        EXPECT_EQ(target_->roles.list()[1], ops);
        restarted();
    }
    struct stat status {};
    ASSERT_EQ(stat((folder_ / "roles.json").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u);
    EXPECT_FALSE(std::filesystem::exists(folder_ / "roles.json.new"));
}

TEST_F(ChangeTest, RoleOfTheSameNameIsReplacedOnlyWhenAsked) {
    const Role other{"backup", {{20, 20}}, {}, {"alice"}};
    EXPECT_EQ(add_role(*target_, operator_, other, false, nullptr), STATUS_ROLE_EXISTS);
    EXPECT_EQ(set_name(20, "hers", "alice"), STATUS_VSAN_RESTRICTED);
    EXPECT_EQ(add_role(*target_, operator_, other, true, nullptr), STATUS_SUCCESS);
    EXPECT_EQ(set_name(20, "hers", "alice"), STATUS_SUCCESS);
    EXPECT_EQ(set_name(10, "hers_too", "alice"), STATUS_VSAN_RESTRICTED) << "what the former role granted is gone";
}

TEST_F(ChangeTest, RemovedRoleRestrictsNobody) {
    EXPECT_EQ(remove_role(*target_, operator_, "nobody", nullptr), STATUS_NO_SUCH_ROLE);
    ASSERT_EQ(remove_role(*target_, operator_, "backup", nullptr), STATUS_SUCCESS);
    EXPECT_EQ(set_name(20, "hers", "alice"), STATUS_SUCCESS);
    restarted();
    EXPECT_EQ(target_->roles.user_count(), 0u);
}

TEST_F(ChangeTest, WhatWasWrittenIntoTheRoleFileByHandIsKept) {
    write_file(folder_ / "roles.json", R"({"roles": [{"name": "by-hand", "vsans": ["7"], "users": ["dave"]}]})");
    ASSERT_EQ(add_role(*target_, operator_, ops, false, nullptr), STATUS_SUCCESS);
    ASSERT_EQ(target_->roles.list().size(), 2u);
    EXPECT_TRUE(target_->roles.find("dave"));
}

TEST_F(ChangeTest, RoleFileThatCannotBeUsedIsLeftAlone) {
    write_file(folder_ / "roles.json", "{\"roles\": [");
    std::string sentence;
    EXPECT_EQ(add_role(*target_, operator_, ops, false, &sentence), STATUS_ROLES_NOT_WRITTEN);
    EXPECT_TRUE(contains(sentence, "roles.json")) << sentence;
    EXPECT_EQ(file_content(folder_ / "roles.json"), "{\"roles\": [");
    EXPECT_TRUE(target_->roles.find("alice")) << "the former roles stay in force";
}

TEST_F(ChangeTest, RoleThatIsNotUsableIsRefusedWithAReason) {
    const std::string before = file_content(folder_ / "roles.json");
    std::string sentence;
    EXPECT_EQ(add_role(*target_, operator_, {"bad", {{1, 4096}}, {}, {"bob"}}, false, &sentence), STATUS_BAD_ROLE);
    EXPECT_TRUE(contains(sentence, "1-4096")) << sentence;
    EXPECT_EQ(add_role(*target_, operator_, {"bad", {}, {{0, 5}}, {"bob"}}, false, &sentence), STATUS_BAD_ROLE);
    EXPECT_EQ(add_role(*target_, operator_, {"bad", {}, {}, {""}}, false, &sentence), STATUS_BAD_ROLE);
    EXPECT_EQ(file_content(folder_ / "roles.json"), before);
    EXPECT_FALSE(target_->roles.find("bob"));
}

TEST_F(ChangeTest, RoleWhoseNameIsEmptyOrMoreThanALineIsNotAdded) {
    for (const std::string &name : {std::string(), std::string("two\nlines"), std::string("return\r"),
                                    std::string("\x1b[2J"), std::string("nul\0", 4), std::string("\x7f")}) {
        std::string sentence;
        EXPECT_EQ(add_role(*target_, operator_, {name, {}, {}, {"bob"}}, true, &sentence), STATUS_BAD_ROLE);
        EXPECT_TRUE(contains(sentence, "A role's name")) << sentence;
    }
    EXPECT_EQ(add_role(*target_, operator_, {"Tr\xc3\xa4ger 1", {}, {}, {"bob"}}, false, nullptr), STATUS_SUCCESS);
}

TEST_F(ChangeTest, RolesThatCannotBeWrittenStayAsTheyAre) {
    const std::string before = file_content(folder_ / "roles.json");
    std::string sentence;
    {
        FullDisk disk;
        EXPECT_EQ(add_role(*target_, operator_, ops, false, &sentence), STATUS_ROLES_NOT_WRITTEN);
    }
    EXPECT_TRUE(contains(sentence, "Cannot write")) << sentence;
    EXPECT_EQ(file_content(folder_ / "roles.json"), before);
    EXPECT_FALSE(std::filesystem::exists(folder_ / "roles.json.new"));
    EXPECT_FALSE(target_->roles.find("bob"));
}

TEST_F(ChangeTest, RestrictedUserChangesNoRoles) {
    EXPECT_EQ(add_role(*target_, {"alice", false}, ops, false, nullptr), STATUS_SWITCH_RESTRICTED);
    EXPECT_EQ(remove_role(*target_, {"alice", false}, "backup", nullptr), STATUS_SWITCH_RESTRICTED);
}

} // namespace
