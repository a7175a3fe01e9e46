// SPDX-License-Identifier: Apache-2.0
// One lookup of the VSAN table: what is sent, what is done with each kind of reply.

#include "module_test.h"

#include <cerrno>
#include <cstring>

namespace {

constexpr uint32_t no_instance = 0x40490002;

class VsanRequest : public ModuleTest {
  protected:
    registered_object column{3};
    vsanEntry entry = {};
    oid_name name;

    // Resolves a name as the read handler does; `name` is what it leaves behind.
    uint32_t resolve(const oid_name &asked, int exact) {
        oid buffer[MAX_OID_LEN] = {};
        std::copy(asked.begin(), asked.end(), buffer);
        size_t length = asked.size();
        const uint32_t status = header_vsanEntry(column.var.name, column.var.namelen, buffer, &length, exact, &entry);
        name.assign(buffer, buffer + length);
        return status;
    }
};

TEST_F(VsanRequest, EnvelopeOfALookup) {
    platform.add_vsan(10);
    platform.user = "alice";
    platform.session = 77;
    get(3, {10});
    get_next(3, {9});
    ASSERT_EQ(platform.requests.size(), 2u);
    EXPECT_EQ(platform.requests[0].kind, 1u);
    EXPECT_EQ(platform.requests[1].kind, 2u);
    for (const sent_request &request : platform.requests) {
        expect_envelope_of_read(request, 149, 2632);
    }
}

TEST_F(VsanRequest, BlockIsZeroButForTheIndex) {
    platform.add_vsan(0x01020304);
    get(3, {0x01020304});
    bytes wanted(2632);
    put_word(wanted, 520, 0x01020304);
    EXPECT_EQ(platform.requests.at(0).payload, wanted);
}

TEST_F(VsanRequest, BlockOfALaterRequestCarriesNothingOfAnEarlierReply) {
    platform.add_vsans({10, 20});
    get_next(3, {});
    get_next(3, {10});
    bytes wanted(2632);
    put_word(wanted, 520, 10);
    EXPECT_EQ(platform.requests.at(1).payload, wanted);
}

TEST_F(VsanRequest, ReplyRecordIsTakenFromByte520InHostOrder) {
    vsan_row row;
    row.index = 11;
    row.media = 0x01020304;
    row.admin = 2;
    row.mtu = 3;
    row.inorder = 4;
    row.interop = 5;
    row.load_balancing = 6;
    row.row_status = 7;
    row.oper = 8;
    row.name = "tape";
    row.drop_latency = 0xFFFFFFFF;
    platform.on(149, 2).reply(row);
    EXPECT_EQ(resolve(column.instance({10}), 0), 0u);
    EXPECT_EQ(name, column.instance({11}));
    EXPECT_EQ(entry.vsanIndex, 11);
    EXPECT_EQ(entry.vsanMediaType, 0x01020304);
    EXPECT_EQ(entry.vsanAdminState, 2);
    EXPECT_EQ(entry.vsanMtu, 3);
    EXPECT_EQ(entry.vsanInorderDelivery, 4);
    EXPECT_EQ(entry.vsanInterOperMode, 5);
    EXPECT_EQ(entry.vsanLoadBalancingType, 6);
    EXPECT_EQ(entry.vsanRowStatus, 7);
    EXPECT_EQ(entry.vsanOperState, 8);
    EXPECT_STREQ(entry.vsanName, "tape");
    EXPECT_EQ(entry.vsanNetworkDropLatency, 0xFFFFFFFFu);
    for (const uint8_t byte : entry.rest) {
        ASSERT_EQ(byte, 0xA5) << "the manager's own part is carried unchanged";
    }
}

TEST_F(VsanRequest, NameOfTheAnswerIsTheColumnAndTheRowReturned) {
    platform.add_vsan(30);
    EXPECT_EQ(get(3, {30}).name, column.instance({30}));
    EXPECT_EQ(get_next(3, {10, 5, 6}).name, column.instance({30}));
    EXPECT_EQ(column.get_next({1, 3, 6}).name, column.instance({30}));
}

TEST_F(VsanRequest, FailureIsReturnedUnchangedAndTouchesNothing) {
    platform.on(149, 1).status(some_failure);
    const oid_name asked = column.instance({10});
    EXPECT_EQ(resolve(asked, 1), some_failure);
    EXPECT_EQ(name, asked);
    EXPECT_EQ(entry.vsanIndex, 10) << "the record asked for, in host order";
    EXPECT_TRACED(100, "header_vsanEntry(#) : GET  request FAILED for vsanIndex = 10 with error : " +
                           failure_text(some_failure) + "\n");
}

TEST_F(VsanRequest, LocalFailureIsReportedWithErrnosText) {
    platform.on(149, 2).fails(ECONNREFUSED);
    EXPECT_EQ(resolve(column.instance({10}), 0), UINT32_MAX);
    EXPECT_TRACED(100, std::string("header_vsanEntry(#) : GETNEXT request FAILED for vsanIndex = 10 with error : ") +
                           strerror(ECONNREFUSED) + "\n");
}

TEST_F(VsanRequest, FailureWithAReplyReleasesItAndReadsNothingOfIt) {
    vsan_row row;
    row.index = 99;
    for (const size_t length : {0u, 1u, 2628u, 2632u}) {
        bytes data = row_reply(row);
        data.resize(length);
        platform.on(149, 1) = reply_script().status_with_data(some_failure, data);
        EXPECT_EQ(resolve(column.instance({10}), 1), some_failure);
        EXPECT_EQ(entry.vsanIndex, 10);
        EXPECT_EQ(entry.vsanMtu, 0);
        EXPECT_TRUE(platform.replies_held.empty());
    }
    EXPECT_FALSE(get(3, {10}).present);
}

TEST_F(VsanRequest, ShortReplyIsAFailedExchange) {
    vsan_row row;
    row.index = 10;
    for (const size_t length : {0u, 1u, 4u, 519u, 520u, 524u, 2108u, 2627u}) {
        SCOPED_TRACE(length);
        platform.history.clear();
        platform.debug.clear();
        platform.next_pdu();
        bytes data = row_reply(row);
        data.resize(length);
        platform.on(149, 1) = reply_script().reply(data);
        platform.on(149, 2) = reply_script().reply(data);
        EXPECT_EQ(resolve(column.instance({10}), 1), no_instance);
        EXPECT_TRUE(platform.replies_held.empty());
        EXPECT_EQ(traced(100, "header_vsanEntry(#) : GET  request FAILED for vsanIndex = 10 with error : " +
                                  failure_text(no_instance) + "\n"),
                  1)
            << all_traces();
        EXPECT_FALSE(get(5, {10}).present);
        EXPECT_FALSE(get_next(5, {9}).present);
    }
}

TEST_F(VsanRequest, ReplyThatHoldsTheRecordIsEnough) {
    vsan_row row;
    row.index = 10;
    row.name = "storage";
    for (const size_t length : {2628u, 2629u, 2632u, 4000u}) {
        platform.next_pdu();
        bytes data = row_reply(row);
        data.resize(length);
        platform.on(149, 1) = reply_script().reply(data);
        EXPECT_EQ(get(3, {10}).text(), "storage") << length;
    }
}

TEST_F(VsanRequest, SuccessWithoutAnyReplyAnswersAZeroedRowUnderTheNameAsked) {
    platform.on(149, 1).no_data();
    platform.on(149, 2).no_data();
    vsanEntry_current.vsanMtu = 1;
    const oid_name asked = column.instance({10});
    EXPECT_EQ(resolve(asked, 1), 0u);
    EXPECT_EQ(name, asked);
    vsanEntry wanted = {};
    wanted.vsanIndex = 10;
    EXPECT_EQ(memcmp(&entry, &wanted, sizeof entry), 0);

    for (const uint8_t magic : bytes{4, 5, 6, 8, 10, 12, 13, 14}) {
        registered_object object(magic);
        const read_answer exact = object.get(object.instance({10}));
        EXPECT_EQ(exact.number(), 0) << int{magic};
        EXPECT_EQ(exact.name, object.instance({10}));
        const read_answer next = object.get_next(object.instance({10}));
        EXPECT_EQ(next.number(), 0) << int{magic};
        EXPECT_EQ(next.name, object.instance({10}));
    }
    const read_answer text = get(3, {10});
    EXPECT_TRUE(text.present);
    EXPECT_EQ(text.length, 0u);
    EXPECT_EQ(get(11, {10}).number(), 1) << "the row status reads active all the same";
}

TEST_F(VsanRequest, SuccessWithoutAnyReplyLeavesAnOddNameAsItIs) {
    platform.on(149, 1).no_data();
    platform.on(149, 2).no_data();
    const oid_name longer = column.instance({10, 20, 30});
    EXPECT_EQ(column.get(longer).name, longer);
    EXPECT_EQ(vsanEntry_current.vsanIndex, 0);
    EXPECT_EQ(column.get_next(longer).name, longer);
    EXPECT_EQ(vsanEntry_current.vsanIndex, 10);
}

TEST_F(VsanRequest, SuccessWithoutAnyReplyIsTracedAsAFailure) {
    platform.on(149, 1).no_data();
    get(3, {10});
    EXPECT_TRACED(100, "header_vsanEntry(#) : GET  request FAILED for vsanIndex = 10 with error : " + failure_text(0) +
                           "\n");
}

TEST_F(VsanRequest, SendingIsTraced) {
    platform.add_vsan(10);
    get(3, {10});
    EXPECT_TRACED(101,
                  "header_vsanEntry(#) : Sending GET  request to VSAN mgr with payload (size = 2632) vsanIndex = 10\n");
    get_next(3, {9});
    EXPECT_TRACED(101, "header_vsanEntry(#) : Sending GETNEXT request to VSAN mgr with payload (size = 2632) "
                       "vsanIndex = 9\n");
}

TEST_F(VsanRequest, ReceivingIsTracedWithTheWholeRow) {
    vsan_row row = {10, 1, 2, 2112, 3, 100, 2, 6, 7, "storage", 4711};
    platform.on(149, 1).reply(row);
    platform.on(149, 2).reply(row);
    const std::string rest = "Index = 10 MediaType = 1, State=2, Mtu=2112, IODelivery = 3, vsanInteropMode=100, "
                             "LoadBalancingType=2, rowStatus=6, OperationalState =7, Name=storage nwlatency 4711\n";
    get(3, {10});
    EXPECT_TRACED(101,
                  "header_vsanEntry(#) : Received  GET  response from VSAN mgr with payload (size = 2632) " + rest);
    get_next(3, {9});
    EXPECT_TRACED(101,
                  "header_vsanEntry(#) : Received  GETNEXT response from VSAN mgr with payload (size = 2632) " + rest);
}

TEST_F(VsanRequest, UnterminatedNameIsBoundedByItsField) {
    vsan_row row;
    row.index = 10;
    row.name = std::string(36, 'n');
    row.drop_latency = 0x6E6E6E6E; // goes on with the same letter behind the field
    platform.on(149, 1).reply(row);
    const read_answer answer = get(3, {10});
    EXPECT_EQ(answer.length, 36u);
    EXPECT_EQ(answer.text(), std::string(36, 'n'));
    int received = 0;
    for (const trace_line &line : platform.history) {
        if (line.text.find("Received") != std::string::npos) {
            ++received;
            EXPECT_NE(line.text.find("Name=" + std::string(36, 'n') + " nwlatency"), std::string::npos) << line.text;
        }
    }
    EXPECT_EQ(received, 1);
}

TEST_F(VsanRequest, NoErrorIsSetOnTheReadPath) {
    platform.on(149, 1).status(some_failure).no_data().reply(bytes(5));
    for (int i = 0; i < 3; ++i) {
        get(3, {10});
    }
    EXPECT_TRUE(platform.errors_set.empty());
    EXPECT_TRUE(agent.details.empty());
    EXPECT_TRUE(platform.heartbeats.empty());
}

} // namespace
