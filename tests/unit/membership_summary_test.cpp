// SPDX-License-Identifier: Apache-2.0
// GET and GETNEXT of the membership summary: one row a pair of VSAN and interface, from
// the port manager.

#include "module_test.h"

#include <cerrno>
#include <cstring>

namespace {

using pair = std::pair<uint32_t, uint32_t>;
using pairs = std::vector<pair>;

class MembershipSummary : public ModuleTest {
  protected:
    void SetUp() override {
        platform.memberships = {{{1, 5}, 1}, {{1, 6}, 0}, {{20, 7}, 1}, {{20, 16777216}, 1}, {{30, 2}, 0}};
    }

    // The pairs that the port manager was asked about, in order.
    static pairs asked() {
        pairs result;
        for (const membership_request &request : platform.membership_requests) {
            result.emplace_back(request.vsan, request.if_index);
        }
        return result;
    }

    // The pairs that a walk sees.
    pairs pairs_of_walk() {
        pairs seen;
        walk(object, [&](const read_answer &answer) {
            ASSERT_EQ(answer.name.size(), 16u);
            seen.emplace_back(static_cast<uint32_t>(answer.name[14]), static_cast<uint32_t>(answer.name[15]));
            EXPECT_EQ(answer.number(), static_cast<int32_t>(answer.name[15]));
        });
        return seen;
    }

