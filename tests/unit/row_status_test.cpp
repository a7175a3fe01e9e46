// SPDX-License-Identifier: Apache-2.0
// The row status of a VSAN, phase by phase: what each checks, stages, sends and traces.

#include "vsan_write_test.h"

#include <sys/stat.h>

namespace {

constexpr uint8_t INTEGER = 0x02;
const std::string entered = "set_vsanRowStatus(#) \n";

class RowStatus : public VsanWriteTest {
  protected:
    RowStatus() { platform.vsans[10] = {10, 1, 2, 2048, 1, 100, 1, 5, 2, "storage", 700}; }

    static oid_name instance(std::initializer_list<oid> arcs) { return registered_object(11).instance(arcs); }

    // One phase, with a current value or none.
    static int call(int phase, uint8_t type, const bytes &value, u_char *current, const oid_name &name) {
        auto copy = std::make_unique<u_char[]>(value.size());
        std::copy(value.begin(), value.end(), copy.get());
        oid_name asked = name;
        return set_vsanRowStatus(phase, copy.get(), type, value.size(), current, asked.data(), asked.size());
    }

    // RESERVE1 for a row that does not exist.
    static int reserve(uint8_t type, const bytes &value, std::initializer_list<oid> arcs = {99}) {
        forget_traces();
        return call(RESERVE1_PHASE, type, value, nullptr, instance(arcs));
    }
    static int phase_of_missing(int phase, int64_t status) {
        forget_traces();
        return call(phase, INTEGER, as_long(status), nullptr, instance({99}));
    }
    static void release(oid vsan) { call(FREE_PHASE, INTEGER, as_long(1), nullptr, instance({vsan})); }

    // RESERVE1 as the agent does it, with the read before it.
    static int read_and_reserve(oid vsan, int64_t status) {
        set_pdu pdu({row_status_of(vsan, status)});
        return pdu.phase(RESERVE1_PHASE).error;
    }
    // ACTION in the PDU in progress.
    static int act(oid vsan, int64_t status) {
        forget_traces();
        platform.requests.clear();
        return call(ACTION_PHASE, INTEGER, as_long(status), nullptr, instance({vsan}));
    }
    static int undo(oid vsan, int64_t status) {
        forget_traces();
        platform.requests.clear();
        return call(UNDO_PHASE, INTEGER, as_long(status), nullptr, instance({vsan}));
    }

    static const std::string sent_traced;
};

// The parts of VSAN 10's record, as the traces show them.
const std::string RowStatus::sent_traced = "vsan = 10 name storage mediatype 1 mtu 2048 inorderdeliver 1 "
                                           "interopermode 100 loadbtype 1 state 2";

TEST_F(RowStatus, RefusesEveryOtherType) {
    for (const uint8_t type : bytes{0x04, 0x05, 0x06, 0x41, 0x42, 0x43, 0x00, 0xFF}) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(reserve(type, bytes(5, 0xFF), {0}), 7);
        fflush(stderr);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "write to vsanRowStatus not ASN_INTEGER\n");
        expect_traces({{101, entered},
                       {101, "set_vsanRowStatus(#) In RESERVE1 \n"},
                       {101, "set_vsanRowStatus(#) RESERVE1 !ASN_INTEGER \n"}});
    }
}

TEST_F(RowStatus, RefusesEveryOtherLength) {
    for (size_t length = 5; length <= 12; ++length) {
        if (length == sizeof(long)) {
            continue;
        }
        testing::internal::CaptureStderr();
        EXPECT_EQ(reserve(INTEGER, bytes(length, 0xFF), {0}), 8);
        fflush(stderr);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "write to vsanRowStatus: bad length\n");
        expect_traces({{101, entered}, {101, "set_vsanRowStatus(#) In RESERVE1 \n"}});
    }
}

TEST_F(RowStatus, TheVsanIsOneTo4095) {
    for (const oid vsan : {oid{1}, oid{4094}, oid{4095}}) {
        EXPECT_EQ(reserve(INTEGER, as_long(row_destroy), {vsan}), 0) << vsan;
    }
    for (const oid vsan : {oid{0}, oid{4096}, oid{65536}, oid{0x80000000u}, largest_arc}) {
        EXPECT_EQ(reserve(INTEGER, as_long(row_create_and_go), {vsan}), 10) << vsan;
        expect_traces({{101, entered}, {101, "set_vsanRowStatus(#) In RESERVE1 \n"}});
    }
}

