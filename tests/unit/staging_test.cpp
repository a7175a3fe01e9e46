// SPDX-License-Identifier: Apache-2.0
// The pending and undo lists: what each column stages, what is sent, and what stays.

#include "vsan_write_test.h"

#include <cstring>

namespace {

class Staging : public VsanWriteTest {
  protected:
    Staging() {
        platform.vsans[10] = {10, 1, 1, 2112, 1, 2, 2, 1, 1, "storage", 500};
        platform.vsans[20] = {20, 1, 2, 2048, 2, 100, 1, 1, 2, "backup", 700};
    }

    // Any column's OID will do: the operations look at the instance alone.
    static oid_name instance(std::initializer_list<oid> arcs) { return registered_object(3).instance(arcs); }

    static int stage(int magic, oid vsan, const bytes &value) {
        const oid_name name = instance({vsan});
        auto copy = std::make_unique<u_char[]>(value.size());
        std::copy(value.begin(), value.end(), copy.get());
        return handle_onepdu_undo_vsanEntryList(magic, name.data(), name.size(), copy.get(), value.size());
    }
    static int send(std::initializer_list<oid> arcs) {
        const oid_name name = instance(arcs);
        return handle_set_vsanEntryList(name.data(), name.size());
    }
    static int release(std::initializer_list<oid> arcs) {
        const oid_name name = instance(arcs);
        return handle_free_vsanEntryList(name.data(), name.size());
    }
    static int restore(std::initializer_list<oid> arcs) {
        const oid_name name = instance(arcs);
        return handle_undo_vsanEntryList(name.data(), name.size());
    }

    static bytes text(const std::string &name) { return {name.begin(), name.end()}; }

    // What one staged value makes of VSAN 10.
    void expect_staged(int magic, const bytes &value, const vsan_row &wanted) {
        SCOPED_TRACE(magic);
        const vsan_row before = platform.vsans[10];
        platform.next_pdu();
        EXPECT_EQ(stage(magic, 10, value), 0);
        EXPECT_EQ(send({10}), 0);
        expect_requests({lookup(10), change(wanted)});
        EXPECT_EQ(release({10}), 0);
        platform.vsans[10] = before;
    }

