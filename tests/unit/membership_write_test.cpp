// SPDX-License-Identifier: Apache-2.0
// SET of an interface's VSAN, the choice of the interface columns' write methods, and the
// functions that stand for writers that do nothing.

#include "module_test.h"
#include "set_pdu.h"

#include <cerrno>

namespace {

constexpr uint8_t INTEGER = 0x02;

const char type_text[] = "write to vsanIfVsan not ASN_INTEGER\n";
const char length_text[] = "write to vsanIfVsan: bad length\n";

class MembershipWrite : public ModuleTest {
  protected:
    struct refusal {
        int status;
        std::string standard_error;
    };

    const oid_name name = registered_object(16).instance({16777216});

    refusal reserve(uint8_t type, const bytes &value) const {
        testing::internal::CaptureStderr();
        const int status = write(set_vsanIfVsan, RESERVE1_PHASE, type, value, name);
        fflush(stderr);
        return {status, testing::internal::GetCapturedStderr()};
    }
    int reserve_number(int64_t number) const { return reserve(INTEGER, as_long(number)).status; }
    int act(int64_t vsan) const { return write(set_vsanIfVsan, ACTION_PHASE, INTEGER, as_long(vsan), name); }

    // The interface is in VSAN 20, has a deny list, and a row status in the manager's own
    // byte order.
    static bytes present_record() { return if_record(16777216, 20, 0x01020304, {9, 8, 7, 6}); }
    static bytes moved_record(uint32_t vsan) { return if_record(16777216, vsan, 0x01020304, {9, 8, 7, 6}); }

