// SPDX-License-Identifier: Apache-2.0
#include "oryx_agent.h"
#include "oryx_fake_platform.h"

#include "errors.h"

namespace {

using ErrorsTest = OryxTest;

TEST_F(ErrorsTest, AStatusIsRememberedWithItsTextAndWritesOneLine) {
    fake_status_text = "user may not touch this VSAN (0x4049002c)";
    log_set_error(0x4049002c, 584);
    EXPECT_EQ(oryx::last_error().code, 0x4049002cu);
    EXPECT_EQ(oryx::last_error().number, 584u);
    EXPECT_EQ(oryx::last_error().text, fake_status_text);
    ASSERT_EQ(agent_log.size(), 1u);
    EXPECT_NE(agent_log[0].find(fake_status_text), std::string::npos);
}

TEST_F(ErrorsTest, ARecordIsCopiedAndWritesOneLine) {
    snmp_error_record record = {0x40540008, "no such user"};
    log_snmp_error(&record);
    record.text[0] = 'X';
    EXPECT_EQ(oryx::last_error().code, 0x40540008u);
    EXPECT_STREQ(oryx::last_error().text, "no such user");
    EXPECT_EQ(log_lines_with("no such user"), 1u);
}

TEST_F(ErrorsTest, ALongTextIsCut) {
    fake_status_text = std::string(5000, 'a');
    log_set_error(7, 200);
    EXPECT_EQ(oryx::last_error().text, std::string(200, 'a'));
    ASSERT_EQ(agent_log.size(), 1u);
    EXPECT_LT(agent_log[0].size(), 400u);
}

TEST_F(ErrorsTest, ARecordWithoutItsNulIsReadToItsEndOnly) {
    struct {
        snmp_error_record record;
        char beyond[8];
    } memory;
    memset(&memory, 'b', sizeof(memory));
    log_snmp_error(&memory.record);
    EXPECT_EQ(oryx::last_error().text, std::string(200, 'b'));
}

TEST_F(ErrorsTest, ATextCannotForgeALogLine) {
    snmp_error_record record = {1, "first\nsecond\tthird\x7f"};
    log_snmp_error(&record);
    EXPECT_STREQ(oryx::last_error().text, "first?second?third?");
    EXPECT_EQ(agent_log.size(), 1u);
}

TEST_F(ErrorsTest, NoRecordIsNoError) {
    log_set_error(9, 200);
    log_snmp_error(nullptr);
    EXPECT_EQ(oryx::last_error().code, 9u);
    EXPECT_EQ(agent_log.size(), 1u);
}

} // namespace
