// SPDX-License-Identifier: Apache-2.0
// The write method of the notification control, and the request that it sends.

#include "module_test.h"
#include "set_pdu.h"

#include <cerrno>

namespace {

constexpr uint8_t INTEGER = 0x02;

class NotificationControl : public ModuleTest {
  protected:
    struct refusal {
        int status;
        std::string standard_error;
    };

    static refusal call(int phase, uint8_t type, const bytes &value) {
        testing::internal::CaptureStderr();
        const int status = write(write_vsanNotificationCntl, phase, type, value);
        fflush(stderr);
        return {status, testing::internal::GetCapturedStderr()};
    }
    static int reserve_number(int64_t number) { return call(RESERVE1_PHASE, INTEGER, as_long(number)).status; }
};

TEST_F(NotificationControl, AcceptsOneAndTwoAndSaysNothingOfOthers) {
    EXPECT_EQ(reserve_number(1), 0);
    EXPECT_EQ(reserve_number(2), 0);
    for (const int64_t number : {0, 3, -1, 65537, INT32_MAX, INT32_MIN}) {
        const refusal refused = call(RESERVE1_PHASE, INTEGER, as_long(number));
        EXPECT_EQ(refused.status, 10) << number;
        EXPECT_EQ(refused.standard_error, "");
    }
    EXPECT_EQ(call(RESERVE1_PHASE, INTEGER, as_word(0x80000001)).status, 10);
    EXPECT_EQ(call(RESERVE1_PHASE, INTEGER, as_word(2)).status, 0);
    EXPECT_EQ(call(RESERVE1_PHASE, INTEGER, as_word(2, 1)).status, 0);
    EXPECT_EQ(call(RESERVE1_PHASE, INTEGER, {}).status, 10);
    EXPECT_TRUE(platform.journal.empty());
    EXPECT_TRUE(platform.history.empty()) << all_traces();
}

TEST_F(NotificationControl, RefusesEveryOtherTypeOnStandardError) {
    for (const uint8_t type : bytes{0x04, 0x05, 0x06, 0x41, 0x42, 0x43, 0x00, 0xFF}) {
        const refusal refused = call(RESERVE1_PHASE, type, bytes(5));
        EXPECT_EQ(refused.status, 7) << int{type};
        EXPECT_EQ(refused.standard_error, "write to vsanNotificationCntl not ASN_INTEGER\n");
    }
}

TEST_F(NotificationControl, RefusesEveryOtherLengthOnStandardError) {
    for (size_t length = 5; length <= 16; ++length) {
        if (length == sizeof(long)) {
            continue;
        }
        const refusal refused = call(RESERVE1_PHASE, INTEGER, bytes(length, 0xFF));
        EXPECT_EQ(refused.status, 8) << length;
        EXPECT_EQ(refused.standard_error, "write to vsanNotificationCntl: bad length\n");
    }
}

TEST_F(NotificationControl, RemembersWhereTheLastValueOfItsTypeAndLengthLay) {
    oid name[] = {1, 3};
    bytes values[] = {as_long(1), as_long(3)}; // in range or not
    for (bytes &value : values) {
        write_vsanNotificationCntl(RESERVE1_PHASE, value.data(), INTEGER, value.size(), nullptr, name, 2);
        EXPECT_EQ(last_notification_control, value.data());
        for (const int phase : {int{RESERVE1_PHASE}, int{UNDO_PHASE}}) {
            call(phase, 0x04, as_long(1));
        }
        call(RESERVE1_PHASE, INTEGER, bytes(5));
        EXPECT_EQ(last_notification_control, value.data());
    }
}

TEST_F(NotificationControl, ActionSendsOneWhateverWasWritten) {
    platform.on(8018, 3).no_data();
    platform.user = "alice";
    platform.session = 77;
    for (const uint32_t written : {1u, 2u}) {
        platform.requests.clear();
        EXPECT_EQ(call(ACTION_PHASE, INTEGER, as_long(written)).status, 0);
        ASSERT_EQ(platform.requests.size(), 1u);
        const sent_request &request = platform.requests[0];
        EXPECT_EQ(request.opcode, 8018u);
        EXPECT_EQ(request.kind, 3u);
        EXPECT_EQ(request.payload, words({1}));
        EXPECT_EQ(request.length, 4u);
        EXPECT_FALSE(request.expects_reply);
        EXPECT_FALSE(request.user) << "this request names nobody";
        EXPECT_EQ(request.session, 0u);
        EXPECT_EQ(request.service, 15u);
        EXPECT_EQ(request.queue, mts_response_q);
        EXPECT_EQ(request.wait_class, 0u);
    }
    EXPECT_TRUE(platform.heartbeats.empty());
    EXPECT_TRUE(platform.history.empty()) << all_traces();
}

TEST_F(NotificationControl, AnyRefusalIsAGeneralErrorThatIsNotRecorded) {
    platform.on(8018, 3).status(0x40190001).status(some_failure).fails(ETIMEDOUT);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(call(ACTION_PHASE, INTEGER, as_long(1)).status, 5);
    }
    EXPECT_TRUE(platform.errors_set.empty());
}

TEST_F(NotificationControl, TheOtherPhasesDoNothing) {
    for (const int phase : {int{RESERVE2_PHASE}, int{COMMIT_PHASE}, int{FREE_PHASE}, int{UNDO_PHASE}, -1, 6}) {
        const refusal refused = call(phase, 0x04, bytes(5, 0xFF));
        EXPECT_EQ(refused.status, 0) << phase;
        EXPECT_EQ(refused.standard_error, "");
    }
    EXPECT_TRUE(platform.journal.empty());
}

TEST_F(NotificationControl, NoObjectHandsItOut) {
    for (const variable7 &row : agent.registrations.at(0).rows) {
        registered_object object(row.magic);
        platform.manager = [](const sent_request &) { return scripted_reply{some_failure, 0, std::nullopt}; };
        platform.port_manager = [](const membership_request &) { return membership_reply{some_failure}; };
        EXPECT_NE(object.get(object.instance({1})).write_method, write_vsanNotificationCntl);
    }
}

TEST_F(NotificationControl, TheRequestCarriesAnyValueInNetworkOrder) {
    platform.on(8018, 3).no_data();
    EXPECT_EQ(vsan_trap_vsan_set(0x01020304), 0);
    EXPECT_EQ(vsan_trap_vsan_set(0), 0);
    ASSERT_EQ(platform.requests.size(), 2u);
    EXPECT_EQ(platform.requests[0].payload, (bytes{1, 2, 3, 4}));
    EXPECT_EQ(platform.requests[1].payload, (bytes{0, 0, 0, 0}));
    EXPECT_TRUE(platform.history.empty()) << all_traces();
}

TEST_F(NotificationControl, ARefusedRequestIsTracedAndMinusOne) {
    platform.on(8018, 3).status(1234567).fails(ETIMEDOUT);
    EXPECT_EQ(vsan_trap_vsan_set(1), -1);
    EXPECT_EQ(vsan_trap_vsan_set(1), -1);
    EXPECT_TRACED(101, "****Ret_Value:1234567 [#(vsan_trap_vsan_set)]\n");
    EXPECT_TRACED(101, "****Ret_Value:-1 [#(vsan_trap_vsan_set)]\n");
    EXPECT_EQ(platform.history.size(), 2u) << all_traces();
}

} // namespace