TEST_F(RowStatus, OnlyActiveCreateAndGoAndDestroyAreAccepted) {
    for (const int64_t status : {row_active, row_create_and_go, row_destroy}) {
        EXPECT_EQ(reserve(INTEGER, as_long(status)), 0) << status;
        release(99);
    }
    for (const int64_t status : {row_not_in_service, row_not_ready, row_create_and_wait, int64_t{0}, int64_t{7},
                                 int64_t{-1}, int64_t{INT32_MAX}, int64_t{INT32_MIN}}) {
        EXPECT_EQ(reserve(INTEGER, as_long(status)), 10) << status;
        const std::string number = std::to_string(status);
        expect_traces({{101, entered},
                       {101, "set_vsanRowStatus(#) In RESERVE1 \n"},
                       {101, "set_vsanRowStatus(#) set_vsanrowstatus long_ret:" + number + " \n"},
                       {101, "set_vsanRowStatus(#) long_ret:" + number + " \n"}});
    }
    EXPECT_TRUE(platform.requests.empty());
}

TEST_F(RowStatus, TheValueIsReadFromTheBytesThereAre) {
    EXPECT_EQ(reserve(INTEGER, as_word(row_destroy, 0)), 10);
    for (size_t length = 1; length <= 4; ++length) {
        EXPECT_EQ(reserve(INTEGER, as_word(row_destroy, length)), 0) << length;
    }
    EXPECT_EQ(reserve(INTEGER, as_eight_bytes(4294967296 + row_destroy)), sizeof(long) == 8 ? 0 : 8);
}

TEST_F(RowStatus, CreateAndGoOnAnExistingRowIsInconsistent) {
    u_char current[4] = {};
    EXPECT_EQ(call(RESERVE1_PHASE, INTEGER, as_long(row_create_and_go), current, instance({10})), 12);
    expect_traces({{101, entered},
                   {101, "set_vsanRowStatus(#) In RESERVE1 \n"},
                   {101, "set_vsanRowStatus(#) set_vsanrowstatus long_ret:4 \n"},
                   {101, "set_vsanRowStatus(#) long_ret:4 \n"},
                   {101, "set_vsanRowStatus(#) ***InconsistantName! ***\n"}});
    EXPECT_TRUE(listed(vsanEntry_list).empty());
    EXPECT_TRUE(listed(vsanEntry_undo_list).empty());
    EXPECT_TRUE(platform.errors_set.empty());
}

TEST_F(RowStatus, ActiveAndDestroyKeepTheRowForUndo) {
    for (const int64_t status : {row_active, row_destroy}) {
        EXPECT_EQ(read_and_reserve(10, status), 0);
        EXPECT_TRACED(101, "set_vsanRowStatus(#) indexobj_Add to undo_list \n");
        EXPECT_EQ(traced(101, "set_vsanRowStatus(#) : set Rowstatus Validate Vsan_id \n"), status == row_destroy);
        const vsanEntry &copy = only_record(vsanEntry_undo_list);
        EXPECT_EQ(copy.vsanIndex, 10);
        EXPECT_EQ(copy.vsanInterOperMode, 100);
        EXPECT_EQ(copy.vsanNetworkDropLatency, 700u);
        EXPECT_STREQ(copy.vsanName, "storage");
        EXPECT_TRUE(std::all_of(copy.rest, copy.rest + sizeof copy.rest, [](auto b) { return b == 0xA5; }));
        EXPECT_TRUE(listed(vsanEntry_list).empty());
        release(10);
        forget_traces();
    }
}

TEST_F(RowStatus, TwoRowStatusesOfOneVsanShareOneCopy) {
    set_pdu pdu({row_status_of(10, row_active), row_status_of(10, row_destroy)});
    EXPECT_EQ(pdu.phase(RESERVE1_PHASE).error, 0);
    EXPECT_EQ(listed(vsanEntry_undo_list), (std::vector<int64_t>{10}));
    EXPECT_EQ(agent.records_held.size(), 1u);
    release(10);
}

