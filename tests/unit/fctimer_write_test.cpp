// SPDX-License-Identifier: Apache-2.0
// SET of a VSAN's three timers: each phase, each check, and the request.

#include "fctimer_test.h"
#include "set_pdu.h"

#include <cerrno>
#include <cstring>

namespace {

constexpr uint8_t UNSIGNED = 0x42;

struct writer {
    const char *object;
    WriteMethod *method;
    uint8_t magic;
    uint32_t lowest;
    uint8_t key;
    uint8_t force_bit;
    std::string type_text;
    std::string length_text;
    std::string value_text;
    // On entry to RESERVE1, RESERVE2, ACTION, COMMIT, FREE and UNDO; none where empty.
    std::vector<std::string> phase_texts;
};

void PrintTo(const writer &tested, std::ostream *out) {
    *out << tested.object;
}

constexpr uint32_t highest = 100000;

const writer writers[] = {
    {"vsanFcTimerRatov",
     set_vsanFcTimerRatov,
     RATOV,
     5000,
     8,
     0x80,
     "set_vsanFcTimerRatov : write to vsanFcTimerRatov not ASN_UNSIGNED \n",
     "set_vsanFcTimerRatov : write to vsanFcTimerRatov bad length\n",
     "set_vsanFcTimerRatov : wrong value \n",
     {"set_vsanFcTimerRatov : setting the values RESERVE1 ", "set_vsanFcTimerRatov : setting the values RESERVE2 ",
      "set_vsanFcTimerRatov : setting the values ACTION", "", "set_vsanFcTimerRatov : setting the values FREE ", ""}},
    {"vsanFcTimerEdtov", set_vsanFcTimerEdtov, EDTOV, 1000, 7, 0x40,
     " set_vsanFcTimerEdtov : write to vsanFcTimerEdtov not ASN_UNSIGNED\n",
     " set_vsanFcTimerEdtov : write to vsanFcTimerEdtov bad length \n",
     " set_vsanFcTimerEdtov : write to vsanFcTimerEdtov wrong value \n",
     std::vector<std::string>(6, "set_vsanFcTimerEdtov : setting the values")},
    {"vsanFcTimerDstov", set_vsanFcTimerDstov, DSTOV, 5000, 9, 0x20,
     "set_vsanFcTimerDstov : write to vsanFcTimerDstov not ASN_UNSIGNED\n",
     "set_vsanFcTimerDstov : write to vsanFcTimerDstov - bad length \n",
     "set_vsanFcTimerDstov : write to vsanFcTimerDstov - wrong value \n",
     std::vector<std::string>(6, "set_vsanFcTimerDstov : setting the values")},
};

class FcTimerWrite : public FcTimerTest, public testing::WithParamInterface<writer> {
  protected:
    static oid_name instance(oid vsan) { return registered_object(GetParam().magic).instance({vsan}); }
    static std::string function() { return "set_" + std::string(GetParam().object); }
    static const std::string &phase_text(int phase) { return GetParam().phase_texts[static_cast<size_t>(phase)]; }

    // One phase with any type and value, and nothing on standard error.
    static int call(int phase, uint8_t type, const bytes &value, const oid_name &name) {
        forget_traces();
        testing::internal::CaptureStderr();
        const int status = write(GetParam().method, phase, type, value, name);
        fflush(stderr);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
        return status;
    }
    static int reserve(uint8_t type, const bytes &value, oid vsan = 20) {
        return call(RESERVE1_PHASE, type, value, instance(vsan));
    }
    static int reserve_number(int64_t number) { return reserve(UNSIGNED, as_long(number)); }
    static int act(uint32_t value, oid vsan = 20) {
        return call(ACTION_PHASE, UNSIGNED, as_long(value), instance(vsan));
    }

