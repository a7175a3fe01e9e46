// SPDX-License-Identifier: Apache-2.0
// The one-row cache: the columns of one row in one PDU cost one request.

#include "module_test.h"

#include <cerrno>

namespace {

class VsanCache : public ModuleTest {
  protected:
    void SetUp() override { platform.add_vsans({1, 10, 20}); }

    static size_t requests() { return platform.requests.size(); }
};

TEST_F(VsanCache, SecondColumnOfTheSamePduCostsNoRequest) {
    EXPECT_EQ(get(3, {10}).text(), "vsan10");
    EXPECT_EQ(get(5, {10}).number(), 1);
    EXPECT_EQ(requests(), 1u);
}

TEST_F(VsanCache, TheNextPduAsksAgain) {
    get(3, {10});
    get(5, {10});
    platform.next_pdu();
    platform.vsans[10].name = "renamed";
    EXPECT_EQ(get(3, {10}).text(), "renamed");
    get(5, {10});
    EXPECT_EQ(requests(), 2u);
}

TEST_F(VsanCache, AnotherVsanMisses) {
    get(3, {10});
    EXPECT_EQ(get(3, {20}).text(), "vsan20");
    EXPECT_EQ(get(3, {10}).text(), "vsan10");
    EXPECT_EQ(requests(), 3u);
}

TEST_F(VsanCache, GetAndGetNextOfTheSameVsanMissEachOther) {
    EXPECT_EQ(get(3, {10}).text(), "vsan10");
    EXPECT_EQ(get_next(3, {10}).text(), "vsan20");
    EXPECT_EQ(get(3, {10}).text(), "vsan10");
    EXPECT_EQ(requests(), 3u);
    EXPECT_EQ(platform.requests[1].kind, 2u);
}

TEST_F(VsanCache, TheExactFlagIsComparedAsTheAgentPassedIt) {
    registered_object object(3);
    EXPECT_EQ(object.read(object.instance({10}), 1).text(), "vsan10");
    EXPECT_EQ(object.read(object.instance({10}), 2).text(), "vsan10");
    EXPECT_EQ(requests(), 2u);
    EXPECT_EQ(platform.requests[1].kind, 1u);
    EXPECT_EQ(object.read(object.instance({10}), 2).text(), "vsan10");
    EXPECT_EQ(requests(), 2u);
}

TEST_F(VsanCache, GetNextIsKeyedByTheIndexSentNotByTheRowReturned) {
    const read_answer first = get_next(3, {1});
    const read_answer second = get_next(5, {1});
    EXPECT_EQ(first.name.back(), 10u);
    EXPECT_EQ(second.name.back(), 10u) << "a hit answers under the row returned";
    EXPECT_EQ(requests(), 1u);
    EXPECT_EQ(get_next(3, {10}).name.back(), 20u) << "the row returned is another key";
    EXPECT_EQ(requests(), 2u);
}

TEST_F(VsanCache, AnotherWayToTheSameIndexHits) {
    get_next(3, {1});
    get_next(3, {1, 5, 9});
    EXPECT_EQ(requests(), 1u);
    get_next(3, {});
    get_next(5, {0});
    EXPECT_EQ(requests(), 2u);
}

TEST_F(VsanCache, GetBulkOrderCostsOneRequestARow) {
    for (const oid start : {oid{0}, oid{1}, oid{10}}) {
        for (const uint8_t magic : bytes{3, 4, 5, 6, 8, 10, 11, 12, 13, 14}) {
            EXPECT_TRUE(get_next(magic, {start}).present);
        }
    }
    EXPECT_EQ(platform.vsans_asked(), (std::vector<int64_t>{0, 1, 10}));
}

TEST_F(VsanCache, HitIsTraced) {
    get_next(3, {1});
    EXPECT_EQ(traced(101, "header_vsanEntry : header_vsanEntry(#) found the entry for vsan 1 in the cache (last_index "
                          "1 last_exact 0 cache_index 10 returning from cache\n"),
              0);
    get_next(5, {1});
    EXPECT_TRACED(101, "header_vsanEntry : header_vsanEntry(#) found the entry for vsan 1 in the cache (last_index 1 "
                       "last_exact 0 cache_index 10 returning from cache\n");
    platform.next_pdu();
    get(3, {20});
    get(3, {20});
    EXPECT_TRACED(101, "header_vsanEntry : header_vsanEntry(#) found the entry for vsan 20 in the cache (last_index "
                       "20 last_exact 1 cache_index 20 returning from cache\n");
}

TEST_F(VsanCache, AFailedRequestEmptiesIt) {
    get(3, {10});
    EXPECT_FALSE(get(3, {99}).present);
    get(3, {10});
    EXPECT_EQ(platform.vsans_asked(), (std::vector<int64_t>{10, 99, 10}));
}

TEST_F(VsanCache, AFailureIsNotCached) {
    EXPECT_FALSE(get(3, {99}).present);
    platform.add_vsan(99);
    EXPECT_EQ(get(3, {99}).text(), "vsan99");
    EXPECT_EQ(requests(), 2u);
}

TEST_F(VsanCache, EveryKindOfFailureEmptiesIt) {
    const scripted_reply failures[] = {{some_failure, 0, std::nullopt},
                                       {UINT32_MAX, ETIMEDOUT, std::nullopt},
                                       {0, 0, std::nullopt},
                                       {0, 0, bytes(2627)},
                                       {some_failure, 0, bytes(2632)}};
    for (const scripted_reply &failure : failures) {
        platform.next_pdu();
        platform.manager = nullptr;
        get(3, {10});
        platform.manager = [&](const sent_request &) { return failure; };
        get(3, {20});
        platform.manager = nullptr;
        platform.requests.clear();
        EXPECT_EQ(get(3, {10}).text(), "vsan10");
        EXPECT_EQ(requests(), 1u);
    }
}

TEST_F(VsanCache, ARefusedIndexLeavesItAlone) {
    get_next(3, {1});
    EXPECT_FALSE(get_next(3, {4097}).present);
    EXPECT_EQ(get_next(5, {1}).name.back(), 10u);
    EXPECT_EQ(requests(), 1u);
}

TEST_F(VsanCache, TheIndexThatMeansEmptyIsNeverServedFromIt) {
    platform.on(149, 1).reply(vsan_row());
    EXPECT_TRUE(get(3, {largest_arc}).present);
    EXPECT_TRUE(get(3, {largest_arc}).present);
    EXPECT_EQ(requests(), 2u);
}

TEST_F(VsanCache, ScalarsDoNotTouchIt) {
    platform.on(125, 1).reply(words({3}));
    get(3, {10});
    get(1, {0});
    get(5, {10});
    EXPECT_EQ(requests(), 2u);
}

TEST_F(VsanCache, HoldsTheRowAcrossLaterWritesToTheResult) {
    platform.vsans[10].interop = 100;
    EXPECT_EQ(get(12, {10}).number(), 0);
    EXPECT_EQ(vsanEntry_current.vsanInterOperMode, 0);
    get(3, {10});
    EXPECT_EQ(vsanEntry_current.vsanInterOperMode, 100) << "the cached row keeps the manager's value";
    EXPECT_EQ(get(12, {10}).number(), 0) << "a hit is rewritten again";
    EXPECT_EQ(requests(), 1u);
}

} // namespace
