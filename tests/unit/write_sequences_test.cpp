// SPDX-License-Identifier: Apache-2.0
// Whole SET PDUs on the VSAN table: which requests reach the manager, in which order
// and with which bytes, and what the switch has in the end.

#include "vsan_write_test.h"

#include <cerrno>

namespace {

class WriteSequence : public VsanWriteTest {
  protected:
    WriteSequence() {
        for (const uint32_t vsan : {1u, 2u, 3u, 10u, 20u}) {
            platform.vsans[vsan] = {vsan, 1, 1, 2112, 1, 100, 2, 1, 1, "vsan" + std::to_string(vsan), 500 + vsan};
        }
    }

    // A row with a new name staged into it: what lies behind the terminator stays.
    static vsan_row with_name(vsan_row row, const std::string &name) {
        const std::string before = row.name;
        row.name = name + '\0';
        if (before.size() > row.name.size()) {
            row.name += before.substr(row.name.size());
        }
        return row;
    }
    static vsan_row renamed(uint32_t vsan, const std::string &name) { return with_name(unchanged(vsan), name); }
    static vsan_row created_as(uint32_t vsan, const std::string &name) { return with_name(created(vsan), name); }
    static vsan_row row(uint32_t vsan) { return platform.vsans.at(vsan); }
    static bool exists(uint32_t vsan) { return platform.vsans.count(vsan) != 0; }

    // Runs a PDU. UNDO and the phases that release never fail.
    static set_outcome run(set_pdu &pdu) {
        const set_outcome outcome = pdu.run();
        for (const int error : pdu.later_errors) {
            EXPECT_EQ(error, 0);
        }
        return outcome;
    }
    static set_outcome run(std::vector<varbind> varbinds) {
        set_pdu pdu(std::move(varbinds));
        return run(pdu);
    }

