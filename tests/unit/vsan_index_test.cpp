// SPDX-License-Identifier: Apache-2.0
// Which VSAN the name of a request asks for.

#include "module_test.h"

#include <cstring>

namespace {

constexpr uint32_t no_instance = 0x40490002;

class VsanIndex : public ModuleTest {
  protected:
    registered_object column{3};
    vsanEntry entry;

    // The status of extracting an index; `entry` starts out full of rubbish.
    uint32_t extract(const oid_name &name, int exact) {
        memset(&entry, 0x77, sizeof entry);
        const size_t length = name.size();
        return get_vsanEntry_instance(column.var.name, column.var.namelen, name.data(), &length, exact, &entry);
    }

    // The index extracted, which must succeed and leave the rest of the record zero.
    int64_t index_of(const oid_name &name, int exact) {
        EXPECT_EQ(extract(name, exact), 0u);
        const int32_t index = entry.vsanIndex;
        entry.vsanIndex = 0;
        const vsanEntry zero = {};
        EXPECT_EQ(memcmp(&entry, &zero, sizeof entry), 0);
        return index;
    }

    oid_name shorter() const { return {column.var.name, column.var.name + column.var.namelen - 1}; }

    // A name of the right length in another column, with an index.
    oid_name other_column(oid index) const {
        oid_name name = column.instance({index});
        ++name[name.size() - 2];
        return name;
    }
};

TEST_F(VsanIndex, OfTheColumnItselfOrLessIsZero) {
    for (const int exact : {0, 1}) {
        EXPECT_EQ(index_of(column.name(), exact), 0);
        EXPECT_EQ(index_of(shorter(), exact), 0);
        EXPECT_EQ(index_of({1}, exact), 0);
        EXPECT_EQ(index_of({}, exact), 0);
    }
}

TEST_F(VsanIndex, OfAGetIsTheOneArcBehindTheColumnWithoutAnyBound) {
    EXPECT_EQ(index_of(column.instance({0}), 1), 0);
    EXPECT_EQ(index_of(column.instance({10}), 1), 10);
    EXPECT_EQ(index_of(column.instance({4095}), 1), 4095);
    EXPECT_EQ(index_of(column.instance({4096}), 1), 4096);
    EXPECT_EQ(index_of(column.instance({4097}), 1), 4097);
    EXPECT_EQ(index_of(column.instance({2147483648u}), 1), INT32_MIN);
    EXPECT_EQ(index_of(column.instance({largest_arc}), 1), -1);
}

TEST_F(VsanIndex, OfAGetWithALongerNameIsZero) {
    EXPECT_EQ(index_of(column.instance({10, 0}), 1), 0);
    EXPECT_EQ(index_of(column.instance({10, 20, 30}), 1), 0);
}

TEST_F(VsanIndex, OfAGetIsTakenWithoutComparingThePrefix) {
    EXPECT_EQ(index_of(other_column(10), 1), 10);
}

TEST_F(VsanIndex, OfAGetNextIsTheFirstArcBehindTheColumn) {
    EXPECT_EQ(index_of(column.instance({0}), 0), 0);
    EXPECT_EQ(index_of(column.instance({10}), 0), 10);
    EXPECT_EQ(index_of(column.instance({10, 20}), 0), 10);
    EXPECT_EQ(index_of(column.instance({10, largest_arc, largest_arc}), 0), 10);
    EXPECT_EQ(index_of(column.instance({4095}), 0), 4095);
    EXPECT_EQ(index_of(column.instance({4096}), 0), 4096);
    EXPECT_EQ(index_of(column.instance({4096, 1}), 0), 4096);
}

TEST_F(VsanIndex, OfAGetNextInAnotherColumnIsZero) {
    EXPECT_EQ(index_of(other_column(10), 0), 0);
    EXPECT_EQ(index_of(other_column(largest_arc), 0), 0);
}

TEST_F(VsanIndex, OfAGetNextBehindTheTableIsRefused) {
    for (const oid index : {oid{4097}, oid{5000}, oid{2147483647}, oid{2147483648u}, oid{largest_arc}}) {
        SCOPED_TRACE(index);
        platform.history.clear();
        platform.debug.clear();
        EXPECT_EQ(extract(column.instance({index}), 0), no_instance);
        EXPECT_EQ(extract(column.instance({index, 1}), 0), no_instance);
        const std::string number = std::to_string(static_cast<int32_t>(static_cast<uint32_t>(index)));
        ASSERT_EQ(platform.history.size(), 2u);
        EXPECT_TRUE(is_trace(platform.history[0].text, "get_vsanEntry_instance(#)*** vsanIndex:" + number + " *** \n"))
            << all_traces();
    }
}

TEST_F(VsanIndex, OfALongestNameIsRead) {
    oid_name name = column.instance({30});
    name.resize(MAX_OID_LEN, 9);
    EXPECT_EQ(index_of(name, 0), 30);
    EXPECT_EQ(index_of(name, 1), 0);
}

// The same rules seen from the agent: what is asked of the manager.

TEST_F(VsanIndex, GetNextOnTheColumnAsksForTheVsanAfterZero) {
    platform.add_vsans({1, 10});
    const read_answer answer = column.get_next(column.name());
    EXPECT_EQ(answer.text(), "vsan1");
    EXPECT_EQ(answer.name, column.instance({1}));
    EXPECT_EQ(platform.vsans_asked(), std::vector<int64_t>{0});
}

TEST_F(VsanIndex, GetNextFromBeforeTheColumnStartsAtItsFirstVsan) {
    platform.add_vsans({1, 10});
    for (const oid_name &start : {shorter(), oid_name{1, 3}, other_column(500)}) {
        platform.next_pdu();
        EXPECT_EQ(column.get_next(start).name, column.instance({1}));
    }
    EXPECT_EQ(platform.vsans_asked(), (std::vector<int64_t>{0, 0, 0}));
}

TEST_F(VsanIndex, GetNextFrom4096IsSentAndFrom4097IsNot) {
    platform.add_vsans({1, 10});
    EXPECT_FALSE(get_next(3, {4096}).present);
    EXPECT_EQ(platform.vsans_asked(), std::vector<int64_t>{4096});

    platform.requests.clear();
    for (const oid index : {oid{4097}, oid{2147483648u}, oid{largest_arc}}) {
        registered_object object(3);
        const oid_name asked = object.instance({index});
        const read_answer answer = object.get_next(asked);
        EXPECT_FALSE(answer.present);
        EXPECT_EQ(answer.name, asked) << "the name is not touched";
    }
    EXPECT_TRUE(platform.requests.empty());
    EXPECT_EQ(traced(101, "header_vsanEntry(#) *** get_entry instance NO_ENTRY! ***\n"), 3) << all_traces();
}

TEST_F(VsanIndex, GetOfANameTwoArcsLongerAsksForVsanZero) {
    EXPECT_FALSE(get(3, {10, 20}).present);
    EXPECT_EQ(platform.vsans_asked(), std::vector<int64_t>{0});
    EXPECT_EQ(platform.requests[0].kind, 1u);
}

TEST_F(VsanIndex, GetOfTheColumnItselfAsksForVsanZero) {
    EXPECT_FALSE(get(3, {}).present);
    EXPECT_EQ(platform.vsans_asked(), std::vector<int64_t>{0});
}

TEST_F(VsanIndex, GetOfAnyArcIsAskedAsItStands) {
    for (const oid index : {oid{0}, oid{4095}, oid{4096}, oid{4097}, oid{2147483648u}, oid{largest_arc}}) {
        platform.requests.clear();
        EXPECT_FALSE(get(3, {index}).present);
        EXPECT_EQ(platform.vsans_asked(), std::vector<int64_t>{static_cast<int64_t>(index)});
    }
}

} // namespace
