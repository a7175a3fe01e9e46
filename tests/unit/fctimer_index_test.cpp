// SPDX-License-Identifier: Apache-2.0
// Which VSAN a name in the timer table stands for.

#include "fctimer_test.h"

#include <cerrno>
#include <cstring>

namespace {

class FcTimerIndex : public FcTimerTest {
  protected:
    struct found {
        uint32_t status;
        fc_timer_record record;
    };

    found find(const oid_name &name, int exact) const {
        found result = {};
        memset(&result.record, 0xA5, sizeof result.record);
        const auto buffer = std::make_unique<oid[]>(name.size());
        std::copy(name.begin(), name.end(), buffer.get());
        const size_t length = name.size();
        result.status =
            get_vsanFcTimerEntry_instance(column.var.name, 14, buffer.get(), &length, exact, &result.record);
        EXPECT_TRUE(std::equal(name.begin(), name.end(), buffer.get())) << "the name is not its to change";
        return result;
    }

    registered_object column{RATOV};
};

TEST_F(FcTimerIndex, GetTakesExactlyOneArcFrom1To4095WithoutARequest) {
    for (const oid arc : {oid{1}, oid{2}, oid{20}, oid{77}, oid{4094}, oid{4095}}) {
        const found answer = find(column.instance({arc}), 1);
        EXPECT_EQ(answer.status, 0u);
        EXPECT_EQ(answer.record.vsan, static_cast<uint32_t>(arc));
        EXPECT_EQ(answer.record.key, 0u);
        EXPECT_EQ(answer.record.value, 0u);
        EXPECT_EQ(answer.record.per_vsan, 1);
        EXPECT_EQ(answer.record.flag, 0);
        EXPECT_EQ(answer.record.tail, 0);
    }
    for (const oid arc : {oid{0}, oid{4096}, oid{65537}, oid{0x7FFFFFFF}, oid{0x80000000}, largest_arc}) {
        EXPECT_EQ(find(column.instance({arc}), 1).status, no_instance) << arc;
    }
    EXPECT_TRUE(platform.journal.empty());
}

TEST_F(FcTimerIndex, GetOfAnyOtherLengthIsNoInstance) {
    oid_name longest = column.instance({20});
    longest.resize(MAX_OID_LEN, 1);
    oid_name prefix = column.name();
    prefix.pop_back();
    for (const oid_name &name : {column.name(), prefix, column.instance({20, 1}), longest, oid_name{1, 3}}) {
        EXPECT_EQ(find(name, 1).status, no_instance) << name.size();
        EXPECT_FALSE(column.get(name).present);
    }
    EXPECT_TRUE(platform.requests.empty());
}

TEST_F(FcTimerIndex, GetOfVsanZeroAnd4096IsNullWithoutARequest) {
    for (const uint8_t magic : bytes{FORCE_FLAG, RATOV, EDTOV, DSTOV, FSTOV}) {
        EXPECT_FALSE(get(magic, {0}).present);
        EXPECT_FALSE(get(magic, {4096}).present);
        EXPECT_TRUE(get(magic, {4095}).present);
    }
    EXPECT_EQ(platform.requests.size(), 5u);
}

TEST_F(FcTimerIndex, GetNextAsksTheVsanTableForTheNextVsan) {
    const found answer = find(column.instance({20}), 0);
    EXPECT_EQ(answer.status, 0u);
    EXPECT_EQ(answer.record.vsan, 30u);
    EXPECT_EQ(answer.record.per_vsan, 1);
    ASSERT_EQ(platform.requests.size(), 1u);
    const sent_request &request = platform.requests[0];
    EXPECT_EQ(request.opcode, 149u);
    EXPECT_EQ(request.kind, 2u);
    bytes block(row_block_size);
    put_word(block, row_offset, 20);
    EXPECT_EQ(request.payload, block) << "only the index is set";
    EXPECT_EQ(request.length, 2632u);
    EXPECT_TRUE(request.expects_reply);
    EXPECT_FALSE(request.user);
    EXPECT_EQ(request.session, 0u);
    EXPECT_EQ(request.service, 15u);
    EXPECT_EQ(request.queue, mts_response_q);
    EXPECT_EQ(request.wait_class, 4u);
}

TEST_F(FcTimerIndex, GetNextOfAnotherOrAShorterNameStartsFromZero) {
    oid_name prefix = column.name();
    prefix.pop_back();
    oid_name before = column.instance({20});
    before[8] -= 1;
    for (const oid_name &name : {column.name(), prefix, before, oid_name{1, 3}}) {
        SCOPED_TRACE(name.size());
        platform.requests.clear();
        EXPECT_EQ(find(name, 0).record.vsan, 1u);
        EXPECT_EQ(starts_asked(), std::vector<int64_t>{0});
    }
}

TEST_F(FcTimerIndex, GetNextTakesTheFirstArcOfALongerName) {
    oid_name longest = column.instance({20});
    longest.resize(MAX_OID_LEN, 1);
    for (const oid_name &name : {column.instance({20, 7}), longest}) {
        EXPECT_EQ(find(name, 0).record.vsan, 30u);
        EXPECT_EQ(starts_asked().back(), 20);
    }
}

TEST_F(FcTimerIndex, GetNextFrom4095StillAsksAndFrom4096DoesNot) {
    EXPECT_EQ(find(column.instance({4095}), 0).status, no_instance);
    EXPECT_EQ(starts_asked(), std::vector<int64_t>{4095});
    for (const oid arc : {oid{4096}, oid{65536}, oid{0x7FFFFFFF}}) {
        platform.requests.clear();
        forget_traces();
        EXPECT_EQ(find(column.instance({arc}), 0).status, no_instance) << arc;
        EXPECT_TRUE(platform.requests.empty());
        EXPECT_TRACED(101, "get_vsanFcTimerEntry_instance : reached max count");
        EXPECT_FALSE(column.get_next(column.instance({arc})).present);
        EXPECT_TRUE(platform.requests.empty());
    }
}

TEST_F(FcTimerIndex, TheBoundOfGetNextIsSigned) {
    for (const oid arc : {oid{0x80000000}, oid{0x80000001}, largest_arc}) {
        platform.requests.clear();
        EXPECT_EQ(find(column.instance({arc}), 0).status, no_instance);
        EXPECT_EQ(starts_asked(), std::vector<int64_t>{static_cast<int64_t>(arc)}) << "passed on";
    }
    EXPECT_NOT_TRACED(101, "get_vsanFcTimerEntry_instance : reached max count");
    vsan_row row;
    row.index = 7;
    vsan_answers = {{0, 0, row_reply(row)}};
    EXPECT_EQ(find(column.instance({0x80000000}), 0).record.vsan, 7u) << "the manager decides";
}

TEST_F(FcTimerIndex, ANextVsanOutside1To4095IsNoInstance) {
    for (const uint32_t index : {0u, 4096u, 65537u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        vsan_row row;
        row.index = index;
        vsan_answers = {{0, 0, row_reply(row)}};
        EXPECT_EQ(find(column.name(), 0).status, no_instance) << index;
    }
    vsan_row row;
    row.index = 4095;
    vsan_answers = {{0, 0, row_reply(row)}};
    EXPECT_EQ(find(column.name(), 0).record.vsan, 4095u);
}

TEST_F(FcTimerIndex, AFailureWithoutAReplyIsNoInstanceAndWithOneItsStatus) {
    vsan_row row;
    vsan_answers = {{some_failure, 0, std::nullopt},
                    {some_failure, 0, row_reply(row)},
                    {0, 0, std::nullopt},
                    {0, 0, bytes(2627)},
                    {0, 0, bytes()},
                    {UINT32_MAX, ETIMEDOUT, std::nullopt}};
    EXPECT_EQ(find(column.name(), 0).status, no_instance);
    EXPECT_EQ(find(column.name(), 0).status, some_failure);
    EXPECT_EQ(find(column.name(), 0).status, no_instance) << "success without a reply";
    EXPECT_EQ(find(column.name(), 0).status, no_instance) << "a reply too short for the record";
    EXPECT_EQ(find(column.name(), 0).status, no_instance);
    EXPECT_EQ(find(column.name(), 0).status, no_instance);
    EXPECT_TRUE(vsan_answers.empty());
    EXPECT_TRUE(platform.replies_held.empty());
}

TEST_F(FcTimerIndex, AFailedSearchSendsNoTimerRequest) {
    EXPECT_FALSE(column.get_next(column.instance({40})).present);
    EXPECT_EQ(platform.requests.size(), 1u);
}

TEST_F(FcTimerIndex, TheVsanTablesCacheIsNotUsed) {
    EXPECT_TRUE(get_next(3, {20}).present);
    EXPECT_TRUE(get_next(RATOV, {20}).present);
    EXPECT_TRUE(get_next(EDTOV, {20}).present);
    EXPECT_TRUE(get_next(3, {20}).present);
    EXPECT_EQ(starts_asked(), (std::vector<int64_t>{20, 20, 20})) << "the VSAN table kept its own row";
}

TEST_F(FcTimerIndex, GetIsTraced) {
    find(column.instance({20}), 1);
    expect_history({{101, "get_vsanFcTimerEntry_instance : Entered "},
                    {101, "get_vsanFcTimerEntry_instance : *length = 15 , vp_namelen = 14 "},
                    {101, "get_vsanFcTimerEntry_instance : Exit with success "}});
    forget_traces();
    find(column.instance({0}), 1);
    expect_history({{101, "get_vsanFcTimerEntry_instance : Entered "},
                    {101, "get_vsanFcTimerEntry_instance : *length = 15 , vp_namelen = 14 "}});
}

TEST_F(FcTimerIndex, GetNextIsTraced) {
    find(column.instance({20}), 0);
    expect_history({{101, "get_vsanFcTimerEntry_instance : Entered "},
                    {101, "get_vsanFcTimerEntry_instance : *length = 15 , vp_namelen = 14 "},
                    {101, "get_vsanFcTimerEntry_instance : oid comapre matched "},
                    {101, "get_vsanFcTimerEntry_instance : Sending GETNEXT request to VSAN mgr with payload (size = "
                          "2632) vsanIndex = 20\n"},
                    {101, "get_vsanFcTimerEntry_instance : Received  GETNEXT Response from VSAN mgr with payload "
                          "(size = 2632) vsanIndex = 30 "},
                    {101, "get_vsanFcTimerEntry_instance : Exit with success "}});
    forget_traces();
    find({1, 3}, 0);
    EXPECT_NOT_TRACED(101, "get_vsanFcTimerEntry_instance : oid comapre matched ");
    EXPECT_TRACED(101, "get_vsanFcTimerEntry_instance : *length = 2 , vp_namelen = 14 ");
    forget_traces();
    find(column.name(), 0);
    EXPECT_TRACED(101, "get_vsanFcTimerEntry_instance : oid comapre matched ");
}

TEST_F(FcTimerIndex, AFailedSearchIsTraced) {
    const std::string text = "get_vsanFcTimerEntry_instance : GETNEXT Request failed for vsanIndex = 20 with error : ";
    vsan_answers = {{some_failure, 0, std::nullopt}, {UINT32_MAX, ECONNRESET, std::nullopt}};
    find(column.instance({20}), 0);
    EXPECT_TRACED(100, text + failure_text(some_failure) + "\n");
    find(column.instance({20}), 0);
    EXPECT_TRACED(100, text + strerror(ECONNRESET) + "\n");
    EXPECT_NOT_TRACED(101, "get_vsanFcTimerEntry_instance : Exit with success ");
}

} // namespace