    static void expect_refusal_text(const std::string &text) {
        expect_history({{101, phase_text(RESERVE1_PHASE)}, {101, text}});
    }
};

TEST_P(FcTimerWrite, AcceptsItsBoundsAndNothingOutside) {
    const uint32_t lowest = GetParam().lowest;
    for (const int64_t number :
         {int64_t{lowest}, int64_t{lowest} + 1, int64_t{50000}, int64_t{highest} - 1, int64_t{highest}}) {
        EXPECT_EQ(reserve_number(number), 0) << number;
    }
    for (const int64_t number :
         {int64_t{0}, int64_t{lowest} - 1, int64_t{highest} + 1, int64_t{-1}, int64_t{INT32_MAX}, int64_t{INT32_MIN}}) {
        EXPECT_EQ(reserve_number(number), 10) << number;
        expect_refusal_text(GetParam().value_text);
    }
    EXPECT_EQ(reserve(UNSIGNED, as_word(UINT32_MAX)), 10);
    EXPECT_EQ(reserve(UNSIGNED, as_word(0x80000000u + lowest)), 10);
    EXPECT_TRUE(platform.requests.empty()) << "checks send nothing";
}

TEST_P(FcTimerWrite, RefusesEveryOtherTypeWithItsText) {
    for (const uint8_t type : bytes{0x02, 0x04, 0x05, 0x06, 0x40, 0x41, 0x43, 0x44, 0x46, 0x00, 0xFF}) {
        EXPECT_EQ(reserve(type, as_long(10000)), 7) << int{type};
        expect_refusal_text(GetParam().type_text);
    }
    EXPECT_TRUE(platform.journal.empty());
}

TEST_P(FcTimerWrite, RefusesEveryOtherLengthWithItsText) {
    for (size_t length = 5; length <= 16; ++length) {
        if (length == sizeof(long)) {
            continue;
        }
        EXPECT_EQ(reserve(UNSIGNED, bytes(length, 0x10)), 8) << length;
        expect_refusal_text(GetParam().length_text);
    }
    EXPECT_TRUE(platform.journal.empty());
}

TEST_P(FcTimerWrite, AcceptsAWordAndTheAgentsLongAndReadsNoMoreThanThereIs) {
    EXPECT_EQ(reserve(UNSIGNED, as_word(highest)), 0);
    EXPECT_EQ(reserve(UNSIGNED, as_long(highest)), 0);
    EXPECT_EQ(reserve(UNSIGNED, as_word(60000, 2)), 0);
    EXPECT_EQ(reserve(UNSIGNED, as_word(highest, 3)), 0);
    EXPECT_EQ(reserve(UNSIGNED, as_word(255, 1)), 10);
    EXPECT_EQ(reserve(UNSIGNED, {}), 10);
}

TEST_P(FcTimerWrite, EightBytesCountForTheirLowWordWhereALongHasThem) {
    const bool is_long = sizeof(long) == 8;
    for (const int64_t high : {int64_t{1}, int64_t{-1}, int64_t{INT32_MAX}, int64_t{INT32_MIN}}) {
        EXPECT_EQ(reserve(UNSIGNED, as_eight_bytes(high * 4294967296 + highest)), is_long ? 0 : 8) << high;
        EXPECT_EQ(reserve(UNSIGNED, as_eight_bytes(high * 4294967296 + highest + 1)), is_long ? 10 : 8) << high;
    }
}

TEST_P(FcTimerWrite, ChecksTypeLengthValueInstanceAndUserInThatOrder) {
    platform.restrict_to({});
    EXPECT_EQ(reserve(0x02, bytes(5, 0xFF), 0), 7);
    EXPECT_EQ(reserve(UNSIGNED, bytes(5, 0xFF), 0), 8);
    EXPECT_EQ(reserve(UNSIGNED, as_long(1), 0), 10);
    EXPECT_EQ(reserve(UNSIGNED, as_long(10000), 0), 18);
    EXPECT_TRUE(platform.allowed_calls.empty());
    EXPECT_EQ(reserve(UNSIGNED, as_long(10000), 20), 5);
}

TEST_P(FcTimerWrite, InstancesBeginAtVsan1AndEndAt4095) {
    for (const oid vsan : {oid{1}, oid{77}, oid{4095}}) {
        EXPECT_EQ(reserve(UNSIGNED, as_long(10000), vsan), 0);
    }
    for (const oid vsan : {oid{0}, oid{4096}, oid{0x80000001}, largest_arc}) {
        EXPECT_EQ(reserve(UNSIGNED, as_long(10000), vsan), 18) << vsan;
    }
    EXPECT_TRUE(platform.requests.empty()) << "whether the VSAN exists is the manager's to say";
}

TEST_P(FcTimerWrite, ANameOfAnotherLengthIsNoInstance) {
    oid_name column = registered_object(GetParam().magic).name();
    oid_name longer = column;
    longer.insert(longer.end(), {20, 1});
    for (const oid_name &name : {column, longer}) {
        EXPECT_EQ(call(RESERVE1_PHASE, UNSIGNED, as_long(10000), name), 18);
        EXPECT_EQ(call(ACTION_PHASE, UNSIGNED, as_long(10000), name), 5) << "mapped, not a name status";
    }
    EXPECT_TRUE(platform.requests.empty());
    EXPECT_TRUE(platform.heartbeats.empty());
    EXPECT_TRUE(platform.errors_set.empty());
}

TEST_P(FcTimerWrite, AUserIsAskedAboutTheNameAsForASet) {
    reserve_number(10000);
    expect_restriction_asked({instance(20)}, 163);
    EXPECT_TRUE(platform.list_sizes_passed.empty());
    EXPECT_TRUE(platform.error_records.empty());
}

TEST_P(FcTimerWrite, ARestrictedUserMayWriteTheirOwnVsansOnly) {
    platform.restrict_to({20});
    EXPECT_EQ(reserve(UNSIGNED, as_long(10000), 20), 0);
    EXPECT_TRUE(platform.error_records.empty());
    EXPECT_EQ(reserve(UNSIGNED, as_long(10000), 30), 5);
    EXPECT_TRACED(100, function() + " : vsan restricted user -- not allowed in this vsan\n");
    ASSERT_EQ(platform.error_records.size(), 1u);
    EXPECT_EQ(platform.error_records[0].code, 0x4049002Cu);
    EXPECT_EQ(std::string(platform.error_records[0].text), failure_text(0x4049002C));
    EXPECT_TRUE(platform.errors_set.empty());
    EXPECT_TRUE(platform.requests.empty());
}

TEST_P(FcTimerWrite, AnyListResultButZeroRestricts) {
    platform.restrict_to({20});
    for (const int result : {2, -1}) {
        platform.restriction_result = result;
        EXPECT_EQ(reserve(UNSIGNED, as_long(10000), 30), 5) << result;
    }
}

TEST_P(FcTimerWrite, AnyAnswerButZeroPermitsAVsan) {
    platform.restrict_to({20});
    for (const int permitted : {2, -1}) {
        platform.permitted_result = permitted;
        EXPECT_EQ(reserve(UNSIGNED, as_long(10000), 20), 0) << permitted;
    }
}

TEST_P(FcTimerWrite, ActionSendsOneRequestWithTheWholeEnvelope) {
    platform.user = "alice";
    platform.session = 77;
    EXPECT_EQ(act(highest, 4095), 0);
    ASSERT_EQ(platform.requests.size(), 1u);
    const sent_request &request = platform.requests[0];
    EXPECT_EQ(request.opcode, 127u);
    EXPECT_EQ(request.kind, 3u);
    EXPECT_EQ(request.payload, (bytes{0, 0, 0, GetParam().key, 0x00, 0x01, 0x86, 0xA0, 1, 0, 0, 0, 0x0F, 0xFF, 0}));
    EXPECT_EQ(request.length, 15u);
    EXPECT_FALSE(request.expects_reply);
    EXPECT_EQ(request.user, "alice");
    EXPECT_EQ(request.session, 77u);
    EXPECT_EQ(request.service, 15u);
    EXPECT_EQ(request.queue, mts_response_q);
    EXPECT_EQ(request.wait_class, 10u);
    EXPECT_EQ(platform.journal, (std::vector<std::string>{"heartbeat 1", "request 127 kind 3", "heartbeat 0"}));
    EXPECT_TRUE(platform.errors_set.empty());
    EXPECT_TRUE(platform.tdx_features.empty()) << "a SET is the manager's, whatever the service does";
}

TEST_P(FcTimerWrite, ActionReadsAWordAsItReadsALong) {
    EXPECT_EQ(call(ACTION_PHASE, UNSIGNED, as_word(GetParam().lowest), instance(20)), 0);
    EXPECT_EQ(act(GetParam().lowest), 0);
    EXPECT_EQ(call(ACTION_PHASE, UNSIGNED, as_word(6000, 2), instance(20)), 0);
    ASSERT_EQ(platform.requests.size(), 3u);
    EXPECT_EQ(platform.requests[0].payload, timer_record(GetParam().key, GetParam().lowest, 1, 0, 20, 0));
    EXPECT_EQ(platform.requests[1].payload, platform.requests[0].payload);
    EXPECT_EQ(platform.requests[2].payload, timer_record(GetParam().key, 6000, 1, 0, 20, 0));
}

TEST_P(FcTimerWrite, ForceByteIsTheTimersOwnBitOfItsVsan) {
    for (int flags = 0; flags < 256; ++flags) {
        platform.requests.clear();
        vsanFcTimerForceFlags[20] = static_cast<uint8_t>(flags);
        vsanFcTimerForceFlags[19] = vsanFcTimerForceFlags[21] = static_cast<uint8_t>(~flags);
        EXPECT_EQ(act(10000), 0);
        const uint8_t forced = (flags & GetParam().force_bit) != 0 ? 1 : 0;
        ASSERT_EQ(platform.requests.at(0).payload, timer_record(GetParam().key, 10000, 1, forced, 20, 0)) << flags;
        EXPECT_EQ(vsanFcTimerForceFlags[20], flags) << "it stays armed";
    }
}

TEST_P(FcTimerWrite, ActionIsTraced) {
    const auto wanted = [](const std::string &forced) {
        return std::vector<trace_line>{{101, phase_text(ACTION_PHASE)},
                                       {101, "get_vsanFcTimerEntry_instance : Entered "},
                                       {101, "get_vsanFcTimerEntry_instance : *length = 15 , vp_namelen = 14 "},
                                       {101, "get_vsanFcTimerEntry_instance : Exit with success "},
                                       {101, function() + " : ACTION vsanid = 20  ForceFlag SET - " + forced + " "}};
    };
    act(10000);
    expect_history(wanted("false"));
    vsanFcTimerForceFlags[20] = GetParam().force_bit;
    act(10000);
    expect_history(wanted("true"));
}

TEST_P(FcTimerWrite, EveryPhaseIsTracedAsItsWriterDoes) {
    for (int phase = 0; phase < 6; ++phase) {
        call(phase, UNSIGNED, as_long(10000), instance(20));
        std::vector<std::string> seen;
        for (const trace_line &line : platform.history) {
            if (line.text.find("setting the values") != std::string::npos) {
                EXPECT_EQ(line.trace_class, 101u);
                seen.push_back(line.text);
            }
        }
        std::vector<std::string> wanted;
        if (!phase_text(phase).empty()) {
            wanted.push_back(phase_text(phase));
        }
        EXPECT_EQ(seen, wanted) << phase;
    }
}

TEST_P(FcTimerWrite, TheOtherPhasesDoNothingElse) {
    for (const set_phase phase : {RESERVE2_PHASE, COMMIT_PHASE, FREE_PHASE, UNDO_PHASE}) {
        EXPECT_EQ(call(phase, UNSIGNED, as_long(10000), instance(20)), 0);
        EXPECT_EQ(call(phase, 0x04, bytes(5, 0xFF), instance(0)), 0);
        EXPECT_LE(platform.history.size(), 1u) << all_traces();
    }
    for (const int phase : {-1, 6, 100}) {
        EXPECT_EQ(call(phase, UNSIGNED, as_long(10000), instance(20)), 0);
    }
    EXPECT_TRUE(platform.journal.empty());
}

TEST_P(FcTimerWrite, ARefusalIsTracedRecordedAndMappedAndTheHeartbeatBalanced) {
    struct {
        scripted_reply reply;
        int error;
        std::string reason;
    } const refusals[] = {
        {{0x40190001, 0, std::nullopt}, 18, failure_text(0x40190001)},
        {{0x40190004, 0, std::nullopt}, 18, failure_text(0x40190004)},
        {{0x40190002, 0, std::nullopt}, 5, failure_text(0x40190002)},
        {{tdx_refused, 0, std::nullopt}, 5, failure_text(tdx_refused)},
        {{some_failure, EPERM, std::nullopt}, 5, failure_text(some_failure)},
        {{UINT32_MAX, ETIMEDOUT, std::nullopt}, 5, strerror(ETIMEDOUT)},
        {{UINT32_MAX, ECONNREFUSED, std::nullopt}, 5, strerror(ECONNREFUSED)},
    };
    for (const auto &refused : refusals) {
        SCOPED_TRACE(testing::Message() << refused.reply.status << " errno " << refused.reply.error_number);
        platform.requests.clear();
        platform.heartbeats.clear();
        platform.errors_set.clear();
        timer_answers = {refused.reply};
        EXPECT_EQ(act(10000), refused.error);
        EXPECT_EQ(platform.requests.size(), 1u) << "not sent again";
        EXPECT_EQ(platform.heartbeats, (std::vector<int>{1, 0}));
        EXPECT_EQ(platform.errors_set, (std::vector<std::pair<uint32_t, uint32_t>>{{refused.reply.status, 200}}));
        EXPECT_TRACED(100, function() + " : ACTION set REq failed , " + refused.reason + "  ");
    }
}

TEST_P(FcTimerWrite, TheLastStatusIsKeptForRatovOnlyAndByNobodyElse) {
    constexpr uint32_t before = 0x5555, force_flags = 0x6666;
    const bool is_kept = GetParam().magic == RATOV;
    const auto expect_kept = [&](uint32_t status) {
        EXPECT_EQ(last_timer_status, is_kept ? status : before);
        EXPECT_EQ(last_force_flag_status, force_flags);
        last_timer_status = before;
    };
    last_timer_status = before;
    last_force_flag_status = force_flags;
    for (const set_phase phase : {RESERVE1_PHASE, ACTION_PHASE}) {
        call(phase, UNSIGNED, as_long(10000), instance(4096));
        expect_kept(no_instance);
    }
    reserve_number(10000);
    expect_kept(0);
    act(10000);
    expect_kept(0);
    timer_answers = {{some_failure, 0, std::nullopt}};
    act(10000);
    expect_kept(some_failure);
    reserve_number(1);
    EXPECT_EQ(last_timer_status, before) << "nothing was resolved or sent";
}

TEST_P(FcTimerWrite, AVsanDeletedBetweenThePhasesIsTheManagersToRefuse) {
    set_pdu pdu({unsigned32(GetParam().magic, 20, 10000)});
    pdu.before = [this](set_phase next) {
        if (next == ACTION_PHASE) {
            timer_answers = {{0x40190001, 0, std::nullopt}};
        }
    };
    EXPECT_EQ(pdu.run(), (set_outcome{18, 1}));
    EXPECT_EQ(platform.heartbeats, (std::vector<int>{1, 0}));
    EXPECT_EQ(platform.errors_set, (std::vector<std::pair<uint32_t, uint32_t>>{{0x40190001, 200}}));
    EXPECT_EQ(pdu.later_errors, (std::vector<int>{0, 0}));
}

TEST_P(FcTimerWrite, AnAcceptedValueIsNotTakenBackWhenALaterOneFails) {
    timer_answers = {{0, 0, timer_record(8, 1, 1, 0, 20, 0)},
                     {0, 0, timer_record(8, 1, 1, 0, 30, 0)},
                     {0, 0, std::nullopt},
                     {some_failure, 0, std::nullopt}};
    const uint8_t magic = GetParam().magic;
    EXPECT_EQ(set_pdu({unsigned32(magic, 20, 10000), unsigned32(magic, 30, 10001)}).run(), (set_outcome{5, 2}));
    EXPECT_EQ(timers_asked(), (std::vector<uint32_t>{20, 30, 20, 30})) << "read and written once each";
    EXPECT_EQ(platform.heartbeats, (std::vector<int>{1, 0, 1, 0}));
}

INSTANTIATE_TEST_SUITE_P(All, FcTimerWrite, testing::ValuesIn(writers),
                         [](const auto &tested) { return std::string(tested.param.object); });

} // namespace