TEST_F(RowStatus, TheCopyIsOfTheRowAsReadLast) {
    EXPECT_EQ(read_and_reserve(10, row_active), 0);
    platform.vsans[10].mtu = 1000;
    forget_traces();
    EXPECT_EQ(read_and_reserve(10, row_destroy), 0);
    EXPECT_EQ(only_record(vsanEntry_undo_list).vsanMtu, 1000);
    EXPECT_TRACED(101, "set_vsanRowStatus(#) indexobj_Add to undo_list \n");
    release(10);
}

TEST_F(RowStatus, AnyListResultButZeroRestrictsAndAnyAnswerButZeroPermits) {
    platform.restrict_to({10});
    for (const int answer : {2, -1}) {
        platform.restriction_result = platform.permitted_result = answer;
        EXPECT_EQ(reserve(INTEGER, as_long(row_destroy), {20}), 5) << answer;
        EXPECT_EQ(reserve(INTEGER, as_long(row_destroy), {10}), 0) << answer;
    }
}

TEST_F(RowStatus, ARestrictionIsAskedAboutTheLastArc) {
    platform.restrict_to({10});
    EXPECT_EQ(reserve(INTEGER, as_long(row_destroy), {20}), 5);
    EXPECT_EQ(reserve(INTEGER, as_long(row_destroy), {10}), 0);
    // Too long a name stands for VSAN 0, whoever asks; it is still its last arc that counts.
    EXPECT_EQ(reserve(INTEGER, as_long(row_destroy), {10, 20}), 5);
    EXPECT_EQ(reserve(INTEGER, as_long(row_destroy), {20, 10}), 0);
}

TEST_F(RowStatus, CreateAndGoStagesARowWithDefaults) {
    EXPECT_EQ(reserve(INTEGER, as_long(row_create_and_go)), 0);
    expect_traces({{101, entered},
                   {101, "set_vsanRowStatus(#) In RESERVE1 \n"},
                   {101, "set_vsanRowStatus(#) set_vsanrowstatus long_ret:4 \n"},
                   {101, "set_vsanRowStatus(#) long_ret:4 \n"},
                   {101, "set_vsanRowStatus(#) RS_CREATEANDGO! \n"},
                   {101, "set_vsanRowStatus(#)set_vsanRowStatus  RS_CREATEANDGO! \n"},
                   {101, "set_vsanRowStatus(#) Validate Vsan_id\n"},
                   {101, "set_vsanRowStatus(#) : Row Status = 4\n"},
                   {101, "set_vsanRowStatus(#) : Adding entry vsanIndex = 99, to vsanEntry_list (row_status = 4)\n"}});
    const vsanEntry &row = only_record(vsanEntry_list);
    EXPECT_EQ(row.vsanIndex, 99);
    EXPECT_EQ(row.vsanMediaType, 1);
    EXPECT_EQ(row.vsanAdminState, 1);
    EXPECT_EQ(row.vsanMtu, 2112);
    EXPECT_EQ(row.vsanInorderDelivery, 0);
    EXPECT_EQ(row.vsanInterOperMode, 100);
    EXPECT_EQ(row.vsanLoadBalancingType, 2);
    EXPECT_EQ(row.vsanRowStatus, 4);
    EXPECT_EQ(row.vsanOperState, 0);
    EXPECT_STREQ(row.vsanName, "VSAN0099");
    EXPECT_EQ(row.vsanNetworkDropLatency, 0u);
    EXPECT_TRUE(listed(vsanEntry_undo_list).empty());
    EXPECT_TRUE(platform.requests.empty());
    release(99);
}

TEST_F(RowStatus, CreateAndGoTwiceInAPduStagesOneRow) {
    EXPECT_EQ(reserve(INTEGER, as_long(row_create_and_go)), 0);
    EXPECT_EQ(reserve(INTEGER, as_long(row_create_and_go)), 0);
    EXPECT_EQ(listed(vsanEntry_list), (std::vector<int64_t>{99}));
    EXPECT_EQ(agent.records_held.size(), 1u);
    release(99);
}