    static void manager_accepts() {
        platform.on(124, 1).reply(present_record());
        platform.on(124, 3).no_data();
    }
};

TEST_F(MembershipWrite, AcceptsVsans1To4095AndNothingElse) {
    for (const int64_t vsan : {1, 2, 20, 4094, 4095}) {
        EXPECT_EQ(reserve_number(vsan), 0) << vsan;
    }
    for (const int64_t vsan : {0, 4096, -1, 65537, INT32_MAX, INT32_MIN}) {
        EXPECT_EQ(reserve_number(vsan), 10) << vsan;
    }
    EXPECT_EQ(reserve(INTEGER, as_word(0xFFFFFFFF)).status, 10);
    EXPECT_EQ(reserve(INTEGER, as_word(0x80000001)).status, 10);
    EXPECT_TRUE(platform.requests.empty());
}

TEST_F(MembershipWrite, AValueRefusalSaysNothing) {
    EXPECT_EQ(reserve(INTEGER, as_long(4096)).standard_error, "");
    EXPECT_TRUE(platform.history.empty()) << all_traces();
    EXPECT_TRUE(platform.journal.empty());
}

TEST_F(MembershipWrite, RefusesEveryOtherTypeOnStandardError) {
    for (const uint8_t type : bytes{0x04, 0x05, 0x06, 0x40, 0x41, 0x42, 0x43, 0x46, 0x00, 0xFF}) {
        const refusal refused = reserve(type, as_long(20));
        EXPECT_EQ(refused.status, 7) << int{type};
        EXPECT_EQ(refused.standard_error, type_text);
    }
    EXPECT_TRUE(platform.journal.empty());
    EXPECT_TRUE(platform.history.empty()) << all_traces();
}

TEST_F(MembershipWrite, RefusesEveryOtherLengthOnStandardError) {
    for (size_t length = 5; length <= 16; ++length) {
        if (length == sizeof(long)) {
            continue;
        }
        bytes value(length);
        value[0] = 20;
        const refusal refused = reserve(INTEGER, value);
        EXPECT_EQ(refused.status, 8) << length;
        EXPECT_EQ(refused.standard_error, length_text);
    }
    EXPECT_TRUE(platform.journal.empty());
}

TEST_F(MembershipWrite, AcceptsAWordAndTheAgentsLongAndReadsNoMoreThanThereIs) {
    EXPECT_EQ(reserve(INTEGER, as_word(4095)).status, 0);
    EXPECT_EQ(reserve(INTEGER, as_long(4095)).status, 0);
    EXPECT_EQ(reserve(INTEGER, as_word(20, 1)).status, 0);
    EXPECT_EQ(reserve(INTEGER, as_word(4095, 2)).status, 0);
    EXPECT_EQ(reserve(INTEGER, as_word(4096, 3)).status, 10);
    EXPECT_EQ(reserve(INTEGER, {}).status, 10);
}

TEST_F(MembershipWrite, EightBytesCountForTheirLowWordWhereALongHasThem) {
    const bool is_long = sizeof(long) == 8;
    for (const int64_t high : {int64_t{1}, int64_t{-1}, int64_t{INT32_MAX}, int64_t{INT32_MIN}}) {
        EXPECT_EQ(reserve(INTEGER, as_eight_bytes(high * 4294967296 + 4095)).status, is_long ? 0 : 8) << high;
        EXPECT_EQ(reserve(INTEGER, as_eight_bytes(high * 4294967296 + 4096)).status, is_long ? 10 : 8) << high;
    }
}

TEST_F(MembershipWrite, ChecksTypeThenLengthThenValueThenUser) {
    platform.restrict_to({});
    EXPECT_EQ(reserve(0x42, bytes(5, 0xFF)).status, 7);
    EXPECT_EQ(reserve(INTEGER, bytes(5, 0xFF)).status, 8);
    EXPECT_EQ(reserve(INTEGER, as_long(4096)).status, 10);
    EXPECT_TRUE(platform.allowed_calls.empty());
    EXPECT_EQ(reserve(INTEGER, as_long(20)).status, 5);
}

TEST_F(MembershipWrite, AppliesTheInterfaceRuleToTheLastArcForASet) {
    platform.restrict_to({30});
    EXPECT_EQ(reserve_number(30), 0);
    ASSERT_EQ(platform.allowed_calls.size(), 1u);
    EXPECT_EQ(platform.allowed_calls[0].name, name);
    EXPECT_EQ(platform.allowed_calls[0].pdu_type, 163);
    ASSERT_EQ(platform.role_checks.size(), 1u);
    EXPECT_EQ(platform.role_checks[0].if_index, 16777216u);
    EXPECT_EQ(platform.role_checks[0].operation, 1);
    ASSERT_EQ(platform.vsan_checks.size(), 1u);
    EXPECT_EQ(platform.vsan_checks[0].vsan, 30u);
    EXPECT_EQ(platform.vsan_checks[0].pdu_type, 163);

    const oid_name longer = registered_object(16).instance({16777216, 7});
    EXPECT_EQ(write(set_vsanIfVsan, RESERVE1_PHASE, INTEGER, as_long(30), longer), 0);
    EXPECT_EQ(platform.allowed_calls.back().name, longer);
    EXPECT_EQ(platform.role_checks.back().if_index, 7u);
    EXPECT_TRUE(platform.requests.empty());
}

TEST_F(MembershipWrite, ActionForANameOfAnotherLengthAsksForInterfaceZero) {
    platform.on(124, 1).status(0x40190001);
    const registered_object object(16);
    for (const oid_name &other : {object.name(), object.instance({16777216, 7})}) {
        platform.requests.clear();
        EXPECT_EQ(write(set_vsanIfVsan, ACTION_PHASE, INTEGER, as_long(30), other), 18);
        ASSERT_EQ(platform.requests.size(), 1u);
        EXPECT_EQ(platform.requests[0].payload, if_record(0, 0, 0));
    }
}

TEST_F(MembershipWrite, AVsanThatIsNotTheUsersIsAGeneralErrorRecordedOnce) {
    platform.restrict_to({30});
    EXPECT_EQ(reserve_number(20), 5);
    EXPECT_EQ(platform.errors_set, (std::vector<std::pair<uint32_t, uint32_t>>{{0x4049002C, 584}}));
}

TEST_F(MembershipWrite, ABarredInterfaceIsAGeneralErrorWhateverTheRoleTestSays) {
    platform.restrict_to({30});
    for (const int barred : {1, -1, 77}) {
        platform.barred_interfaces = {{16777216, barred}};
        EXPECT_EQ(reserve_number(30), 5) << barred;
    }
    EXPECT_TRUE(platform.errors_set.empty()) << "only the VSAN's refusal is recorded";
}

TEST_F(MembershipWrite, ActionReadsTheRecordAndSendsItWithTheNewVsan) {
    manager_accepts();
    platform.user = "alice";
    platform.session = 77;
    EXPECT_EQ(act(4095), 0);
    ASSERT_EQ(platform.requests.size(), 2u);
    const sent_request &read = platform.requests[0];
    EXPECT_EQ(read.opcode, 124u);
    EXPECT_EQ(read.kind, 1u);
    EXPECT_EQ(read.payload, if_record(16777216, 0, 0));
    EXPECT_TRUE(read.expects_reply);
    EXPECT_FALSE(read.user);
    EXPECT_EQ(read.session, 0u);
    EXPECT_EQ(read.wait_class, 4u);

    const sent_request &sent = platform.requests[1];
    EXPECT_EQ(sent.opcode, 124u);
    EXPECT_EQ(sent.kind, 3u);
    EXPECT_EQ(sent.payload, moved_record(4095)) << "everything else as it was read";
    EXPECT_EQ(sent.length, 16u);
    EXPECT_FALSE(sent.expects_reply);
    EXPECT_EQ(sent.user, "alice");
    EXPECT_EQ(sent.session, 77u);
    EXPECT_EQ(sent.service, 15u);
    EXPECT_EQ(sent.queue, mts_response_q);
    EXPECT_EQ(sent.wait_class, 4u);
    EXPECT_TRUE(platform.heartbeats.empty());
    EXPECT_TRUE(platform.errors_set.empty());
}

TEST_F(MembershipWrite, ActionReadsAWordAsItReadsALong) {
    manager_accepts();
    EXPECT_EQ(write(set_vsanIfVsan, ACTION_PHASE, INTEGER, as_word(30), name), 0);
    EXPECT_EQ(write(set_vsanIfVsan, ACTION_PHASE, INTEGER, as_word(30, 2), name), 0);
    EXPECT_EQ(act(30), 0);
    ASSERT_EQ(platform.requests.size(), 6u);
    for (const size_t sent : {1u, 3u, 5u}) {
        EXPECT_EQ(platform.requests[sent].payload, moved_record(30)) << sent;
    }
}

TEST_F(MembershipWrite, ActionSendsTheRecordThatCameBack) {
    platform.on(124, 1).reply(if_record(5, 20, 0, {1, 2, 3, 4}));
    platform.on(124, 3).no_data();
    EXPECT_EQ(act(30), 0);
    EXPECT_EQ(platform.requests.at(1).payload, if_record(5, 30, 0, {1, 2, 3, 4}));
}

TEST_F(MembershipWrite, AnInterfaceWhoseRecordCannotBeReadFailsInAction) {
    struct {
        uint32_t status;
        int error;
    } constexpr failures[] = {{0x40190001, 18}, {0x40190004, 18}, {0x40190002, 5}, {some_failure, 5}};
    for (const auto &failure : failures) {
        SCOPED_TRACE(failure.status);
        platform.on(124, 1) = reply_script().status(failure.status);
        EXPECT_EQ(reserve_number(30), 0);
        EXPECT_EQ(act(30), failure.error);
    }
    platform.on(124, 1) = reply_script().fails(ECONNREFUSED);
    EXPECT_EQ(act(30), 5);
    platform.on(124, 1) = reply_script().reply(bytes(15));
    EXPECT_EQ(act(30), 5) << "a short record is no record";
    for (const sent_request &request : platform.requests) {
        EXPECT_EQ(request.kind, 1u);
    }
    EXPECT_TRUE(platform.errors_set.empty()) << "a failed read is only mapped";
}

TEST_F(MembershipWrite, ARefusalIsRecordedAndMapped) {
    struct {
        uint32_t status;
        int error;
    } constexpr refusals[] = {{0x40190001, 18}, {0x40190004, 18}, {0x40190002, 5}, {some_failure, 5}, {UINT32_MAX, 5}};
    for (const auto &refused : refusals) {
        SCOPED_TRACE(refused.status);
        platform.errors_set.clear();
        platform.on(124, 1) = reply_script().reply(present_record());
        platform.on(124, 3) = reply_script().status(refused.status);
        EXPECT_EQ(act(30), refused.error);
        EXPECT_EQ(platform.errors_set, (std::vector<std::pair<uint32_t, uint32_t>>{{refused.status, 200}}));
    }
}

TEST_F(MembershipWrite, TheOtherPhasesDoNothing) {
    for (const int phase : {int{RESERVE2_PHASE}, int{COMMIT_PHASE}, int{FREE_PHASE}, int{UNDO_PHASE}, 6, -1}) {
        EXPECT_EQ(write(set_vsanIfVsan, phase, INTEGER, as_long(30), name), 0) << phase;
        EXPECT_EQ(write(set_vsanIfVsan, phase, 0x04, bytes(5, 0xFF), name), 0) << phase;
    }
    EXPECT_TRUE(platform.journal.empty());
    EXPECT_TRUE(platform.history.empty()) << all_traces();
}

TEST_F(MembershipWrite, EachVarbindOfAPduSendsExactlyOneSet) {
    platform.manager = [](const sent_request &request) -> scripted_reply {
        if (request.kind == 3) {
            return {};
        }
        return {0, 0, if_record(get_word(request.payload, 0), 1, 0)};
    };
    EXPECT_EQ(set_pdu({integer(16, 5, 30), integer(16, 6, 31)}).run(), set_outcome{});
    std::vector<bytes> sent;
    for (const sent_request &request : platform.requests) {
        if (request.kind == 3) {
            sent.push_back(request.payload);
        }
    }
    EXPECT_EQ(sent, (std::vector<bytes>{if_record(5, 30, 0), if_record(6, 31, 0)}));
}

TEST_F(MembershipWrite, AMoveIsNotTakenBackWhenALaterOneFails) {
    platform.manager = [](const sent_request &request) -> scripted_reply {
        const uint32_t if_index = get_word(request.payload, 0);
        if (request.kind == 3) {
            return {if_index == 6 ? some_failure : 0, 0, std::nullopt};
        }
        return {0, 0, if_record(if_index, 1, 0)};
    };
    set_pdu pdu({integer(16, 5, 30), integer(16, 6, 31), integer(16, 7, 32)});
    EXPECT_EQ(pdu.run(), (set_outcome{5, 2}));
    std::vector<uint32_t> sent;
    for (const sent_request &request : platform.requests) {
        if (request.kind == 3) {
            sent.push_back(get_word(request.payload, 0));
        }
    }
    EXPECT_EQ(sent, (std::vector<uint32_t>{5, 6, 7})) << "once each, and nothing to undo";
    EXPECT_EQ(pdu.later_errors, (std::vector<int>{0, 0}));
}

TEST_F(MembershipWrite, SuccessWithoutARecordSendsTheIndexAndTheVsanAlone) {
    platform.on(124, 1).no_data();
    platform.on(124, 3).no_data();
    EXPECT_EQ(act(30), 0);
    EXPECT_EQ(platform.requests.at(1).payload, if_record(16777216, 30, 0));
}

using FixedResults = ModuleTest;

int other_method(int, u_char *, u_char, size_t, u_char *, oid *, size_t) {
    return 0;
}

TEST_F(FixedResults, InterfaceColumnsGetTheirWriteMethods) {
    for (int magic = -1; magic <= 256; ++magic) {
        WriteMethod *slot = other_method;
        set_if_table_set_methods(magic, &slot);
        if (magic == 16) {
            EXPECT_EQ(slot, set_vsanIfVsan);
        } else if (magic == 17) {
            EXPECT_EQ(slot, nullptr);
        } else {
            EXPECT_EQ(slot, other_method) << magic;
        }
    }
}

TEST_F(FixedResults, DenyListMediaTypeAndMtuRefuseEveryPhaseWithNoSuchName) {
    for (WriteMethod *method : {set_vsanIfDenyList, set_vsanMediaType, set_vsanMtu}) {
        for (int phase = -1; phase <= 6; ++phase) {
            EXPECT_EQ(method(phase, nullptr, 0, 0, nullptr, nullptr, 0), 2) << phase;
            EXPECT_EQ(write(method, phase, INTEGER, as_long(1)), 2) << phase;
        }
    }
    EXPECT_TRUE(platform.journal.empty());
    EXPECT_TRUE(platform.history.empty()) << all_traces();
}

TEST_F(FixedResults, EveryInterfaceIndexIsValid) {
    EXPECT_EQ(check_valid_ifindex(), 1);
    EXPECT_TRUE(platform.journal.empty());
}

} // namespace