    registered_object object{30};
};

TEST_F(MembershipSummary, GetTakesExactlyTwoArcs) {
    const read_answer answer = object.get(object.instance({20, 16777216}));
    EXPECT_EQ(answer.number(), 16777216);
    EXPECT_EQ(answer.length, 4u);
    EXPECT_EQ(answer.name, object.instance({20, 16777216}));
    EXPECT_EQ(asked(), (pairs{{20, 16777216}}));
}

TEST_F(MembershipSummary, GetOfAnyOtherLengthAsksForThePairOfZeroes) {
    oid_name longest = object.instance({20, 7});
    longest.resize(MAX_OID_LEN, 1);
    for (const oid_name &name :
         {object.name(), object.instance({20}), object.instance({20, 7, 1}), longest, oid_name{1, 3}}) {
        SCOPED_TRACE(name.size());
        platform.membership_requests.clear();
        EXPECT_FALSE(object.get(name).present);
        EXPECT_EQ(asked(), (pairs{{0, 0}}));
    }
}

TEST_F(MembershipSummary, GetAnswersUnderTheNameOfTheRowThatCameBack) {
    platform.port_manager = [](const membership_request &) -> membership_reply { return {0, 7, 8, 1}; };
    EXPECT_EQ(object.get(object.instance({20, 7})).name, object.instance({7, 8}));
    EXPECT_EQ(object.get(object.name()).name, object.instance({7, 8}));
}

TEST_F(MembershipSummary, NoArcHasABound) {
    platform.memberships = {{{0xFFFFFFFF, 0xFFFFFFFF}, 1}, {{0x80000000, 0}, 1}};
    EXPECT_EQ(object.get(object.instance({largest_arc, largest_arc})).number(), -1);
    EXPECT_EQ(object.get(object.instance({0x80000000, 0})).number(), 0);
    EXPECT_EQ(object.get_next(object.instance({0x80000000, largest_arc})).number(), -1);
    EXPECT_FALSE(object.get_next(object.instance({largest_arc, largest_arc})).present);
    EXPECT_EQ(platform.membership_requests.size(), 4u);
}

TEST_F(MembershipSummary, GetNextTakesTheArcsThatThereAre) {
    oid_name longest = object.instance({20, 7});
    longest.resize(MAX_OID_LEN, 1);
    const struct {
        oid_name name;
        pair asked;
    } cases[] = {
        {object.name(), {0, 0}},
        {object.instance({20}), {20, 0}},
        {object.instance({20, 7}), {20, 7}},
        {object.instance({20, 7, 9}), {20, 7}},
        {longest, {20, 7}},
        {{1, 3, 6}, {0, 0}},
    };
    for (const auto &tested : cases) {
        SCOPED_TRACE(tested.name.size());
        platform.membership_requests.clear();
        EXPECT_TRUE(object.get_next(tested.name).present);
        EXPECT_EQ(asked(), pairs{tested.asked});
    }
}

TEST_F(MembershipSummary, GetNextOfAnotherColumnStartsFromTheFirstPair) {
    oid_name before = object.instance({20, 7});
    before[10] -= 1;
    EXPECT_EQ(object.get_next(before).name, object.instance({1, 5}));
    EXPECT_EQ(asked(), (pairs{{0, 0}}));
}

TEST_F(MembershipSummary, GetNextOfAVsanArcAloneIsItsFirstMember) {
    EXPECT_EQ(object.get_next(object.instance({20})).name, object.instance({20, 7}));
    EXPECT_EQ(object.get_next(object.instance({2})).name, object.instance({20, 7}));
}

TEST_F(MembershipSummary, WalkSeesEveryPairInOrder) {
    EXPECT_EQ(pairs_of_walk(), (pairs{{1, 5}, {1, 6}, {20, 7}, {20, 16777216}, {30, 2}}));
    EXPECT_EQ(platform.membership_requests.size(), 6u) << "there is no cache";
}

TEST_F(MembershipSummary, ThePortManagerIsAskedInTheNameOfTheUser) {
    platform.user = "alice";
    platform.session = 77;
    object.get(object.instance({1, 5}));
    platform.user.reset();
    platform.session = 0;
    object.get_next(object.instance({1, 5}));
    ASSERT_EQ(platform.membership_requests.size(), 2u);
    EXPECT_EQ(platform.membership_requests[0].kind, 1u);
    EXPECT_EQ(platform.membership_requests[0].user, "alice");
    EXPECT_EQ(platform.membership_requests[0].session, 77u);
    EXPECT_EQ(platform.membership_requests[1].kind, 2u);
    EXPECT_FALSE(platform.membership_requests[1].user);
    EXPECT_EQ(platform.membership_requests[1].session, 0u);
    for (const membership_request &request : platform.membership_requests) {
        EXPECT_EQ(request.queue, mts_response_q);
        EXPECT_EQ(request.wait_class, 5u);
        EXPECT_EQ(request.is_static, 0u);
    }
    EXPECT_TRUE(platform.requests.empty());
}

TEST_F(MembershipSummary, EachLookupStartsFromAClearedRow) {
    object.get(object.instance({20, 7}));
    EXPECT_EQ(vsanMembershipSummary_current.is_static, 1u);
    object.get(object.name());
    EXPECT_EQ(asked().back(), (pair{0, 0}));
    EXPECT_EQ(platform.membership_requests.back().is_static, 0u);
    EXPECT_EQ(vsanMembershipSummary_current.vsanIndex, 0u);
    EXPECT_EQ(vsanMembershipSummary_current.ifIndex, 0u);
    EXPECT_EQ(vsanMembershipSummary_current.is_static, 0u);
}

TEST_F(MembershipSummary, LookupReturnsThePortManagersStatusAndKeepsTheName) {
    platform.port_manager = [](const membership_request &) -> membership_reply { return {0x40190004, 0, 0, 0}; };
    for (const int exact : {0, 1}) {
        vsanMembershipSummary_row row;
        oid_name name = object.instance({20, 7});
        size_t length = name.size();
        EXPECT_EQ(header_vsanMembershipSummaryEntry(object.name().data(), 14, name.data(), &length, exact, &row),
                  0x40190004u);
        EXPECT_EQ(length, name.size());
        EXPECT_EQ(name, object.instance({20, 7}));
    }
}

TEST_F(MembershipSummary, AFailureIsNullAndTraced) {
    platform.port_manager = [](const membership_request &request) -> membership_reply {
        if (request.kind == 2) {
            return {UINT32_MAX, 0, 0, 0, ETIMEDOUT};
        }
        return {some_failure};
    };
    EXPECT_FALSE(object.get(object.instance({20, 8})).present);
    EXPECT_FALSE(object.get_next(object.instance({20, 8})).present);
    const std::string prefix = "header_vsanMembershipSummaryEntry(#) : ";
    EXPECT_TRACED(100,
                  prefix + "GET req FAILED for vsanIndex = 20: ifIndex = 8 : " + failure_text(some_failure) + "\n");
    EXPECT_TRACED(100, prefix + "GETNEXT req FAILED for vsanIndex = 20: ifIndex = 8 : " + strerror(ETIMEDOUT) + "\n");
    EXPECT_TRUE(platform.errors_set.empty());
    EXPECT_TRUE(agent.details.empty());
}

TEST_F(MembershipSummary, RequestAndResponseAreTraced) {
    object.get(object.instance({20, 7}));
    object.get_next(object.instance({20, 16777216}));
    const std::string prefix = "header_vsanMembershipSummaryEntry : ";
    EXPECT_TRACED(101, prefix + "Sending GET req for vsanIndex = 20 and ifIndex = 7 \n");
    EXPECT_TRACED(101, prefix + "Recd resp for GET req for vsanIndex=20, ifIndex = 7, is_static 1 \n");
    EXPECT_TRACED(101, prefix + "Sending GETNEXT req for vsanIndex = 20 and ifIndex = 16777216 \n");
    EXPECT_TRACED(101, prefix + "Recd resp for GETNEXT req for vsanIndex=30, ifIndex = 2, is_static 0 \n");
}

TEST_F(MembershipSummary, TheWriteMethodSlotIsLeftAlone) {
    WriteMethod *const stale = [](int, u_char *, u_char, size_t, u_char *, oid *, size_t) { return 1; };
    EXPECT_EQ(object.read(object.instance({20, 7}), 1, stale).write_method, stale);
    EXPECT_EQ(object.read(object.instance({20, 8}), 1, stale).write_method, stale);
}

TEST_F(MembershipSummary, AnyOtherMagicLeavesAnEmptyDetailBehindTheLookup) {
    object.var.magic = 16;
    EXPECT_FALSE(object.get(object.instance({20, 7})).present);
    EXPECT_EQ(agent.details, std::vector<std::string>{""});
    EXPECT_FALSE(object.get_next(object.instance({20, 7})).present);
    EXPECT_EQ(agent.details.size(), 2u);
    EXPECT_EQ(platform.membership_requests.size(), 2u);
    EXPECT_FALSE(object.get(object.instance({20, 8})).present);
    EXPECT_EQ(agent.details.size(), 2u) << "not for a missing row";
}

TEST_F(MembershipSummary, TheRestrictionIsAskedForTheNameOfTheRequestAsAGet) {
    object.get(object.instance({20, 7}));
    object.get_next(object.instance({20}));
    expect_restriction_asked({object.instance({20, 7}), object.instance({20})}, 160);
    EXPECT_TRUE(platform.list_sizes_passed.empty()) << "no list is consulted for an unrestricted user";
}

TEST_F(MembershipSummary, RestrictedGetIsDecidedByVsanZeroAlone) {
    platform.restrict_to({20});
    for (const auto &present : *platform.memberships) {
        const pair key = present.first;
        EXPECT_FALSE(object.get(object.instance({key.first, key.second})).present) << "even of a permitted VSAN";
    }
    platform.restrict_to({0});
    for (const auto &present : *platform.memberships) {
        const pair key = present.first;
        EXPECT_TRUE(object.get(object.instance({key.first, key.second})).present) << "even of another VSAN";
    }
    EXPECT_FALSE(object.get(object.instance({20, 8})).present) << "but not of a missing pair";
    EXPECT_TRUE(platform.errors_set.empty());
    for (const std::string &entry : platform.journal_of("is allowed")) {
        EXPECT_EQ(entry, "is allowed 0");
    }
}

TEST_F(MembershipSummary, RestrictedGetAsksBeforeItTests) {
    platform.restrict_to({20});
    object.get(object.instance({20, 7}));
    object.get(object.instance({20, 8}));
    EXPECT_EQ(platform.journal, (std::vector<std::string>{"allowed vsans", "port membership kind 1", "is allowed 0",
                                                          "allowed vsans", "port membership kind 1"}));
}

TEST_F(MembershipSummary, AnyListResultButZeroRestricts) {
    platform.restrict_to({20});
    for (const int result : {2, -1}) {
        platform.restriction_result = result;
        EXPECT_FALSE(object.get(object.instance({20, 7})).present) << result;
        EXPECT_EQ(pairs_of_walk(), (pairs{{20, 7}, {20, 16777216}})) << result;
    }
}

TEST_F(MembershipSummary, AnyAnswerButZeroPermitsAVsan) {
    platform.restrict_to({0, 20});
    for (const int permitted : {2, -1}) {
        platform.permitted_result = permitted;
        EXPECT_TRUE(object.get(object.instance({20, 7})).present) << permitted;
        EXPECT_EQ(pairs_of_walk(), (pairs{{20, 7}, {20, 16777216}})) << permitted;
    }
}

TEST_F(MembershipSummary, RestrictedWalkSeesThePermittedVsansWholly) {
    platform.restrict_to({20, 40});
    EXPECT_EQ(pairs_of_walk(), (pairs{{20, 7}, {20, 16777216}}));
    platform.restrict_to({1, 30});
    EXPECT_EQ(pairs_of_walk(), (pairs{{1, 5}, {1, 6}, {30, 2}}));
    platform.restrict_to({});
    EXPECT_EQ(pairs_of_walk(), pairs{});
}

TEST_F(MembershipSummary, RestrictedGetNextJumpsToThePermittedVsanWithoutAnIfIndex) {
    platform.restrict_to({20});
    EXPECT_EQ(object.get_next(object.name()).name, object.instance({20, 7}));
    EXPECT_EQ(asked(), (pairs{{0, 0}, {20, 0}}));
    EXPECT_EQ(platform.journal,
              (std::vector<std::string>{"allowed vsans", "port membership kind 2", "is allowed 1",
                                        "next allowed after 1", "port membership kind 2", "is allowed 20"}));
    for (const uint32_t size : platform.list_sizes_passed) {
        EXPECT_EQ(size, 512u);
    }
}

TEST_F(MembershipSummary, ThePermittedVsanItselfIsAskedForNotTheOneBefore) {
    platform.memberships = {{{1, 5}, 0}, {{2, 0xFFFFFFFF}, 0}, {{3, 0}, 0}, {{3, 1}, 0}};
    platform.restrict_to({3});
    EXPECT_EQ(object.get_next(object.name()).name, object.instance({3, 1})) << "behind the pair (3, 0)";
    EXPECT_EQ(asked(), (pairs{{0, 0}, {3, 0}}));
}

TEST_F(MembershipSummary, AJumpStartsFromTheRowsVsanWhateverTheNameHolds) {
    platform.restrict_to({30});
    oid_name longest = object.instance({1, 5});
    longest.resize(MAX_OID_LEN, 1);
    EXPECT_EQ(object.get_next(longest).name, object.instance({30, 2}));
    EXPECT_EQ(object.get_next({1, 3}).name, object.instance({30, 2}));
    EXPECT_EQ(asked(), (pairs{{1, 5}, {30, 0}, {0, 0}, {30, 0}}));
}

TEST_F(MembershipSummary, RestrictedGetNextEndsWhenNoPermittedVsanFollows) {
    platform.restrict_to({1, 5});
    EXPECT_FALSE(object.get_next(object.instance({1, 6})).present);
    EXPECT_EQ(asked(), (pairs{{1, 6}}));
}

TEST_F(MembershipSummary, RestrictedGetNextEndsWhenThePortManagerHasNoMore) {
    platform.restrict_to({40, 4095});
    EXPECT_FALSE(object.get_next(object.instance({20, 7})).present);
    EXPECT_EQ(asked(), (pairs{{20, 7}, {40, 0}}));
}

TEST_F(MembershipSummary, RestrictedGetNextEndsAgainstAPortManagerThatDoesNotAdvance) {
    platform.restrict_to({0, 10, 35});
    for (const pair &stuck : pairs{{1, 5}, {9, 0}, {34, 0xFFFFFFFF}, {4096, 1}, {0xFFFFFFFF, 1}}) {
        SCOPED_TRACE(stuck.first);
        platform.membership_requests.clear();
        platform.port_manager = [stuck](const membership_request &) -> membership_reply {
            return {0, stuck.first, stuck.second, 0};
        };
        EXPECT_FALSE(object.get_next(object.name()).present);
        EXPECT_LE(platform.membership_requests.size(), 3u);
    }
}

TEST_F(MembershipSummary, RestrictedGetNextEndsWhenThePortManagerGoesBackwards) {
    platform.restrict_to({10, 35});
    platform.port_manager = [step = 0](const membership_request &) mutable -> membership_reply {
        return {0, step++ % 2 == 0 ? 30u : 2u, 1, 0};
    };
    EXPECT_FALSE(object.get_next(object.name()).present);
    EXPECT_LE(platform.membership_requests.size(), 3u);
}

} // namespace
