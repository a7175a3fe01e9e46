// SPDX-License-Identifier: Apache-2.0
// GET and GETNEXT of the interface table: one row an interface, from the VSAN manager.

#include "module_test.h"

#include <cerrno>
#include <cstring>

namespace {

constexpr uint8_t VSAN_COLUMN = 16;
constexpr uint8_t DENY_LIST_COLUMN = 17;

// An interface that is in VSAN 20 and has the deny list 0x01020304.
bytes interface_record(uint32_t if_index) {
    return if_record(if_index, 20, 0x01020304);
}

class IfTable : public ModuleTest {
  protected:
    static int stale_write_method(int, u_char *, u_char, size_t, u_char *, oid *, size_t) { return 1; }

    static uint32_t asked_if_index() { return get_word(platform.requests.at(0).payload, 0); }

    registered_object vsan_column{VSAN_COLUMN};
    registered_object deny_list_column{DENY_LIST_COLUMN};
};

TEST_F(IfTable, GetAsksForTheOneArcBehindTheColumn) {
    platform.on(124, 1).reply(interface_record(16777216));
    const read_answer answer = vsan_column.get(vsan_column.instance({16777216}));
    EXPECT_EQ(answer.number(), 20);
    EXPECT_EQ(answer.name, vsan_column.instance({16777216}));
    ASSERT_EQ(platform.requests.size(), 1u);
    EXPECT_EQ(asked_if_index(), 16777216u);
}

TEST_F(IfTable, GetOfAnyOtherLengthAsksForInterfaceZero) {
    oid_name prefix = vsan_column.name();
    prefix.pop_back();
    oid_name longest = vsan_column.instance({5});
    longest.resize(MAX_OID_LEN, 1);
    for (const oid_name &name : {vsan_column.name(), vsan_column.instance({5, 6}), longest, oid_name{1, 3}, prefix}) {
        SCOPED_TRACE(name.size());
        platform.requests.clear();
        platform.on(124, 1) = reply_script().reply(interface_record(7));
        const read_answer answer = vsan_column.get(name);
        EXPECT_EQ(asked_if_index(), 0u);
        EXPECT_EQ(answer.name, vsan_column.instance({7})) << "the answer is the row that came back";
    }
}

TEST_F(IfTable, GetDoesNotCompareTheColumn) {
    platform.on(124, 1).reply(interface_record(7));
    oid_name other = vsan_column.instance({7});
    other[0] = 2;
    EXPECT_TRUE(vsan_column.get(other).present);
    EXPECT_EQ(asked_if_index(), 7u);
}

TEST_F(IfTable, GetHasNoBoundOnTheIfIndex) {
    for (const oid arc : {oid{0}, oid{4096}, oid{0x7FFFFFFF}, oid{0x80000000}, oid{0xFFFFFFFF}}) {
        const auto if_index = static_cast<uint32_t>(arc);
        platform.requests.clear();
        platform.on(124, 1) = reply_script().reply(interface_record(if_index));
        const read_answer answer = vsan_column.get(vsan_column.instance({arc}));
        EXPECT_EQ(answer.number(), 20) << arc;
        EXPECT_EQ(answer.name, vsan_column.instance({arc}));
        EXPECT_EQ(asked_if_index(), if_index);
    }
}

TEST_F(IfTable, GetNextStartsFromTheFirstArcBehindTheColumn) {
    oid_name longest = vsan_column.instance({5});
    longest.resize(MAX_OID_LEN, 1);
    for (const oid_name &name : {vsan_column.instance({5}), vsan_column.instance({5, 6}), longest}) {
        SCOPED_TRACE(name.size());
        platform.requests.clear();
        platform.on(124, 2) = reply_script().reply(interface_record(8));
        const read_answer answer = vsan_column.get_next(name);
        EXPECT_EQ(asked_if_index(), 5u);
        EXPECT_EQ(answer.name, vsan_column.instance({8}));
    }
}

TEST_F(IfTable, GetNextOfAnotherOrAShorterNameStartsFromTheFirstInterface) {
    oid_name prefix = vsan_column.name();
    prefix.pop_back();
    oid_name before = vsan_column.instance({5});
    before[8] -= 1;
    for (const oid_name &name : {vsan_column.name(), prefix, oid_name{1, 3}, before}) {
        SCOPED_TRACE(name.size());
        platform.requests.clear();
        platform.on(124, 2) = reply_script().reply(interface_record(8));
        EXPECT_EQ(vsan_column.get_next(name).name, vsan_column.instance({8}));
        EXPECT_EQ(asked_if_index(), 0u);
    }
}

TEST_F(IfTable, GetNextFromTheLargestIfIndexIsNullWithoutARequest) {
    EXPECT_FALSE(vsan_column.get_next(vsan_column.instance({largest_arc})).present);
    EXPECT_FALSE(deny_list_column.get_next(deny_list_column.instance({largest_arc, 1})).present);
    EXPECT_TRUE(platform.requests.empty());
    EXPECT_TRUE(platform.history.empty()) << all_traces();
}

TEST_F(IfTable, GetNextHasNoOtherBound) {
    for (const oid arc : {oid{4096}, oid{0x7FFFFFFF}, oid{0x80000000}, oid{0xFFFFFFFE}}) {
        platform.requests.clear();
        platform.on(124, 2) = reply_script().reply(interface_record(0xFFFFFFFF));
        EXPECT_EQ(vsan_column.get_next(vsan_column.instance({arc})).name, vsan_column.instance({largest_arc})) << arc;
        EXPECT_EQ(asked_if_index(), static_cast<uint32_t>(arc));
    }
}

TEST_F(IfTable, RequestIsTheSixteenByteRecordInTheWholeEnvelope) {
    platform.user = "alice";
    platform.session = 77;
    platform.on(124, 1).reply(interface_record(0x01020304));
    platform.on(124, 2).reply(interface_record(0x01020305));
    get(VSAN_COLUMN, {0x01020304});
    get_next(DENY_LIST_COLUMN, {0x01020304});
    ASSERT_EQ(platform.requests.size(), 2u);
    for (const sent_request &request : platform.requests) {
        expect_envelope_of_read(request, 124, 16);
        EXPECT_EQ(request.payload, (bytes{1, 2, 3, 4, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    }
    EXPECT_EQ(platform.requests[0].kind, 1u);
    EXPECT_EQ(platform.requests[1].kind, 2u);
}

TEST_F(IfTable, ReplyStartsAtByteZeroAndItsFourthWordIsNotConverted) {
    platform.on(124, 1).reply(if_record(9, 4095, 0xFFFFFFFE, {0x44, 0x33, 0x22, 0x11}));
    vsanIfEntry record;
    oid_name name = vsan_column.instance({9});
    size_t length = name.size();
    EXPECT_EQ(header_vsanIfEntry(vsan_column.name().data(), 14, name.data(), &length, 1, &record), 0u);
    EXPECT_EQ(record.ifIndex, 9);
    EXPECT_EQ(record.vsanIfVsan, 4095);
    EXPECT_EQ(record.vsanIfDenyList, -2);
    const bytes as_received = {0x44, 0x33, 0x22, 0x11};
    EXPECT_EQ(memcmp(&record.vsanIfRowStatus, as_received.data(), 4), 0);
}

TEST_F(IfTable, EachColumnIsItsOwnWord) {
    platform.on(124, 1).reply(interface_record(9));
    EXPECT_EQ(get(VSAN_COLUMN, {9}).number(), 20);
    EXPECT_EQ(get(DENY_LIST_COLUMN, {9}).number(), 0x01020304);
    EXPECT_EQ(get(VSAN_COLUMN, {9}).value, reinterpret_cast<const u_char *>(&vsanIfEntry_current.vsanIfVsan));
    EXPECT_EQ(get(DENY_LIST_COLUMN, {9}).value, reinterpret_cast<const u_char *>(&vsanIfEntry_current.vsanIfDenyList));
    EXPECT_EQ(platform.requests.size(), 4u) << "there is no cache";
}

TEST_F(IfTable, ALongerReplyIsFine) {
    bytes reply = interface_record(9);
    reply.resize(400, 0xEE);
    platform.on(124, 1).reply(reply);
    EXPECT_EQ(get(VSAN_COLUMN, {9}).number(), 20);
}

TEST_F(IfTable, EveryShortReplyIsRefusedAndReleased) {
    for (size_t length = 0; length < 16; ++length) {
        SCOPED_TRACE(length);
        bytes cut = interface_record(9);
        cut.resize(length);
        for (const uint32_t kind : {1u, 2u}) {
            platform.on(124, kind) = reply_script().reply(cut);
        }
        const read_answer answer = get(VSAN_COLUMN, {9});
        EXPECT_FALSE(answer.present);
        EXPECT_EQ(answer.write_method, nullptr);
        EXPECT_EQ(answer.name, vsan_column.instance({9}));
        EXPECT_FALSE(get_next(VSAN_COLUMN, {9}).present);
        EXPECT_TRUE(platform.replies_held.empty());

        vsanIfEntry record;
        oid_name name = vsan_column.instance({9});
        size_t name_length = name.size();
        EXPECT_EQ(header_vsanIfEntry(vsan_column.name().data(), 14, name.data(), &name_length, 1, &record),
                  0x40490002u);
    }
}

TEST_F(IfTable, SuccessWithoutAReplyKeepsTheNameAndAnswersTheIndexAlone) {
    platform.on(124, 1).no_data();
    platform.on(124, 2).no_data();
    const oid_name long_name = vsan_column.instance({9, 5});
    EXPECT_EQ(get(VSAN_COLUMN, {9}).number(), 0);
    EXPECT_EQ(vsanIfEntry_current.ifIndex, 9);
    const read_answer answer = vsan_column.get_next(long_name);
    EXPECT_EQ(answer.number(), 0);
    EXPECT_EQ(answer.name, long_name);
    EXPECT_EQ(
        traced(100, "header_vsanIfEntry(#) : GET request failedfor ifIndex = 9 with error : " + failure_text(0) + "\n"),
        1)
        << all_traces();
}

TEST_F(IfTable, AFailureIsNullKeepsTheNameAndReleasesTheReply) {
    for (const uint32_t status : {0x40190001u, 0x40190002u, 0x40490002u, some_failure}) {
        SCOPED_TRACE(status);
        for (const uint32_t kind : {1u, 2u}) {
            platform.on(124, kind) = reply_script().status(status).status_with_data(status, interface_record(9));
        }
        for (int i = 0; i < 2; ++i) {
            const read_answer found = get(VSAN_COLUMN, {9});
            EXPECT_FALSE(found.present);
            EXPECT_EQ(found.name, vsan_column.instance({9}));
            const read_answer next = get_next(DENY_LIST_COLUMN, {9});
            EXPECT_FALSE(next.present);
            EXPECT_EQ(next.name, deny_list_column.instance({9}));
        }
        EXPECT_TRUE(platform.replies_held.empty());
    }
    EXPECT_TRUE(platform.errors_set.empty());
    EXPECT_TRUE(agent.details.empty());
}

TEST_F(IfTable, AFailureReturnsTheManagersStatus) {
    platform.on(124, 1).status(0x40190004);
    vsanIfEntry record;
    oid_name name = vsan_column.instance({9});
    size_t length = name.size();
    EXPECT_EQ(header_vsanIfEntry(vsan_column.name().data(), 14, name.data(), &length, 1, &record), 0x40190004u);
    EXPECT_EQ(record.ifIndex, 9) << "in host order again";
}

TEST_F(IfTable, AFailureIsTracedAsItIsWritten) {
    platform.on(124, 1).status(some_failure);
    platform.on(124, 2).fails(ETIMEDOUT);
    get(VSAN_COLUMN, {9});
    get_next(VSAN_COLUMN, {10});
    EXPECT_TRACED(100, "header_vsanIfEntry(#) : GET request failedfor ifIndex = 9 with error : " +
                           failure_text(some_failure) + "\n");
    EXPECT_TRACED(100, std::string("header_vsanIfEntry(#) : GETNEXT request failedfor ifIndex = 10 with error : ") +
                           strerror(ETIMEDOUT) + "\n");
}

TEST_F(IfTable, RequestAndResponseAreTraced) {
    const bytes host_order_five = as_word(5);
    platform.on(124, 1).reply(if_record(9, 20, 3, host_order_five));
    platform.on(124, 2).reply(if_record(0xFFFFFFFE, 0xFFFFFFFF, 0x80000000, host_order_five));
    get(VSAN_COLUMN, {9});
    get_next(VSAN_COLUMN, {9});
    EXPECT_TRACED(101, "header_vsanIfEntry : Sending  GET request to VSAN mgr with payload (size = 16) ifIndex = 9\n");
    EXPECT_TRACED(101,
                  "header_vsanIfEntry : Sending  GETNEXT request to VSAN mgr with payload (size = 16) ifIndex = 9\n");
    EXPECT_TRACED(101, "header_vsanIfEntry(#) : Received  GET response from VSAN mgr with payload (size = 16) "
                       "ifIndex = 9 vsanIfVsan = 20, vsanIfDenyList=3, vsanIfRowStatus=5\n");
    EXPECT_TRACED(101, "header_vsanIfEntry(#) : Received  GETNEXT response from VSAN mgr with payload (size = 16) "
                       "ifIndex = -2 vsanIfVsan = -1, vsanIfDenyList=-2147483648, vsanIfRowStatus=5\n");
}

TEST_F(IfTable, WriteMethodIsHandedOverForExistingRowsOnly) {
    platform.on(124, 1).reply(interface_record(9)).status(some_failure);
    const oid_name name = vsan_column.instance({9});
    EXPECT_EQ(vsan_column.read(name, 1, stale_write_method).write_method, set_vsanIfVsan);
    EXPECT_EQ(vsan_column.read(name, 1, stale_write_method).write_method, stale_write_method);
}

TEST_F(IfTable, DenyListClearsTheWriteMethodSlotForExistingRowsOnly) {
    platform.on(124, 1).reply(interface_record(9)).status(some_failure);
    const oid_name name = deny_list_column.instance({9});
    EXPECT_EQ(deny_list_column.read(name, 1, stale_write_method).write_method, nullptr);
    EXPECT_EQ(deny_list_column.read(name, 1, stale_write_method).write_method, stale_write_method);
}

TEST_F(IfTable, AWalkEndsBehindTheLastInterface) {
    platform.manager = [](const sent_request &request) -> scripted_reply {
        const uint32_t asked = get_word(request.payload, 0);
        for (const uint32_t if_index : {5u, 16777216u, 0xFFFFFFFFu}) {
            if (if_index > asked) {
                return {0, 0, interface_record(if_index)};
            }
        }
        return {0x40190001u, 0, std::nullopt};
    };
    std::vector<oid> seen;
    for (read_answer at = get_next(DENY_LIST_COLUMN, {}); at.present; at = deny_list_column.get_next(at.name)) {
        seen.push_back(at.name.back());
        ASSERT_LE(seen.size(), 3u) << "the walk does not end";
    }
    EXPECT_EQ(seen, (std::vector<oid>{5, 16777216, largest_arc}));
    EXPECT_EQ(platform.requests.size(), 3u) << "nothing is asked behind the largest ifIndex";
}

TEST_F(IfTable, AnyOtherMagicLeavesAnEmptyDetailBehindTheLookup) {
    for (const uint8_t magic : bytes{0, 3, 15, 18, 30, 255}) {
        SCOPED_TRACE(int{magic});
        platform.requests.clear();
        agent.details.clear();
        platform.on(124, 1) = reply_script().reply(interface_record(9));
        registered_object object(VSAN_COLUMN);
        object.var.magic = magic;
        const read_answer answer = object.read(object.instance({9}), 1, stale_write_method);
        EXPECT_FALSE(answer.present);
        EXPECT_EQ(answer.write_method, stale_write_method);
        EXPECT_EQ(agent.details, std::vector<std::string>{""});
        EXPECT_EQ(platform.requests.size(), 1u);
    }
}

TEST_F(IfTable, AnyOtherMagicOfAMissingRowSetsNoDetail) {
    platform.on(124, 1).status(some_failure);
    registered_object object(VSAN_COLUMN);
    object.var.magic = 3;
    EXPECT_FALSE(object.get(object.instance({9})).present);
    EXPECT_TRUE(agent.details.empty());
}

} // namespace
