// SPDX-License-Identifier: Apache-2.0
// What the timer table's read handler answers, and to whom.

#include "fctimer_test.h"

#include <cstring>

namespace {

class FcTimerColumns : public FcTimerTest {
  protected:
    static int stale_write_method(int, u_char *, u_char, size_t, u_char *, oid *, size_t) { return 1; }

    registered_object column{RATOV};
};

TEST_F(FcTimerColumns, TimersAreTheManagersNumbersUnconverted) {
    for (const uint8_t magic : bytes{RATOV, EDTOV, DSTOV, FSTOV}) {
        for (const uint32_t value : {0u, 1u, 10000u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
            timer_answers = {{0, 0, timer_record(8, value, 1, 0, 20, 0)}};
            const read_answer answer = get(magic, {20});
            EXPECT_EQ(answer.length, 4u);
            EXPECT_EQ(answer.number(), static_cast<int32_t>(value));
        }
    }
}

TEST_F(FcTimerColumns, EachColumnShowsItsOwnTimer) {
    for (const auto &[magic, key] : timer_of_column) {
        if (magic != FORCE_FLAG) {
            EXPECT_EQ(get(magic, {20}).number(), value_of(1, 20, key));
        }
    }
}

TEST_F(FcTimerColumns, TheValueLiesInTheCellOfTheRowStatus) {
    const read_answer answer = get(RATOV, {20});
    EXPECT_EQ(answer.value, reinterpret_cast<const u_char *>(&vsanRowStatus_active));
    EXPECT_EQ(get(FSTOV, {20}).value, answer.value);
    platform.manager = nullptr;
    EXPECT_EQ(get(11, {20}).value, answer.value);
    EXPECT_EQ(vsanRowStatus_active, 1) << "each handler writes it anew";
}

TEST_F(FcTimerColumns, ForceFlagIsTheVsansOneByte) {
    vsanFcTimerForceFlags[20] = 0xE0;
    vsanFcTimerForceFlags[30] = 0x40;
    const read_answer answer = get(FORCE_FLAG, {20});
    ASSERT_TRUE(answer.present);
    EXPECT_EQ(answer.length, 1u);
    EXPECT_EQ(*answer.value, 0xE0);
    EXPECT_EQ(*get_next(FORCE_FLAG, {20}).value, 0x40);
    EXPECT_EQ(*get(FORCE_FLAG, {1}).value, 0) << "none was written";
    EXPECT_NE(answer.value, &vsanFcTimerForceFlags[20]) << "a copy";
    EXPECT_NE(answer.value, reinterpret_cast<const u_char *>(&vsanRowStatus_active));
}

TEST_F(FcTimerColumns, ForceFlagIsThatOfTheVsanThatCameBack) {
    vsanFcTimerForceFlags[30] = 0x80;
    timer_answers = {{0, 0, timer_record(0, 0, 1, 0, 30, 0)}};
    EXPECT_EQ(*get(FORCE_FLAG, {20}).value, 0x80);
}

TEST_F(FcTimerColumns, ForceFlagHasNoValueWhereTheManagerRefusesTimerZero) {
    vsanFcTimerForceFlags[20] = 0x80;
    timer_answers = {{some_failure, 0, std::nullopt}};
    EXPECT_FALSE(get(FORCE_FLAG, {20}).present);
    EXPECT_EQ(get_word(platform.requests.at(0).payload, 0), 0u);
}

TEST_F(FcTimerColumns, AVsanBeyondTheForceFlagsHasNoForceFlag) {
    for (const uint32_t vsan : {4096u, 65536u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        const bytes reply = timer_record(0, 5, 1, 0, vsan, 0);
        timer_answers = {{0, 0, reply}, {0, 0, reply}, {0, 0, reply}};
        EXPECT_FALSE(get(FORCE_FLAG, {20}).present) << vsan;
        EXPECT_FALSE(get_next(FORCE_FLAG, {20}).present) << vsan;
        EXPECT_EQ(get(RATOV, {20}).name, column.instance({vsan})) << "a timer is indexed by nothing";
    }
    for (const uint32_t vsan : {0u, 4095u}) {
        vsanFcTimerForceFlags[vsan] = 0x20;
        timer_answers = {{0, 0, timer_record(0, 5, 1, 0, vsan, 0)}};
        EXPECT_EQ(*get(FORCE_FLAG, {20}).value, 0x20) << vsan;
    }
}

TEST_F(FcTimerColumns, WriteMethodsAreHandedOverForMissingRowsToo) {
    struct {
        uint8_t magic;
        WriteMethod *method;
    } const wanted[] = {{FORCE_FLAG, set_vsanFcTimerForceFlag},
                        {RATOV, set_vsanFcTimerRatov},
                        {EDTOV, set_vsanFcTimerEdtov},
                        {DSTOV, set_vsanFcTimerDstov},
                        {FSTOV, stale_write_method}};
    for (const auto &[magic, method] : wanted) {
        registered_object object(magic);
        EXPECT_EQ(object.read(object.instance({20}), 1, stale_write_method).write_method, method) << int{magic};
        EXPECT_EQ(object.read(object.instance({0}), 1, stale_write_method).write_method, method);
        EXPECT_EQ(object.read(object.name(), 0, stale_write_method).write_method, method);
    }
}

TEST_F(FcTimerColumns, AnAnswerIsTraced) {
    get(RATOV, {20});
    EXPECT_TRACED(101, "get_vsanFcTimerEntry : getting the values");
    forget_traces();
    get(RATOV, {0});
    EXPECT_NOT_TRACED(101, "get_vsanFcTimerEntry : getting the values");
}

TEST_F(FcTimerColumns, AnyOtherMagicIsABadThingBehindTheLookup) {
    for (const uint8_t magic : bytes{0, 3, 37, 43, 255}) {
        SCOPED_TRACE(int{magic});
        agent.details.clear();
        platform.requests.clear();
        column.var.magic = magic;
        const read_answer answer = column.read(column.instance({20}), 1, stale_write_method);
        EXPECT_FALSE(answer.present);
        EXPECT_EQ(answer.write_method, stale_write_method);
        EXPECT_EQ(agent.details, std::vector<std::string>{"BAD THING HAPPENED"});
        ASSERT_EQ(platform.requests.size(), 1u);
        EXPECT_EQ(get_word(platform.requests[0].payload, 0), 0u);
        EXPECT_FALSE(column.get(column.instance({0})).present);
        EXPECT_EQ(agent.details.size(), 1u) << "not for a missing row";
    }
}

TEST_F(FcTimerColumns, WalkSeesEveryVsan) {
    for (const auto &[magic, key] : timer_of_column) {
        EXPECT_EQ(walk_of_indexes(magic), (std::vector<oid>{1, 2, 20, 30, 40})) << int{magic};
    }
}

using FcTimerRestriction = FcTimerColumns;

TEST_F(FcTimerRestriction, IsAskedForTheNameOfTheRequestAsAGet) {
    column.get(column.instance({20}));
    column.get_next(column.instance({20, 7}));
    expect_restriction_asked({column.instance({20}), column.instance({20, 7})}, 160);
    EXPECT_TRUE(platform.list_sizes_passed.empty()) << "no list is consulted for an unrestricted user";
}

TEST_F(FcTimerRestriction, GetIsAskedAndThenHidden) {
    platform.restrict_to({20});
    for (const auto &[magic, key] : timer_of_column) {
        platform.requests.clear();
        EXPECT_TRUE(get(magic, {20}).present) << int{magic};
        EXPECT_FALSE(get(magic, {30}).present) << int{magic};
        EXPECT_EQ(timers_asked(), (std::vector<uint32_t>{20, 30}));
    }
    forget_traces();
    get(RATOV, {20});
    EXPECT_TRACED(101, "get_vsanFcTimerEntry(#) vsanIndex:20 , allowed:1 \n");
    EXPECT_TRUE(platform.errors_set.empty());
}

TEST_F(FcTimerRestriction, AnyListResultButZeroRestricts) {
    platform.restrict_to({30});
    for (const int result : {2, -1}) {
        platform.restriction_result = result;
        EXPECT_FALSE(get(RATOV, {20}).present) << result;
        EXPECT_EQ(walk_of_indexes(RATOV), std::vector<oid>{30}) << result;
    }
}

TEST_F(FcTimerRestriction, AnyAnswerButZeroPermitsAVsan) {
    platform.restrict_to({1, 30});
    for (const int permitted : {2, -1}) {
        platform.permitted_result = permitted;
        EXPECT_TRUE(get(RATOV, {30}).present) << permitted;
        EXPECT_FALSE(get(RATOV, {20}).present) << permitted;
        EXPECT_EQ(walk_of_indexes(RATOV), (std::vector<oid>{1, 30})) << permitted;
    }
}

TEST_F(FcTimerRestriction, TheVsanThatCameBackIsTestedNotTheOneAskedFor) {
    platform.restrict_to({20});
    timer_answers = {{0, 0, timer_record(8, 1, 1, 0, 30, 0)}};
    EXPECT_FALSE(get(RATOV, {20}).present);
    timer_answers = {{0, 0, timer_record(8, 1, 1, 0, 20, 0)}};
    EXPECT_TRUE(get(RATOV, {30}).present);
}

TEST_F(FcTimerRestriction, WalkSeesThePermittedVsansAndAsksFromTheNumberBefore) {
    platform.restrict_to({1, 30});
    EXPECT_EQ(walk_of_indexes(RATOV), (std::vector<oid>{1, 30}));
    EXPECT_EQ(starts_asked(), (std::vector<int64_t>{0, 1, 29, 30}));
    EXPECT_EQ(timers_asked(), (std::vector<uint32_t>{1, 2, 30, 40}));
    EXPECT_EQ(traced(101, "get_vsanFcTimerEntry(#) vsan_present:30 \n"), 1) << all_traces();
    EXPECT_EQ(traced(101, "get_vsanFcTimerEntry(#) vsan_present:0 \n"), 1) << all_traces();
}

TEST_F(FcTimerRestriction, AnArcThatIsNegativeComesBeforeTheFirstVsan) {
    platform.restrict_to({30});
    vsan_answers = {{0, 0, row_reply(platform.vsans.at(1))}};
    EXPECT_EQ(column.get_next(column.instance({0x80000000})).name, column.instance({30}));
    EXPECT_EQ(starts_asked(), (std::vector<int64_t>{0x80000000, 29}));
}

TEST_F(FcTimerRestriction, TheJumpIsFromTheColumnWhateverNameWasAsked) {
    platform.restrict_to({30});
    timer_answers = {{0, 0, std::nullopt}}; // leaves the name as it was asked
    EXPECT_EQ(column.get_next({1, 3, 6}).name, column.instance({30}));
}

TEST_F(FcTimerRestriction, EndsWhereNothingPermittedFollows) {
    platform.restrict_to({});
    EXPECT_EQ(walk_of_indexes(FORCE_FLAG), std::vector<oid>{});
    platform.restrict_to({0});
    EXPECT_EQ(walk_of_indexes(FORCE_FLAG), std::vector<oid>{});
    platform.restrict_to({50, 4095});
    EXPECT_EQ(walk_of_indexes(FORCE_FLAG), std::vector<oid>{});
}

TEST_F(FcTimerRestriction, VsansWithoutAValueArePassedOverBeforeTheTest) {
    platform.tdx_enabled = 1;
    without_value = {30};
    platform.restrict_to({30, 40});
    EXPECT_EQ(walk_of_indexes(RATOV), std::vector<oid>{40});
    EXPECT_EQ(get(RATOV, {30}).name, column.instance({40}));
    platform.restrict_to({30});
    EXPECT_FALSE(get(RATOV, {30}).present) << "VSAN 40 answers, and is not theirs";
    EXPECT_EQ(walk_of_indexes(RATOV), std::vector<oid>{});
}

TEST_F(FcTimerRestriction, GetNextEndsAgainstAManagerThatDoesNotAdvance) {
    platform.restrict_to({30, 40});
    for (const uint32_t stuck : {1u, 2u, 29u}) {
        platform.requests.clear();
        vsan_row row;
        row.index = stuck;
        for (int i = 0; i < 50; ++i) {
            vsan_answers.push_back({0, 0, row_reply(row)});
        }
        EXPECT_FALSE(get_next(RATOV, {}).present);
        EXPECT_LE(platform.requests.size(), 4u);
        vsan_answers.clear();
    }
}

TEST_F(FcTimerRestriction, GetNextEndsAgainstTimersOfOtherVsans) {
    platform.restrict_to({10, 35});
    for (const uint32_t vsan : {0u, 4096u, 0xFFFFFFFFu}) {
        for (int i = 0; i < 50; ++i) {
            timer_answers.push_back({0, 0, timer_record(8, 1, 1, 0, vsan, 0)});
        }
        EXPECT_FALSE(get_next(RATOV, {}).present);
        EXPECT_GE(timer_answers.size(), 46u);
        timer_answers.clear();
    }
}

} // namespace