TEST_F(RowStatus, ActiveAndDestroyOfAMissingRowPassReserve1AndStageNothing) {
    for (const int64_t status : {row_active, row_destroy}) {
        EXPECT_EQ(reserve(INTEGER, as_long(status)), 0);
        EXPECT_TRUE(listed(vsanEntry_list).empty());
        EXPECT_TRUE(listed(vsanEntry_undo_list).empty());
    }
}

TEST_F(RowStatus, ARestrictedUserMayNotCreateOrDestroyOutsideTheRole) {
    platform.restrict_to({20});
    for (const int64_t status : {row_create_and_go, row_destroy}) {
        platform.errors_reported.clear();
        platform.allowed_calls.clear();
        EXPECT_EQ(reserve(INTEGER, as_long(status)), 5);
        EXPECT_TRACED(100, "set_vsanRowStatus : vsan restricted user is not allowed to set \n");
        EXPECT_EQ(platform.errors_reported,
                  (std::vector<std::pair<uint32_t, std::string>>{{0x40540008, failure_text(0x40540008)}}));
        ASSERT_EQ(platform.allowed_calls.size(), 1u);
        EXPECT_EQ(platform.allowed_calls[0].name, instance({99}));
        EXPECT_EQ(platform.allowed_calls[0].pdu_type, 163);
        EXPECT_EQ(platform.allowed_calls[0].size, 512u);
        EXPECT_TRUE(listed(vsanEntry_list).empty());
    }
    EXPECT_TRUE(platform.errors_set.empty());
}

TEST_F(RowStatus, TheErrorRecordTakesATextOfItsSize) {
    platform.restrict_to({});
    platform.long_error_texts = true;
    EXPECT_EQ(reserve(INTEGER, as_long(row_destroy)), 5);
    ASSERT_EQ(platform.errors_reported.size(), 1u);
    EXPECT_EQ(platform.errors_reported[0].second, std::string(199, 'e'));
}

TEST_F(RowStatus, ARestrictedUserMayCreateAndDestroyInsideTheRole) {
    platform.restrict_to({99});
    EXPECT_EQ(reserve(INTEGER, as_long(row_create_and_go)), 0);
    EXPECT_EQ(reserve(INTEGER, as_long(row_destroy)), 0);
    EXPECT_TRUE(platform.errors_reported.empty());
    release(99);
}

TEST_F(RowStatus, ARestrictedUserIsRefusedTheDestructionOfARowThatShows) {
    get(11, {10});
    platform.restrict_to({20});
    u_char current[4] = {};
    EXPECT_EQ(call(RESERVE1_PHASE, INTEGER, as_long(row_destroy), current, instance({10})), 5);
    EXPECT_EQ(listed(vsanEntry_undo_list), (std::vector<int64_t>{10}));
    release(10);
}

TEST_F(RowStatus, TheChecksComeInTheirOrder) {
    platform.restrict_to({});
    testing::internal::CaptureStderr();
    EXPECT_EQ(reserve(0x42, bytes(5), {0}), 7);
    EXPECT_EQ(reserve(INTEGER, bytes(5), {0}), 8);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(reserve(INTEGER, as_long(row_create_and_wait), {99}), 10);
    EXPECT_TRUE(platform.allowed_calls.empty());
    EXPECT_EQ(reserve(INTEGER, as_long(row_create_and_go), {99}), 5);
}

TEST_F(RowStatus, Reserve2MarksTheCurrentValueWhereThereIsOne) {
    u_char current[4] = {0xEE, 0xEE, 0xEE, 0xEE};
    EXPECT_EQ(call(RESERVE2_PHASE, INTEGER, as_long(6), current, instance({10})), 0);
    EXPECT_EQ(bytes(current, current + 4), (bytes{1, 0xEE, 0xEE, 0xEE}));
    expect_traces({{101, entered}, {101, "set_vsanRowStatus(#) RESERVE2 \n"}});
    EXPECT_EQ(call(RESERVE2_PHASE, INTEGER, as_long(4), nullptr, instance({99})), 0);
    expect_traces({{101, entered}, {101, "set_vsanRowStatus(#) RESERVE2 \n"}});
    EXPECT_TRUE(platform.requests.empty());
}