    // Puts a row that is being created on the pending list, as the row status does.
    static void stage_creation(oid vsan) {
        EXPECT_EQ(set_pdu({row_status_of(vsan, 4)}).phase(RESERVE1_PHASE).error, 0);
    }
};

TEST_F(Staging, EachColumnStagesItsFieldAndLeavesTheOthers) {
    vsan_row wanted = unchanged(10);
    wanted.name = "renamed";
    expect_staged(3, text("renamed"), wanted);

    wanted = unchanged(10);
    wanted.admin = 2;
    expect_staged(5, as_long(2), wanted);

    wanted = unchanged(10);
    wanted.load_balancing = 1;
    expect_staged(8, as_long(1), wanted);

    wanted = unchanged(10);
    wanted.row_status = 6;
    expect_staged(11, as_long(6), wanted);

    wanted = unchanged(10);
    wanted.interop = 3;
    expect_staged(12, as_long(3), wanted);

    wanted = unchanged(10);
    wanted.inorder = 2;
    expect_staged(13, as_long(2), wanted);

    wanted = unchanged(10);
    wanted.drop_latency = 60000;
    expect_staged(14, as_long(60000), wanted);
}

TEST_F(Staging, AnIntegerIsReadFromTheBytesThereAre) {
    for (const auto &[value, read] : std::vector<std::pair<bytes, uint32_t>>{{as_word(0x04030201, 0), 0},
                                                                             {as_word(0x04030201, 1), 0x01},
                                                                             {as_word(0x04030201, 2), 0x0201},
                                                                             {as_word(0x04030201, 3), 0x030201},
                                                                             {as_word(0x04030201, 4), 0x04030201},
                                                                             {as_long(0x04030201), 0x04030201},
                                                                             {as_long(-1), 0xFFFFFFFF}}) {
        vsan_row wanted = unchanged(10);
        wanted.admin = read;
        expect_staged(5, value, wanted);
    }
}

TEST_F(Staging, InteroperabilityZeroIsStagedAsAHundred) {
    for (const uint32_t mode : {0u, 1u, 4u, 100u}) {
        vsan_row wanted = unchanged(10);
        wanted.interop = mode == 0 ? 100 : mode;
        expect_staged(12, as_long(mode), wanted);
        EXPECT_TRACED(101, "handle_onepdu_undo_vsanEntryList(#) vsan:10 InterMode:" + std::to_string(mode) + " \n");
        forget_traces();
    }
}

TEST_F(Staging, ANameIsItsBytesAndATerminatingNulAndWhatFollowsStays) {
    const std::string whole_field(36, 'o');
    const std::vector<std::string> names = {
        "", "x", "storage_of_the_west", std::string(32, 'n'), "ab", std::string("\0 x", 3), std::string(35, 'm')};
    for (const std::string &name : names) {
        SCOPED_TRACE(name.size());
        platform.vsans[10].name = whole_field;
        vsan_row wanted = unchanged(10);
        wanted.name = name + '\0' + whole_field.substr(name.size() + 1);
        expect_staged(3, text(name), wanted);
    }
}

TEST_F(Staging, ANameLongerThanItsFieldStaysInside) {
    for (const size_t length : {36u, 37u, 40u, 200u}) {
        SCOPED_TRACE(length);
        vsan_row wanted = unchanged(10);
        wanted.name = std::string(35, 'n');
        expect_staged(3, bytes(length, 'n'), wanted);
    }
}

TEST_F(Staging, MediaTypeAndMtuAreNotWritable) {
    for (const int magic : {4, 6}) {
        EXPECT_EQ(stage(magic, 10, as_long(1)), 17) << magic;
    }
    release({10});
}

TEST_F(Staging, AnyOtherMagicIsInconsistent) {
    EXPECT_EQ(stage(5, 10, as_long(2)), 0);
    for (const int magic : {-1, 0, 1, 2, 7, 9, 10, 15, 16, 38, 255}) {
        SCOPED_TRACE(magic);
        forget_traces();
        EXPECT_EQ(stage(magic, 10, as_long(1)), 12);
        expect_traces({{101, "handle_onepdu_undo_vsanEntryList(#) *** InconsistantName! ***\n"}});
    }
    vsan_row wanted = unchanged(10);
    wanted.admin = 2;
    send({10});
    expect_requests({lookup(10), change(wanted)});
    release({10});
}

TEST_F(Staging, AMissingValueIsAGeneralErrorWithACodeOfItsOwn) {
    const oid_name name = instance({10});
    for (const int magic : {3, 5, 4, 7}) {
        platform.errors_set.clear();
        EXPECT_EQ(handle_onepdu_undo_vsanEntryList(magic, name.data(), name.size(), nullptr, 0), 5) << magic;
        EXPECT_EQ(platform.errors_set, (errors{{0x4019001f, 200}}));
    }
    EXPECT_EQ(listed(vsanEntry_list), (std::vector<int64_t>{10})) << "staged before the value is looked at";
    release({10});
}

TEST_F(Staging, TheFirstColumnTakesTheRowAsPendingAndAsUndoCopy) {
    EXPECT_EQ(stage(5, 10, as_long(2)), 0);
    expect_requests({lookup(10)});
    const vsanEntry &pending = only_record(vsanEntry_list);
    const vsanEntry &undo = only_record(vsanEntry_undo_list);
    EXPECT_NE(&pending, &undo);
    EXPECT_EQ(pending.vsanAdminState, 2);
    EXPECT_EQ(pending.vsanInorderDelivery, 0);
    EXPECT_EQ(pending.vsanNetworkDropLatency, 0u);
    EXPECT_EQ(undo.vsanAdminState, 1);
    EXPECT_EQ(undo.vsanInorderDelivery, 1);
    EXPECT_EQ(undo.vsanNetworkDropLatency, 500u);
    EXPECT_STREQ(undo.vsanName, "storage");
    for (const vsanEntry *record : {&pending, &undo}) {
        EXPECT_TRUE(std::all_of(record->rest, record->rest + sizeof record->rest, [](auto b) { return b == 0xA5; }));
    }
    expect_traces({
        {101, "handle_onepdu_undo_vsanEntryList(#) : Creating an entry (vsanIndex = 10) in vsanEntry_list\n"},
        {101, "handle_onepdu_undo_vsanEntryList(#):  Adding UNDO entry (vsanIndex= 10 to the vsanEntry_undo_list\n"},
        {101,
         "handle_onepdu_undo_vsanEntryList(#): Ret_code:" + failure_text(0) + " ***vsanEntry_undo_list added!***\n"},
        {101, "handle_onepdu_undo_vsanEntryList(#): Adding entry vsanIndex 10, to vsanEntry_list\n"},
    });
    release({10});
}

TEST_F(Staging, FurtherColumnsGoIntoTheSameRecordWithoutALookup) {
    EXPECT_EQ(stage(5, 10, as_long(2)), 0);
    const vsanEntry *pending = &only_record(vsanEntry_list);
    platform.next_pdu(); // no cache could answer
    forget_traces();
    platform.requests.clear();
    EXPECT_EQ(stage(3, 10, text("renamed")), 0);
    EXPECT_EQ(stage(13, 10, as_long(2)), 0);
    EXPECT_TRUE(platform.requests.empty());
    EXPECT_TRUE(platform.history.empty()) << all_traces();
    EXPECT_EQ(&only_record(vsanEntry_list), pending);
    EXPECT_EQ(only_record(vsanEntry_undo_list).vsanAdminState, 1) << "the undo copy does not change";
    vsan_row wanted = unchanged(10);
    wanted.admin = 2;
    wanted.name = "renamed";
    wanted.inorder = 2;
    EXPECT_EQ(send({10}), 0);
    expect_requests({change(wanted)});
    release({10});
}

TEST_F(Staging, AnUndoCopyThatIsThereIsRefreshedInPlace) {
    set_pdu pdu({row_status_of(10, row_active)});
    EXPECT_EQ(pdu.phase(RESERVE1_PHASE).error, 0);
    const vsanEntry *undo = &only_record(vsanEntry_undo_list);
    EXPECT_EQ(undo->vsanAdminState, 1);
    platform.vsans[10].admin = 2;
    platform.next_pdu();
    EXPECT_EQ(stage(3, 10, text("renamed")), 0);
    EXPECT_EQ(&only_record(vsanEntry_undo_list), undo);
    EXPECT_EQ(undo->vsanAdminState, 2);
    EXPECT_EQ(undo->vsanIndex, 10);
    EXPECT_STREQ(undo->vsanName, "storage");
    release({10});
}

TEST_F(Staging, AnUndoCopyOnItsListSurvivesAFailedLookup) {
    set_pdu pdu({row_status_of(10, row_active)});
    EXPECT_EQ(pdu.phase(RESERVE1_PHASE).error, 0);
    refuse(kind_get, 10, some_failure);
    platform.next_pdu();
    EXPECT_EQ(stage(3, 10, text("renamed")), 5);
    EXPECT_TRUE(listed(vsanEntry_list).empty());
    EXPECT_EQ(listed(vsanEntry_undo_list), (std::vector<int64_t>{10}));
    EXPECT_EQ(only_record(vsanEntry_undo_list).vsanAdminState, 1);
    EXPECT_EQ(only_record(vsanEntry_undo_list).vsanNetworkDropLatency, 500u);
    release({10});
}

TEST_F(Staging, AVsanThatDoesNotExistStagesNothing) {
    EXPECT_EQ(stage(3, 99, text("new")), 18);
    const std::string failure = failure_text(no_such_vsan);
    expect_traces({
        {101, "handle_onepdu_undo_vsanEntryList(#) : Creating an entry (vsanIndex = 99) in vsanEntry_list\n"},
        {101, "handle_onepdu_undo_vsanEntryList(#) Ret_Code:" + failure + " \n"},
        {101, "handle_onepdu_undo_vsanEntryList(#) : No instance returned for UNDO (vsanIndex =99,(row status = 0 )\n"},
        {101, "to_snmp_error_code(#) \n"},
        {101, "to_snmp_error_code(#) ***Inconsistant Name! \n"},
    });
    EXPECT_TRUE(listed(vsanEntry_list).empty());
    EXPECT_TRUE(listed(vsanEntry_undo_list).empty());
    EXPECT_TRUE(platform.errors_set.empty());
}

TEST_F(Staging, AFailedLookupIsMapped) {
    struct {
        uint32_t status;
        int error;
    } constexpr failures[] = {
        {no_such_vsan, 18}, {0x40190004, 18}, {0x40190002, 5}, {some_failure, 5}, {UINT32_MAX, 5}};
    for (const auto &failure : failures) {
        platform.next_pdu();
        refuse(kind_get, 10, failure.status);
        EXPECT_EQ(stage(3, 10, text("new")), failure.error) << failure.status;
    }
    EXPECT_TRUE(platform.errors_set.empty());
}

TEST_F(Staging, AReplyTooShortForTheRecordStagesNothing) {
    for (const size_t length : {0u, 1u, 2108u, 2627u}) {
        platform.next_pdu();
        bytes data = row_reply(platform.vsans[10]);
        data.resize(length);
        answers[{kind_get, 10}] = {0, 0, data};
        EXPECT_EQ(stage(3, 10, text("new")), 5) << length;
        EXPECT_TRUE(listed(vsanEntry_list).empty());
        EXPECT_TRUE(listed(vsanEntry_undo_list).empty());
    }
}

TEST_F(Staging, AnAnswerWithoutARowStagesTheValueOverZeroes) {
    answers[{kind_get, 10}] = {};
    EXPECT_EQ(stage(3, 10, text("new")), 0);
    EXPECT_EQ(send({10}), 0);
    expect_requests({lookup(10), creation({10, 0, 0, 0, 0, 0, 0, 0, 0, "new", 0})});
    release({10});
}

TEST_F(Staging, ARecordKeepsItsKeyWhateverNumberTheManagerAnswersWith) {
    vsan_row other = platform.vsans[10];
    other.index = 20;
    answers[{kind_get, 10}] = {0, 0, row_reply(other)};
    EXPECT_EQ(stage(5, 10, as_long(2)), 0);
    EXPECT_EQ(stage(5, 20, as_long(2)), 0);
    EXPECT_EQ(listed(vsanEntry_list), (std::vector<int64_t>{10, 20}));
    EXPECT_EQ(listed(vsanEntry_undo_list), (std::vector<int64_t>{10, 20}));
    release({10});
    release({20});
}

TEST_F(Staging, SendingTakesTheRecordAndTracesIt) {
    stage(5, 10, as_long(2));
    forget_traces();
    EXPECT_EQ(send({10}), 0);
    EXPECT_TRUE(listed(vsanEntry_list).empty());
    EXPECT_EQ(listed(vsanEntry_undo_list), (std::vector<int64_t>{10}));
    const std::string name_length = std::to_string(instance({10}).size());
    expect_traces({
        {101, "handle_set_vsanEntryList(#) name_len:" + name_length + " \n"},
        {101,
         "Sending SET req to vsan for vsan = 10 name storage mediatype 1 mtu 2112 iod 0 iomode 2 loadbtype 2 state "
         "2 nwlatency 0\n"},
        {101, "handle_set_vsanEntryList(#) :SET with vsanIndex = 10, succeeded\n"},
    });
    platform.requests.clear();
    EXPECT_EQ(send({10}), 0);
    EXPECT_TRUE(platform.requests.empty());
    expect_traces({
        {101, "handle_set_vsanEntryList(#) name_len:" + name_length + " \n"},
        {101, "handle_set_vsanEntryList(#) : ***No need to send the SET request again for vsanIndex = 10  ***\n"},
    });
    release({10});
}

TEST_F(Staging, ARefusedRequestIsRecordedAndMappedAndKeepsTheUndoCopy) {
    struct {
        uint32_t status;
        int error;
    } constexpr refusals[] = {
        {no_such_vsan, 18}, {0x40190004, 18}, {0x40190002, 5}, {some_failure, 5}, {UINT32_MAX, 5}};
    for (const auto &refused : refusals) {
        SCOPED_TRACE(refused.status);
        platform.errors_set.clear();
        refuse(kind_set, 10, refused.status);
        stage(5, 10, as_long(2));
        forget_traces();
        EXPECT_EQ(send({10}), refused.error);
        EXPECT_EQ(platform.errors_set, (errors{{refused.status, 200}}));
        EXPECT_TRACED(100,
                      "handle_set_vsanEntryList(#)SET failed for vsanIndex 10: " + failure_text(refused.status) + "\n");
        EXPECT_TRUE(listed(vsanEntry_list).empty());
        EXPECT_EQ(listed(vsanEntry_undo_list), (std::vector<int64_t>{10}));
        release({10});
    }
}

TEST_F(Staging, ARowBeingCreatedIsLeftToTheRowStatus) {
    stage_creation(99);
    forget_traces();
    platform.requests.clear();
    EXPECT_EQ(send({99}), 0);
    expect_traces({{101, "handle_set_vsanEntryList(#) Don't Create vsan 99 yet! \n"}});
    EXPECT_TRUE(platform.requests.empty());
    EXPECT_EQ(listed(vsanEntry_list), (std::vector<int64_t>{99}));
    release({99});
}

TEST_F(Staging, ARowBeingCreatedWithNumberNineIsSent) {
    stage_creation(9);
    platform.requests.clear();
    EXPECT_EQ(send({9}), 0);
    vsan_row wanted = created(9);
    wanted.row_status = 4;
    expect_requests({creation(wanted)});
    EXPECT_TRUE(listed(vsanEntry_list).empty());
}

TEST_F(Staging, OnlyARowBeingCreatedAndGoIsLeftToTheRowStatus) {
    for (const int64_t status : {0, 1, 2, 3, 5, 6}) {
        stage(11, 10, as_long(status));
        platform.requests.clear();
        EXPECT_EQ(send({10}), 0);
        EXPECT_EQ(sent_kinds(), "3") << status;
        release({10});
    }
    stage(11, 10, as_long(4));
    platform.requests.clear();
    EXPECT_EQ(send({10}), 0);
    EXPECT_EQ(sent_kinds(), "");
    release({10});
}

TEST_F(Staging, TheExceptionIsForTheLastArcNotForTheVsan) {
    // An instance of two arcs stands for VSAN 0.
    answers[{kind_get, 0}] = {};
    const oid_name name = instance({20, 9});
    const bytes create_and_go = as_long(4);
    EXPECT_EQ(handle_onepdu_undo_vsanEntryList(11, name.data(), name.size(), create_and_go.data(), 4), 0);
    EXPECT_EQ(send({20, 8}), 0);
    EXPECT_EQ(sent_kinds(), "1") << "left to the row status";
    EXPECT_EQ(send({20, 9}), 0);
    EXPECT_EQ(sent_kinds(), "13");
    release({0});
}

TEST_F(Staging, ReleasingDropsBothRecordsOfTheVsanAlone) {
    stage(5, 10, as_long(2));
    stage(5, 20, as_long(1));
    EXPECT_EQ(release({10}), 0);
    EXPECT_EQ(listed(vsanEntry_list), (std::vector<int64_t>{20}));
    EXPECT_EQ(listed(vsanEntry_undo_list), (std::vector<int64_t>{20}));
    EXPECT_EQ(release({20}), 0);
}

TEST_F(Staging, ReleasingNothingIsHarmless) {
    EXPECT_EQ(release({10}), 0);
    EXPECT_EQ(release({}), 0);
    EXPECT_EQ(release({10, 10}), 0);
    EXPECT_TRUE(platform.history.empty()) << all_traces();
    EXPECT_TRUE(platform.requests.empty());
}

TEST_F(Staging, RestoringDropsThePendingRecordAndSendsTheUndoCopy) {
    const vsan_row before = platform.vsans[20];
    stage(5, 20, as_long(1));
    platform.requests.clear();
    forget_traces();
    EXPECT_EQ(restore({20}), 0);
    expect_requests({change(before)});
    expect_traces({
        {101,
         "Sending SET req to vsan for vsan = 20 name backup mediatype 1 mtu 2048 iod 2 iomode 100 loadbtype 1 iod 2 "
         "nwlatency 700\n"},
        {101, "handle_undo_vsanEntryList(#) :SET with vsanIndex = 20, succeeded\n"},
    });
    EXPECT_TRUE(listed(vsanEntry_list).empty());
    EXPECT_TRUE(listed(vsanEntry_undo_list).empty());
}

TEST_F(Staging, RestoringWithoutAnUndoCopySendsNothing) {
    stage_creation(99);
    platform.requests.clear();
    forget_traces();
    EXPECT_EQ(restore({99}), 0);
    EXPECT_EQ(restore({99}), 0);
    const std::string none = "handle_undo_vsanEntryList : Could not get the entry for UNDO from UNDO list for instance "
                             "vsanIndex = 99\n";
    expect_traces({{101, none}, {101, none}});
    EXPECT_TRUE(platform.requests.empty());
    EXPECT_TRUE(listed(vsanEntry_list).empty());
}

TEST_F(Staging, ARefusedRestorationIsRecordedAndMapped) {
    refuse(kind_set, 10, 0x40190004);
    stage(5, 10, as_long(2));
    EXPECT_EQ(restore({10}), 18);
    EXPECT_EQ(platform.errors_set, (errors{{0x40190004, 200}}));
    EXPECT_TRACED(100, "SET failed for vsanIndex 10: " + failure_text(0x40190004) + "\n");
    EXPECT_TRUE(listed(vsanEntry_undo_list).empty());
}

TEST_F(Staging, ANameWithoutATerminatingNulIsTracedNoFurtherThanItsField) {
    platform.vsans[10].name = std::string(36, 'n');
    stage(5, 10, as_long(2));
    EXPECT_EQ(send({10}), 0);
    EXPECT_EQ(restore({10}), 0);
    EXPECT_TRACED(101, "Sending SET req to vsan for vsan = 10 name " + std::string(36, 'n') +
                           " mediatype 1 mtu 2112 iod 0 iomode 2 loadbtype 2 state 2 nwlatency 0\n");
}

} // namespace