    static constexpr set_outcome success = {};
};

TEST_F(WriteSequence, AColumnAloneGoesOutWithTheRestOfTheRow) {
    vsan_row wanted[] = {unchanged(10), unchanged(10), unchanged(10), unchanged(10), unchanged(10), unchanged(10)};
    wanted[0] = renamed(10, "new");
    wanted[1].admin = 2;
    wanted[2].load_balancing = 1;
    wanted[3].interop = 4;
    wanted[4].inorder = 2;
    wanted[5].drop_latency = 1;
    const varbind columns[] = {name_of(10, "new"), admin_state_of(10, 2), load_balancing_of(10, 1),
                               interop_of(10, 4),  inorder_of(10, 2),     drop_latency_of(10, 1)};
    const vsan_row before = row(10);
    for (size_t i = 0; i < std::size(columns); ++i) {
        SCOPED_TRACE(i);
        platform.vsans[10] = before;
        EXPECT_EQ(run({columns[i]}), success);
        expect_requests({lookup(10), change(wanted[i])});
    }
    EXPECT_TRUE(platform.errors_set.empty());
}

TEST_F(WriteSequence, TwoColumnsOfOneVsanAreOneChange) {
    vsan_row wanted = renamed(10, "new");
    wanted.admin = 2;
    EXPECT_EQ(run({name_of(10, "new"), admin_state_of(10, 2)}), success);
    expect_requests({lookup(10), change(wanted)});
    EXPECT_TRACED(101,
                  "handle_set_vsanEntryList(#) : ***No need to send the SET request again for vsanIndex = 10  ***\n");
}

TEST_F(WriteSequence, AllColumnsOfOneVsanAreOneChange) {
    EXPECT_EQ(run({drop_latency_of(10, 60000), inorder_of(10, 2), interop_of(10, 0), load_balancing_of(10, 1),
                   admin_state_of(10, 2), name_of(10, "")}),
              success);
    expect_requests({lookup(10), change({10, 1, 2, 2112, 2, 100, 1, 1, 1, std::string(1, '\0') + "san10", 60000})});
}

TEST_F(WriteSequence, OfAColumnGivenTwiceTheLastValueIsSent) {
    vsan_row wanted = unchanged(10);
    wanted.admin = 1;
    EXPECT_EQ(run({admin_state_of(10, 2), admin_state_of(10, 1)}), success);
    expect_requests({lookup(10), change(wanted)});
}

TEST_F(WriteSequence, TwoVsansAreTwoChangesInTheOrderOfTheirFirstColumns) {
    const vsan_row ten = renamed(10, "a");
    const vsan_row twenty = renamed(20, "b");
    EXPECT_EQ(run({name_of(20, "b"), name_of(10, "a")}), success);
    expect_requests({lookup(20), lookup(10), lookup(20), lookup(10), change(twenty), change(ten)});
}

TEST_F(WriteSequence, ColumnsAreGroupedByObjectButSentByVsan) {
    vsan_row ten = renamed(10, "a");
    ten.admin = 2;
    vsan_row twenty = renamed(20, "b");
    twenty.admin = 2;
    EXPECT_EQ(run({name_of(10, "a"), admin_state_of(20, 2), name_of(20, "b"), admin_state_of(10, 2)}), success);
    // The cache answers where the row read last is asked for again.
    expect_requests({lookup(10), lookup(20), lookup(10), lookup(20), change(ten), change(twenty)});
}

TEST_F(WriteSequence, CreationWithColumnsBeforeTheRowStatusIsOneChange) {
    vsan_row wanted = created_as(99, "backup");
    wanted.admin = 2;
    EXPECT_EQ(run({name_of(99, "backup"), admin_state_of(99, 2), row_status_of(99, row_create_and_go)}), success);
    expect_requests({lookup(99), lookup(99), lookup(99), lookup(99), creation(wanted)});
}

TEST_F(WriteSequence, CreationWithTheRowStatusFirstSendsTheRowAgainForTheColumns) {
    const vsan_row wanted = created_as(99, "backup");
    EXPECT_EQ(run({row_status_of(99, row_create_and_go), name_of(99, "backup")}), success);
    expect_requests({lookup(99), lookup(99), lookup(99), creation(wanted), creation(wanted)});
}

TEST_F(WriteSequence, ARefusedCreationIsNotSentAgainForTheColumns) {
    refuse(kind_set, 99, some_failure);
    const vsan_row wanted = created_as(99, "backup");
    EXPECT_EQ(run({row_status_of(99, row_create_and_go), name_of(99, "backup")}), (set_outcome{5, 1}));
    expect_requests({lookup(99), lookup(99), lookup(99), creation(wanted), deletion_of_new(99)});
    EXPECT_TRUE(listed(vsanEntry_list).empty());
}

TEST_F(WriteSequence, CreationAloneHasDefaults) {
    EXPECT_EQ(run({row_status_of(4095, row_create_and_go)}), success);
    expect_requests({lookup(4095), lookup(4095), creation(created(4095))});
}

TEST_F(WriteSequence, VsanNineIsSentByTheColumnBeforeItsRowStatusWhichThenFailsAndDeletesIt) {
    vsan_row sent = created_as(9, "nine");
    sent.row_status = 4;
    EXPECT_EQ(run({name_of(9, "nine"), row_status_of(9, row_create_and_go)}), (set_outcome{12, 2}));
    expect_requests({lookup(9), lookup(9), creation(sent), lookup(9), deletion_of_new(9)});
    EXPECT_FALSE(exists(9));
}

TEST_F(WriteSequence, VsanNineWithTheRowStatusFirstIsCreatedAsAnyOther) {
    const vsan_row wanted = created_as(9, "nine");
    EXPECT_EQ(run({row_status_of(9, row_create_and_go), name_of(9, "nine")}), success);
    expect_requests({lookup(9), lookup(9), lookup(9), creation(wanted), creation(wanted)});
}

TEST_F(WriteSequence, ActiveSendsTheRowAsRead) {
    const vsan_row before = row(10);
    EXPECT_EQ(run({row_status_of(10, row_active)}), success);
    expect_requests({lookup(10), change(before)});
}

TEST_F(WriteSequence, ActiveBehindAColumnSendsTheRowAsItWasBefore) {
    const vsan_row before = row(10);
    const vsan_row changed = renamed(10, "new");
    EXPECT_EQ(run({name_of(10, "new"), row_status_of(10, row_active)}), success);
    expect_requests({lookup(10), change(changed), change(before)});
}

TEST_F(WriteSequence, ActiveBeforeAColumnLeavesTheColumn) {
    const vsan_row before = row(10);
    const vsan_row changed = renamed(10, "new");
    EXPECT_EQ(run({row_status_of(10, row_active), name_of(10, "new")}), success);
    expect_requests({lookup(10), change(before), change(changed)});
}

TEST_F(WriteSequence, DestroySendsADeletionOfTheRowAsRead) {
    const vsan_row before = row(10);
    EXPECT_EQ(run({row_status_of(10, row_destroy)}), success);
    expect_requests({lookup(10), deletion(before)});
    EXPECT_FALSE(exists(10));
}

TEST_F(WriteSequence, DestroyBehindAColumnDeletesWhatTheColumnChanged) {
    const vsan_row before = row(10);
    const vsan_row changed = renamed(10, "new");
    EXPECT_EQ(run({name_of(10, "new"), row_status_of(10, row_destroy)}), success);
    expect_requests({lookup(10), change(changed), deletion(before)});
}

TEST_F(WriteSequence, DestroyBeforeAColumnIsFollowedByTheColumnsChange) {
    const vsan_row before = row(10);
    const vsan_row changed = renamed(10, "new");
    refuse(kind_set, 10, no_such_vsan);
    EXPECT_EQ(run({row_status_of(10, row_destroy), name_of(10, "new")}), (set_outcome{18, 2}));
    expect_requests({lookup(10), deletion(before), change(changed), change(before)});
}

TEST_F(WriteSequence, DestroyOfAMissingRowSucceedsWithoutARequest) {
    EXPECT_EQ(run({row_status_of(99, row_destroy)}), success);
    expect_requests({lookup(99), lookup(99)});
}

TEST_F(WriteSequence, ActiveOnAMissingRowIsInconsistent) {
    EXPECT_EQ(run({row_status_of(99, row_active)}), (set_outcome{12, 1}));
    expect_requests({lookup(99), lookup(99)});
}

TEST_F(WriteSequence, CreateAndGoOnAnExistingRowFailsBeforeAnythingIsStaged) {
    EXPECT_EQ(run({name_of(10, "new"), row_status_of(10, row_create_and_go)}), (set_outcome{12, 2}));
    expect_requests({lookup(10)});
}

TEST_F(WriteSequence, AColumnOfAMissingRowFailsInReserve2) {
    EXPECT_EQ(run({name_of(10, "new"), name_of(99, "new")}), (set_outcome{18, 2}));
    expect_requests({lookup(10), lookup(99), lookup(10), lookup(99)});
    EXPECT_TRUE(platform.errors_set.empty());
}

TEST_F(WriteSequence, ACheckThatFailsReleasesWhatOthersHaveStaged) {
    EXPECT_EQ(run({row_status_of(99, row_create_and_go), row_status_of(10, row_destroy), admin_state_of(10, 3)}),
              (set_outcome{10, 3}));
    expect_requests({lookup(99), lookup(10)});
}

TEST_F(WriteSequence, ARowCreatedBySomebodyElseMeanwhileIsInconsistentAndIsDeletedByUndo) {
    set_pdu pdu({row_status_of(99, row_create_and_go), name_of(99, "mine")});
    pdu.before = [](set_phase next) {
        if (next == ACTION_PHASE) {
            platform.add_vsan(99);
        }
    };
    EXPECT_EQ(run(pdu), (set_outcome{12, 1}));
    // The column finds its row still waiting for the row status and sends nothing.
    expect_requests({lookup(99), lookup(99), lookup(99), deletion_of_new(99)});
    EXPECT_FALSE(exists(99));
}

TEST_F(WriteSequence, ARowDestroyedBySomebodyElseBeforeReserve2StagesNothing) {
    set_pdu pdu({name_of(10, "a"), name_of(20, "b")});
    pdu.before = [](set_phase next) {
        if (next == RESERVE2_PHASE) {
            platform.vsans.erase(10);
        }
    };
    EXPECT_EQ(run(pdu), (set_outcome{18, 1}));
    expect_requests({lookup(10), lookup(20), lookup(10), lookup(20)});
}

TEST_F(WriteSequence, ARowDestroyedBySomebodyElseBeforeActionIsRefusedByTheManager) {
    const vsan_row changed = renamed(10, "new");
    refuse(kind_set, 10, no_such_vsan);
    EXPECT_EQ(run({name_of(10, "new")}), (set_outcome{18, 1}));
    expect_requests({lookup(10), change(changed)});
    EXPECT_EQ(platform.errors_set, (errors{{no_such_vsan, 200}}));
}

TEST_F(WriteSequence, RowStatusesOfARowDestroyedBySomebodyElse) {
    const vsan_row ten = row(10);
    const vsan_row twenty = row(20);
    const auto destroyed_before_action = [](set_pdu &pdu) {
        pdu.before = [](set_phase next) {
            if (next == ACTION_PHASE) {
                platform.vsans.erase(10);
            }
        };
    };
    // Another row has taken the cache, so ACTION sees what happened.
    set_pdu activation({row_status_of(10, row_active), row_status_of(20, row_active)});
    destroyed_before_action(activation);
    EXPECT_EQ(run(activation), (set_outcome{12, 1}));
    expect_requests({lookup(10), lookup(20), lookup(10), lookup(20), change(twenty), change(ten), change(twenty)});

    set_pdu destruction({row_status_of(10, row_destroy), row_status_of(20, row_destroy)});
    destroyed_before_action(destruction);
    EXPECT_EQ(run(destruction), success);
    expect_requests({lookup(10), lookup(20), lookup(10), lookup(20), deletion(twenty)});
}

TEST_F(WriteSequence, OfThreeVsansARefusedOneLeavesTheOthersChanged) {
    refuse(kind_set, 2, some_failure);
    const vsan_row one = renamed(1, "a");
    const vsan_row two = renamed(2, "b");
    const vsan_row three = renamed(3, "c");
    set_pdu pdu({name_of(1, "a"), name_of(2, "b"), name_of(3, "c")});
    pdu.before = [](set_phase next) {
        if (next == UNDO_PHASE) {
            EXPECT_TRUE(listed(vsanEntry_list).empty());
            EXPECT_EQ(listed(vsanEntry_undo_list), (std::vector<int64_t>{1, 2, 3}));
        }
    };
    EXPECT_EQ(run(pdu), (set_outcome{5, 2}));
    expect_requests(
        {lookup(1), lookup(2), lookup(3), lookup(1), lookup(2), lookup(3), change(one), change(two), change(three)});
    EXPECT_EQ(row(1).name, "a");
    EXPECT_EQ(row(2).name, "vsan2");
    EXPECT_EQ(row(3).name, "c");
    EXPECT_EQ(platform.errors_set, (errors{{some_failure, 200}}));
}

TEST_F(WriteSequence, ARefusedCreationIsFollowedByADeletion) {
    for (const auto &[status, error] :
         std::vector<std::pair<uint32_t, int>>{{0x40190004, 18}, {some_failure, 5}, {UINT32_MAX, 5}}) {
        platform.errors_set.clear();
        refuse(kind_set, 99, status);
        EXPECT_EQ(run({name_of(99, "new"), row_status_of(99, row_create_and_go)}), (set_outcome{error, 2}));
        expect_requests({lookup(99), lookup(99), lookup(99), creation(created_as(99, "new")), deletion_of_new(99)});
        EXPECT_EQ(platform.errors_set, (errors{{status, 200}}));
    }
}

TEST_F(WriteSequence, ACreatedRowIsDeletedWhenAnotherVarbindFails) {
    refuse(kind_set, 10, some_failure);
    const vsan_row changed = renamed(10, "new");
    EXPECT_EQ(run({row_status_of(99, row_create_and_go), name_of(10, "new")}), (set_outcome{5, 2}));
    expect_requests({lookup(99), lookup(10), lookup(99), creation(created(99)), change(changed), deletion_of_new(99)});
    EXPECT_FALSE(exists(99));
}

TEST_F(WriteSequence, ADestroyedOrActivatedRowIsRestoredWhenAnotherVarbindFails) {
    refuse(kind_set, 20, some_failure);
    const vsan_row before = row(10);
    const vsan_row changed = renamed(20, "new");
    for (const int64_t status : {row_destroy, row_active}) {
        const wanted_request done = status == row_destroy ? deletion(before) : change(before);
        EXPECT_EQ(run({row_status_of(10, status), name_of(20, "new")}), (set_outcome{5, 2}));
        expect_requests({lookup(10), lookup(20), lookup(10), done, change(changed), change(before)});
        EXPECT_EQ(run({name_of(20, "new"), row_status_of(10, status)}), (set_outcome{5, 1}));
        expect_requests({lookup(20), lookup(10), lookup(20), change(changed), lookup(10), done, change(before)});
        EXPECT_EQ(row(10).name, before.name);
    }
}

TEST_F(WriteSequence, TheRowStatusFindsItsCopyWhenAColumnOfItsVsanHasStagedOne) {
    refuse(kind_delete, 10, some_failure);
    const vsan_row before = row(10);
    const vsan_row changed = renamed(10, "new");
    EXPECT_EQ(run({name_of(10, "new"), row_status_of(10, row_destroy)}), (set_outcome{5, 2}));
    expect_requests({lookup(10), change(changed), deletion(before), change(before)});
    EXPECT_EQ(run({row_status_of(10, row_destroy), name_of(10, "new")}), (set_outcome{5, 1}));
    expect_requests({lookup(10), deletion(before), change(changed), change(before)});
}

TEST_F(WriteSequence, TheCopyKeepsTheManagersInteroperabilityMode) {
    refuse(kind_set, 20, some_failure);
    const vsan_row before = row(10);
    EXPECT_EQ(before.interop, 100u);
    EXPECT_EQ(run({interop_of(10, 1), row_status_of(10, row_active), name_of(20, "new")}), (set_outcome{5, 3}));
    ASSERT_FALSE(platform.requests.empty());
    EXPECT_EQ(platform.requests.back().vsan(), 10);
    EXPECT_EQ(row(10).interop, 100u) << "not the 0 that a read shows";
}

TEST_F(WriteSequence, ARefusedUndoChangesNothingOfTheOutcome) {
    refuse(kind_set, 10, some_failure);
    refuse(kind_delete, 10, 0x40190004);
    EXPECT_EQ(run({row_status_of(10, row_destroy)}), (set_outcome{18, 1}));
    EXPECT_EQ(sent_kinds(), "143");
    EXPECT_EQ(platform.errors_set, (errors{{0x40190004, 200}}));
}

TEST_F(WriteSequence, AManagerThatDiesFailsThePhaseAndKeepsNothing) {
    for (const set_phase death : {RESERVE1_PHASE, RESERVE2_PHASE, ACTION_PHASE, UNDO_PHASE, COMMIT_PHASE}) {
        SCOPED_TRACE(death);
        bool alive = true;
        const auto serve = platform.manager;
        platform.manager = [&](const sent_request &request) {
            return alive ? serve(request) : scripted_reply{UINT32_MAX, ECONNREFUSED, std::nullopt};
        };
        refuse(kind_set, 3, death == UNDO_PHASE ? some_failure : 0);
        set_pdu pdu({name_of(1, "a"), row_status_of(2, row_destroy), row_status_of(99, row_create_and_go),
                     admin_state_of(3, 2)});
        pdu.before = [&](set_phase next) { alive = alive && next != death; };
        EXPECT_EQ(run(pdu).error, death == COMMIT_PHASE ? 0 : 5);
        EXPECT_TRUE(listed(vsanEntry_list).empty());
        EXPECT_TRUE(listed(vsanEntry_undo_list).empty());
        platform.manager = serve;
        platform.vsans.erase(99);
        platform.add_vsan(2);
    }
}

TEST_F(WriteSequence, CreationOfARowWhoseReadFailedEndsInItsDeletion) {
    set_pdu pdu({row_status_of(10, row_create_and_go)});
    answers[{kind_get, 10}] = {UINT32_MAX, ETIMEDOUT, std::nullopt};
    pdu.before = [this](set_phase next) {
        if (next == ACTION_PHASE) {
            answers.clear();
        }
    };
    EXPECT_EQ(run(pdu), (set_outcome{12, 1}));
    expect_requests({lookup(10), lookup(10), deletion_of_new(10)});
}

TEST_F(WriteSequence, AnAnswerWithoutARowIsTakenForARowOfZeroes) {
    answers[{kind_get, 30}] = {};
    const vsan_row zeroes = {30, 0, 0, 0, 0, 0, 0, 0, 0, "", 0};
    EXPECT_EQ(run({row_status_of(30, row_create_and_go)}), (set_outcome{12, 1}));
    expect_requests({lookup(30)});
    EXPECT_EQ(run({row_status_of(30, row_active)}), success);
    expect_requests({lookup(30), lookup(30), creation(zeroes)});
    vsan_row named = zeroes;
    named.name = "new";
    EXPECT_EQ(run({name_of(30, "new")}), success);
    expect_requests({lookup(30), lookup(30), creation(named)});
}

TEST_F(WriteSequence, AnAnswerWithoutARowToANameOfAnotherLengthLeavesNothingStaged) {
    answers[{kind_get, 0}] = {};
    for (const std::vector<oid> &instance : {std::vector<oid>{}, std::vector<oid>{10, 20}, std::vector<oid>{1, 2, 3}}) {
        for (const int64_t status : {row_active, row_destroy}) {
            run({{11, instance, 0x02, as_long(status)}});
            EXPECT_TRUE(listed(vsanEntry_undo_list).empty()) << instance.size() << " arcs";
        }
    }
}

TEST_F(WriteSequence, AnInstanceOfAnotherLengthStandsForVsanZero) {
    const vsan_row zero = created(0);
    for (const std::vector<oid> &instance : {std::vector<oid>{}, std::vector<oid>{10, 20}}) {
        EXPECT_EQ(run({{3, instance, 0x04, {'n'}}}), (set_outcome{18, 1}));
        expect_requests({lookup(0), lookup(0)});
        EXPECT_EQ(run({{11, instance, 0x02, as_long(row_create_and_go)}}), success);
        expect_requests({lookup(0), lookup(0), creation(zero)});
        platform.vsans.erase(0);
    }
}

TEST_F(WriteSequence, AnotherRowThanTheOneAskedForIsNeverTouched) {
    answers[{kind_get, 10}] = {0, 0, row_reply(row(20))};
    for (const varbind &asked : {name_of(10, "new"), row_status_of(10, row_active), row_status_of(10, row_destroy)}) {
        EXPECT_EQ(run({asked}), (set_outcome{18, 1}));
        expect_requests({lookup(10)});
    }
}

TEST_F(WriteSequence, ARestrictedUserChangesNoColumnOutsideTheRole) {
    platform.restrict_to({20});
    for (const varbind &column : {name_of(10, "new"), admin_state_of(10, 2), load_balancing_of(10, 1),
                                  interop_of(10, 4), inorder_of(10, 2), drop_latency_of(10, 1)}) {
        EXPECT_EQ(run({column}), (set_outcome{5, 1})) << int{column.magic};
        expect_requests({lookup(10)});
    }
    EXPECT_EQ(platform.errors_reported.size(), 6u);
    EXPECT_EQ(run({name_of(20, "new"), name_of(10, "new")}), (set_outcome{5, 2}));
    EXPECT_EQ(sent_kinds(), "11");
}

TEST_F(WriteSequence, ARestrictedUserNeitherCreatesNorDestroysOutsideTheRole) {
    platform.restrict_to({20});
    EXPECT_EQ(run({row_status_of(99, row_create_and_go)}), (set_outcome{5, 1}));
    EXPECT_EQ(run({row_status_of(10, row_create_and_go)}), (set_outcome{5, 1})) << "it does not show";
    EXPECT_EQ(run({row_status_of(10, row_destroy)}), (set_outcome{5, 1}));
    expect_requests({lookup(99), lookup(10), lookup(10)});
    EXPECT_EQ(platform.errors_reported.size(), 3u);
}

TEST_F(WriteSequence, ActiveIsNotCheckedAgainstTheRole) {
    platform.restrict_to({20});
    const vsan_row before = row(10);
    EXPECT_EQ(run({row_status_of(10, row_active)}), success);
    expect_requests({lookup(10), change(before)});
    EXPECT_TRUE(platform.errors_reported.empty());
}

} // namespace