TEST_F(RowStatus, ActionOfActiveSendsTheRowAsRead) {
    EXPECT_EQ(act(10, row_active), 0);
    expect_requests({lookup(10), change(platform.vsans[10])});
    expect_traces({{101, entered},
                   {101, "set_vsanRowStatus(#) ACTION calling header_vsanEntry\n"},
                   {101, "set_vsanRowStatus(#) ret_code:" + failure_text(0) + " \n"},
                   {101, "set_vsanRowStatus(#) make SET_REQ \n"},
                   {101, "Sending SET req to vsan for " + sent_traced + "  nwlatency 700\n"},
                   {101, "set_vsanRowStatus : set_vsanRowStatus(#) SET for vsanIndex 10 succeeded\n"}});
}

TEST_F(RowStatus, ActionOfDestroyDeletesTheRowAsRead) {
    const vsan_row row = platform.vsans[10];
    EXPECT_EQ(act(10, row_destroy), 0);
    expect_requests({lookup(10), deletion(row)});
    expect_traces({{101, entered},
                   {101, "set_vsanRowStatus(#) ACTION calling header_vsanEntry\n"},
                   {101, "set_vsanRowStatus(#) ret_code:" + failure_text(0) + " \n"},
                   {101, "set_vsanRowStatus(#) make DELTE_REQ \n"},
                   {101, "Sending DELETE req to vsan for " + sent_traced + "  nwlatency 700\n"},
                   {101, "set_vsanRowStatus : set_vsanRowStatus(#) DELETE for vsanIndex 10 succeeded\n"}});
}

TEST_F(RowStatus, ActionOfACreationFindsTheRowCreatedMeanwhile) {
    for (const int64_t status : {row_create_and_go, row_create_and_wait}) {
        platform.next_pdu();
        EXPECT_EQ(act(10, status), 12);
        expect_requests({lookup(10)});
        expect_traces({{101, entered},
                       {101, "set_vsanRowStatus(#) ACTION calling header_vsanEntry\n"},
                       {101, "set_vsanRowStatus(#) ret_code:" + failure_text(0) + " \n"},
                       {101, "set_vsanRowStatus(#) Long_ret:" + std::to_string(status) +
                                 " ***SNMP_ERROR INCONSISTANTVALUE*** \n"}});
    }
}

TEST_F(RowStatus, ActionOfCreateAndGoSendsThePendingRowAndKeepsIt) {
    EXPECT_EQ(reserve(INTEGER, as_long(row_create_and_go)), 0);
    EXPECT_EQ(act(99, row_create_and_go), 0);
    expect_requests({lookup(99), creation(created(99))});
    expect_traces(
        {{101, entered},
         {101, "set_vsanRowStatus(#) ACTION calling header_vsanEntry\n"},
         {101, "set_vsanRowStatus(#) ret_code:" + failure_text(no_such_vsan) + " \n"},
         {101, "set_vsanRowStatus(#): Fetching  entry for vsanEntry_list with vsanIndex = 99\n"},
         {101, "set_vsanRowStatus(#): Fetched  entry from vsanEntry_list for SET with vsanIndex = 99\n"},
         {101, "set_vsanRowStatus(#): SET REQ create a new entry! \n"},
         {101,
          "Sending SET req to vsan for vsan = 99 name VSAN0099 mediatype 1 mtu 2112 inorderdeliver 0 interopermode "
          "100 loadbtype 2 state 1  nwlatency 0\n"},
         {101, "set_vsanRowStatus : set_vsanRowStatus(#) SET for vsanIndex 99 succeeded\n"}});
    EXPECT_EQ(listed(vsanEntry_list), (std::vector<int64_t>{99}));
    EXPECT_EQ(only_record(vsanEntry_list).vsanRowStatus, 1);
    release(99);
}

