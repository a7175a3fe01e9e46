// SPDX-License-Identifier: Apache-2.0
// Users who may touch only some VSANs.

#include "module_test.h"

#include <cerrno>

namespace {

using numbers = std::vector<int64_t>;

class VsanRestriction : public ModuleTest {
  protected:
    void SetUp() override { platform.add_vsans({1, 2, 20, 30, 40}); }
};

TEST_F(VsanRestriction, IsAskedForTheNameOfTheRequestAsAGet) {
    registered_object object(3);
    object.get(object.instance({10}));
    object.get_next(object.instance({10, 7}));
    object.get_next({1, 3, 6});
    expect_restriction_asked({object.instance({10}), object.instance({10, 7}), {1, 3, 6}}, 160);
}

TEST_F(VsanRestriction, NoListIsConsultedForAnUnrestrictedUser) {
    get(3, {20});
    get_next(3, {20});
    EXPECT_TRUE(platform.list_sizes_passed.empty());
}

TEST_F(VsanRestriction, TheListKeepsItsSizeWhenPassedOn) {
    platform.restrict_to({30});
    get(3, {30});
    get_next(3, {});
    ASSERT_FALSE(platform.list_sizes_passed.empty());
    for (const uint32_t size : platform.list_sizes_passed) {
        EXPECT_EQ(size, 512u);
    }
}

TEST_F(VsanRestriction, GetOfAnAllowedVsanIsAnswered) {
    platform.restrict_to({1, 30});
    EXPECT_EQ(get(3, {30}).text(), "vsan30");
    EXPECT_TRACED(101, "get_vsanEntry(#) vsanIndex:30 , allowed:1 \n");
}

TEST_F(VsanRestriction, GetOfAnotherVsanIsAskedAndThenHidden) {
    platform.restrict_to({1, 30});
    EXPECT_FALSE(get(3, {20}).present);
    EXPECT_EQ(platform.vsans_asked(), numbers{20});
    EXPECT_EQ(platform.journal, (std::vector<std::string>{"allowed vsans", "request 149 kind 1", "is allowed 20"}));
    EXPECT_TRUE(platform.errors_set.empty()) << "as if the row did not exist";
    EXPECT_TRUE(agent.details.empty());
    EXPECT_EQ(traced(101, "get_vsanEntry(#) vsanIndex:20 , allowed:0 \n") +
                  traced(100, "get_vsanEntry(#) vsanIndex:20 , allowed:0 \n"),
              1)
        << all_traces();
}

TEST_F(VsanRestriction, AnyListResultButZeroRestricts) {
    platform.restrict_to({30});
    for (const int result : {2, -1}) {
        platform.restriction_result = result;
        EXPECT_FALSE(get(3, {20}).present) << result;
        EXPECT_EQ(walk_of_indexes(3), std::vector<oid>{30}) << result;
    }
}

TEST_F(VsanRestriction, AnyAnswerButZeroPermitsAVsan) {
    platform.restrict_to({1, 30});
    for (const int permitted : {2, -1}) {
        platform.permitted_result = permitted;
        EXPECT_TRUE(get(3, {30}).present) << permitted;
        EXPECT_FALSE(get(3, {20}).present) << permitted;
        EXPECT_EQ(walk_of_indexes(3), (std::vector<oid>{1, 30})) << permitted;
    }
}

TEST_F(VsanRestriction, GetOfAVsanThatDoesNotExistIsNotChecked) {
    platform.restrict_to({99});
    EXPECT_FALSE(get(3, {99}).present);
    EXPECT_TRUE(platform.journal_of("is allowed").empty());
}

TEST_F(VsanRestriction, AHiddenGetFillsTheCache) {
    platform.restrict_to({30});
    EXPECT_FALSE(get(3, {20}).present);
    EXPECT_FALSE(get(5, {20}).present);
    EXPECT_EQ(platform.requests.size(), 1u);
}

TEST_F(VsanRestriction, TheRowReturnedIsCheckedNotTheOneAskedFor) {
    platform.restrict_to({30});
    vsan_row row;
    row.index = 20;
    platform.on(149, 1).reply(row);
    EXPECT_FALSE(get(3, {30}).present);
}

TEST_F(VsanRestriction, ARowBeyondTheListIsHidden) {
    platform.restrict_to({30});
    for (const uint32_t index : {4096u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        platform.next_pdu();
        vsan_row row;
        row.index = index;
        platform.on(149, 1) = reply_script().reply(row);
        platform.on(149, 2) = reply_script().reply(row);
        EXPECT_FALSE(get(3, {30}).present);
        EXPECT_FALSE(get_next(3, {}).present);
    }
}

TEST_F(VsanRestriction, WalkSeesOnlyTheAllowedVsans) {
    platform.restrict_to({1, 30});
    EXPECT_EQ(walk_of_indexes(3), (std::vector<oid>{1, 30}));
    EXPECT_EQ(platform.vsans_asked(), (numbers{0, 1, 29, 30}));
}

TEST_F(VsanRestriction, WalkSkipsToTheNextAllowedNumberInOneRequest) {
    platform.restrict_to({30});
    EXPECT_EQ(get_next(3, {}).text(), "vsan30");
    EXPECT_EQ(platform.vsans_asked(), (numbers{0, 29}));
    EXPECT_EQ(platform.journal,
              (std::vector<std::string>{"allowed vsans", "request 149 kind 2", "is allowed 1", "next allowed after 1",
                                        "request 149 kind 2", "is allowed 30"}));
    EXPECT_TRACED(101, "get_vsanEntry(#) vsan_present:30 \n");
}

TEST_F(VsanRestriction, AllowedNumbersWithoutAVsanAreSkippedByTheManager) {
    platform.restrict_to({3, 4, 21, 22, 40});
    EXPECT_EQ(get_next(3, {}).text(), "vsan40");
    // 1 is hidden, so 3 and up; 20 is hidden, so 21 and up; 30 is hidden, so 40.
    EXPECT_EQ(platform.vsans_asked(), (numbers{0, 2, 20, 39}));
}

TEST_F(VsanRestriction, AnAllowedNumberRightBehindTheHiddenOneIsAskedForFromIt) {
    platform.restrict_to({2});
    EXPECT_EQ(get_next(3, {}).text(), "vsan2");
    EXPECT_EQ(platform.vsans_asked(), (numbers{0, 1}));
}

TEST_F(VsanRestriction, AnswerIsUnderTheNameOfTheAllowedRow) {
    platform.restrict_to({40});
    registered_object object(5);
    for (const oid_name &start : {object.name(), object.instance({20}), object.instance({20, 5}), oid_name{1, 3}}) {
        EXPECT_EQ(object.get_next(start).name, object.instance({40}));
    }
}

TEST_F(VsanRestriction, ANameOutsideTheColumnStartsFromItsFirstRow) {
    platform.restrict_to({1, 30});
    registered_object object(5);
    const oid_name row_of_an_earlier_column = registered_object(3).instance({99});
    EXPECT_EQ(object.get_next(row_of_an_earlier_column).name, object.instance({1}));
    platform.next_pdu();
    platform.restrict_to({30});
    EXPECT_EQ(object.get_next(row_of_an_earlier_column).name, object.instance({30}));
}

TEST_F(VsanRestriction, EndsWhenNoAllowedNumberFollows) {
    platform.restrict_to({1});
    EXPECT_EQ(walk_of_indexes(3), std::vector<oid>{1});
    EXPECT_EQ(traced(101, "get_vsanEntry(#) vsan_present:0 \n"), 1) << all_traces();
}

TEST_F(VsanRestriction, EndsWhenTheManagerHasNoFurtherVsan) {
    platform.restrict_to({50, 4095});
    EXPECT_FALSE(get_next(3, {30}).present);
    EXPECT_EQ(platform.vsans_asked(), (numbers{30, 49}));
}

TEST_F(VsanRestriction, EndsWhenTheManagerFails) {
    platform.restrict_to({30});
    vsan_row hidden;
    platform.on(149, 2).reply(hidden).fails(ETIMEDOUT);
    EXPECT_FALSE(get_next(3, {}).present);
    EXPECT_EQ(platform.requests.size(), 2u);
}

TEST_F(VsanRestriction, AnEmptyListHidesEverything) {
    platform.restrict_to({});
    EXPECT_EQ(walk_of_indexes(3), std::vector<oid>{});
    EXPECT_FALSE(get(3, {1}).present);
}

TEST_F(VsanRestriction, AFullListHidesNothing) {
    std::set<uint32_t> all;
    for (uint32_t vsan = 0; vsan < 4096; ++vsan) {
        all.insert(vsan);
    }
    platform.restrict_to(all);
    EXPECT_EQ(walk_of_indexes(3), (std::vector<oid>{1, 2, 20, 30, 40}));
}

TEST_F(VsanRestriction, ColumnsOfOnePduShareTheFirstLookup) {
    platform.restrict_to({1});
    get_next(3, {});
    get_next(5, {});
    EXPECT_EQ(platform.requests.size(), 1u);
}

TEST_F(VsanRestriction, GetNextEndsAgainstRowsThatDoNotAdvance) {
    platform.restrict_to({30, 40});
    for (const uint32_t stuck : {0u, 1u, 2u, 29u}) {
        SCOPED_TRACE(stuck);
        platform.next_pdu();
        platform.requests.clear();
        vsan_row row;
        row.index = stuck;
        platform.on(149, 2) = reply_script().reply(row);
        EXPECT_FALSE(get_next(3, {}).present);
        EXPECT_LE(platform.requests.size(), 2u);
    }
}

TEST_F(VsanRestriction, GetNextEndsAgainstRowsThatGoBack) {
    platform.restrict_to({10, 35});
    vsan_row late;
    late.index = 30;
    vsan_row early;
    early.index = 2;
    platform.on(149, 2).reply(late).reply(early);
    platform.manager = [step = 0](const sent_request &) mutable {
        vsan_row row;
        row.index = step++ % 2 == 0 ? 30 : 2;
        return step > 100 ? scripted_reply{some_failure, 0, std::nullopt} : scripted_reply{0, 0, row_reply(row)};
    };
    EXPECT_FALSE(get_next(3, {}).present);
    EXPECT_LE(platform.requests.size(), 3u);
}

TEST_F(VsanRestriction, GetNextEndsAgainstRepliesWithoutData) {
    platform.on(149, 2).no_data();
    for (const std::set<uint32_t> &allowed : {std::set<uint32_t>{}, {30}, {5, 30, 4095}}) {
        platform.restrict_to(allowed);
        for (const oid start : {oid{0}, oid{1}, oid{29}, oid{4094}, oid{4096}}) {
            platform.next_pdu();
            platform.requests.clear();
            EXPECT_FALSE(get_next(3, {start}).present) << start;
            EXPECT_LE(platform.requests.size(), 2u) << start;
        }
    }
}

TEST_F(VsanRestriction, GetNextEndsAgainstShortReplies) {
    platform.restrict_to({30});
    platform.on(149, 2).reply(bytes(2627));
    EXPECT_FALSE(get_next(3, {}).present);
    EXPECT_EQ(platform.requests.size(), 1u);
}

TEST_F(VsanRestriction, AListOfVsanZeroAloneNeedsNoNumberBelowZero) {
    platform.restrict_to({0});
    EXPECT_FALSE(get_next(3, {}).present);
    EXPECT_EQ(platform.vsans_asked(), numbers{0});
}

} // namespace