TEST_F(RowStatus, ActionWithoutTheRowIsAsItsValueSays) {
    const std::pair<uint32_t, std::string> beginning[] = {
        {101, entered},
        {101, "set_vsanRowStatus(#) ACTION calling header_vsanEntry\n"},
        {101, "set_vsanRowStatus(#) ret_code:" + failure_text(no_such_vsan) + " \n"}};
    const auto lines = [&](std::vector<std::pair<uint32_t, std::string>> last) {
        last.insert(last.begin(), std::begin(beginning), std::end(beginning));
        return last;
    };
    for (const int64_t status : {row_active, row_not_in_service}) {
        EXPECT_EQ(act(99, status), 12);
        expect_traces(lines({{101, "set_vsanRowStatus(#) SNMP_ERR_INCONSISTENTVALUE \n"}}));
    }
    EXPECT_EQ(act(99, row_destroy), 0);
    expect_traces(lines({}));
    EXPECT_EQ(act(99, row_create_and_go), 18) << "nothing is pending";
    expect_traces(lines({{101, "set_vsanRowStatus(#): Fetching  entry for vsanEntry_list with vsanIndex = 99\n"},
                         {101, "set_vsanRowStatus(#) ***Return Inconsistantname! ***\n"}}));
    expect_requests({lookup(99)});
    EXPECT_TRUE(platform.errors_set.empty());
}

TEST_F(RowStatus, ActionMapsAnyOtherFailureOfTheLookup) {
    for (const auto &[status, error] : std::vector<std::pair<uint32_t, int>>{
             {0x40190004, 18}, {0x40190002, 5}, {0x40490002, 5}, {some_failure, 5}, {UINT32_MAX, 5}}) {
        refuse(kind_get, 10, status);
        for (const int64_t wanted : {row_active, row_create_and_go, row_destroy}) {
            EXPECT_EQ(act(10, wanted), error) << status;
            expect_requests({lookup(10)});
        }
    }
    EXPECT_TRUE(platform.errors_set.empty());
}

TEST_F(RowStatus, ActionTakesAShortReplyForAFailedLookup) {
    bytes data = row_reply(platform.vsans[10]);
    data.resize(2627);
    answers[{kind_get, 10}] = {0, 0, data};
    EXPECT_EQ(act(10, row_active), 5);
    EXPECT_EQ(sent_kinds(), "1");
}

TEST_F(RowStatus, ARefusedRequestIsRecordedAndMapped) {
    for (const auto &[status, error] : std::vector<std::pair<uint32_t, int>>{
             {no_such_vsan, 18}, {0x40190004, 18}, {some_failure, 5}, {UINT32_MAX, 5}}) {
        for (const int64_t wanted : {row_active, row_destroy}) {
            platform.errors_set.clear();
            refuse(kind_set, 10, status);
            refuse(kind_delete, 10, status);
            EXPECT_EQ(act(10, wanted), error);
            EXPECT_EQ(platform.errors_set, (errors{{status, 200}}));
            EXPECT_TRACED(100,
                          (wanted == row_destroy ? "DELETE failed : " : "SET failed : ") + failure_text(status) + "\n");
        }
    }
}

TEST_F(RowStatus, CommitAndFreeReleaseWhatIsStaged) {
    for (const auto &[phase, text] : std::vector<std::pair<int, std::string>>{
             {COMMIT_PHASE, "set_vsanRowStatus(#) in COMMIT \n"}, {FREE_PHASE, "set_vsanRowStatus(#) FREE \n"}}) {
        reserve(INTEGER, as_long(row_create_and_go));
        read_and_reserve(10, row_active);
        forget_traces();
        EXPECT_EQ(call(phase, INTEGER, as_long(row_active), nullptr, instance({10})), 0);
        expect_traces({{101, entered}, {101, text}});
        EXPECT_EQ(listed(vsanEntry_list), (std::vector<int64_t>{99}));
        EXPECT_TRUE(listed(vsanEntry_undo_list).empty());
        EXPECT_EQ(phase_of_missing(phase, row_create_and_go), 0);
        EXPECT_TRUE(listed(vsanEntry_list).empty());
        EXPECT_EQ(phase_of_missing(phase, row_create_and_go), 0) << "with nothing staged";
    }
}

TEST_F(RowStatus, UndoOfActiveAndDestroySendsTheCopyBack) {
    const vsan_row before = platform.vsans[10];
    for (const int64_t status : {row_active, row_destroy}) {
        platform.vsans[10] = before;
        read_and_reserve(10, status);
        platform.vsans[10].name = "changed";
        EXPECT_EQ(undo(10, status), 0);
        expect_requests({change(before)});
        expect_traces({{101, entered},
                       {101, "set_vsanRowStatus(#) UNDO Back out any Changes! \n"},
                       {101, "set_vsanRowStatus(#) SET with old Values! Removing from undo_list!\n"},
                       {101, "set_vsanRowStatus(#) Sending SET req to vsan for " + sent_traced + "\n"}});
        EXPECT_TRUE(listed(vsanEntry_undo_list).empty());
        EXPECT_EQ(undo(10, status), 0) << "once";
        expect_requests({});
    }
}

TEST_F(RowStatus, UndoOfCreateAndGoDeletesTheRowAndDropsThePendingOne) {
    reserve(INTEGER, as_long(row_create_and_go));
    EXPECT_EQ(undo(99, row_create_and_go), 0);
    expect_requests({deletion_of_new(99)});
    expect_traces({{101, entered},
                   {101, "set_vsanRowStatus(#) UNDO Back out any Changes! \n"},
                   {101, "set_vsanRowStatus(#) User create a new row in ACTION now DELETE it \n"},
                   {101, "set_vsanRowStatus(#) Sending DELETE req to vsan for vsan = 99 name  mediatype 0 mtu 0 "
                         "inorderdeliver 0 interopermode 0 loadbtype 0 state 0\n"},
                   {101, "set_vsanRowStatus(#) indexobj_remove from vsanEntry_list  \n"}});
    EXPECT_TRUE(listed(vsanEntry_list).empty());
}

TEST_F(RowStatus, UndoOfCreateAndGoWithAnUndoCopySendsNothing) {
    read_and_reserve(10, row_active);
    EXPECT_EQ(undo(10, row_create_and_go), 0);
    expect_requests({});
    expect_traces({{101, entered},
                   {101, "set_vsanRowStatus(#) UNDO Back out any Changes! \n"},
                   {101, "set_vsanRowStatus(#) User got an error of RS_CREATEANDGO vsan:10 remove undo_list\n"}});
    EXPECT_TRUE(listed(vsanEntry_undo_list).empty());
}

TEST_F(RowStatus, ARefusedUndoIsOnlyTraced) {
    refuse(kind_set, 10, some_failure);
    refuse(kind_delete, 99, some_failure);
    read_and_reserve(10, row_destroy);
    EXPECT_EQ(undo(10, row_destroy), 0);
    EXPECT_TRACED(100, "set_vsanRowStatus(#) ret_code:" + failure_text(some_failure) + " \n");
    reserve(INTEGER, as_long(row_create_and_go));
    EXPECT_EQ(undo(99, row_create_and_go), 0);
    EXPECT_TRACED(100, "set_vsanRowStatus(#) ret_code:" + failure_text(some_failure) + " \n");
    EXPECT_TRUE(platform.errors_set.empty());
}

TEST_F(RowStatus, AnyOtherPhaseOnlyTracesThatItWasCalled) {
    for (const int phase : {6, 7, -1, 1000}) {
        EXPECT_EQ(phase_of_missing(phase, row_create_and_go), 0);
        expect_traces({{101, entered}});
    }
}

TEST_F(RowStatus, SuccessIsWrittenToTheDebugFileWhenOneIsOpen) {
    vsan_mib_debug_file = tmpfile();
    ASSERT_NE(vsan_mib_debug_file, nullptr);
    act(10, row_active);
    refuse(kind_set, 10, some_failure);
    act(10, row_active);
    act(10, row_destroy);
    struct stat file = {};
    ASSERT_EQ(fstat(fileno(vsan_mib_debug_file), &file), 0);
    EXPECT_NE(file.st_size, 0) << "whoever follows the file sees each line at once";
    const long written = ftell(vsan_mib_debug_file);
    EXPECT_EQ(file.st_size, written);
    rewind(vsan_mib_debug_file);
    char text[200] = {};
    const size_t length = fread(text, 1, sizeof text - 1, vsan_mib_debug_file);
    fclose(vsan_mib_debug_file);
    vsan_mib_debug_file = nullptr;
    EXPECT_EQ(static_cast<size_t>(written), length);
    EXPECT_TRUE(is_trace(text, "set_vsanRowStatus : set_vsanRowStatus(#) SET for vsanIndex 10 succeeded\n"
                               "set_vsanRowStatus : set_vsanRowStatus(#) DELETE for vsanIndex 10 succeeded\n"))
        << text;
}

} // namespace
