// SPDX-License-Identifier: Apache-2.0
// Start and stop: which calls in which order, and what is printed.

#include "module_test.h"

namespace {

class Lifecycle : public testing::Test {
  protected:
    void SetUp() override {
        platform.reset();
        agent.reset();
    }

    // The lists of the reference may still exist after a test of the start alone.
    void TearDown() override {
        stop();
        EXPECT_TRUE(platform.requests.empty());
        platform.reset();
        agent.reset();
    }

    static std::string start() {
        testing::internal::CaptureStdout();
        init_vsan_mib();
        fflush(stdout);
        return testing::internal::GetCapturedStdout();
    }

    static std::string stop() {
        testing::internal::CaptureStdout();
        deinit_vsan_mib();
        fflush(stdout);
        return testing::internal::GetCapturedStdout();
    }

    static std::string destroyed(const indxobj_list &list) {
        char text[80];
        snprintf(text, sizeof text, "indxobj_destroy %p", static_cast<const void *>(&list));
        return text;
    }

    static oid_name root() { return {1, 3, 6, 1, 4, 1, EXPECTED_VENDOR_PEN, 9, 282}; }

    // The full names of all rows that are registered.
    static std::vector<oid_name> row_names() {
        std::vector<oid_name> names;
        for (const variable7 &row : agent.registrations.at(0).rows) {
            oid_name name = root();
            name.insert(name.end(), row.name, row.name + row.namelen);
            names.push_back(name);
        }
        return names;
    }

    // The root first, as the agent's entry asks, then each row by its full name.
    static void expect_everything_unregistered() {
        ASSERT_EQ(agent.unregistered.size(), 29u);
        EXPECT_EQ(agent.unregistered.front(), root());
        std::vector<oid_name> rows(agent.unregistered.begin() + 1, agent.unregistered.end());
        std::vector<oid_name> wanted = row_names();
        std::sort(rows.begin(), rows.end());
        std::sort(wanted.begin(), wanted.end());
        EXPECT_EQ(rows, wanted);
    }
};

const std::vector<std::string> start_calls = {"register_mib", "register_for_notification 145",
                                              "register_for_notification 102", "indxobj_create", "indxobj_create"};

TEST_F(Lifecycle, StartRegistersThenSubscribesThenCreatesTheLists) {
    start();
    EXPECT_EQ(platform.journal, start_calls);
    EXPECT_TRUE(agent.unregistered.empty());
}

TEST_F(Lifecycle, StartSubscribesEachEventClassWithItsOwnCallback) {
    start();
    ASSERT_EQ(platform.notifications.size(), 2u);
    EXPECT_EQ(platform.notifications.at(145), handle_notifications);
    EXPECT_EQ(platform.notifications.at(102), handle_port_memb_change_notifications);
}

TEST_F(Lifecycle, StartCreatesTheUndoListFirstAndBothKeyedByVsan) {
    start();
    ASSERT_EQ(platform.lists_created.size(), 2u);
    EXPECT_EQ(platform.lists_created[0].list, &vsanEntry_undo_list);
    EXPECT_EQ(platform.lists_created[1].list, &vsanEntry_list);
    for (const list_creation &made : platform.lists_created) {
        EXPECT_EQ(made.base, 0);
        EXPECT_EQ(made.unique, 1);
        EXPECT_EQ(made.comparator, vsanEntry_comp);
        EXPECT_EQ(made.ordered, 1);
    }
}

TEST_F(Lifecycle, StartAndStopPrintOnEntryAndOnExit) {
    EXPECT_EQ(start(), "DEBUG : ENTER init_vsan_mib \nDEBUG : EXIT init_vsan_mib \n");
    EXPECT_EQ(stop(), "DEBUG : ENTER deinit_vsan_mib \nDEBUG : EXIT deinit_vsan_mib \n");
}

TEST_F(Lifecycle, StopUndoesTheStartInReverse) {
    start();
    platform.journal.clear();
    stop();
    std::vector<std::string> wanted(29, "unregister_mib");
    wanted.insert(wanted.end(), {destroyed(vsanEntry_list), destroyed(vsanEntry_undo_list),
                                 "unregister_for_notification 145", "unregister_for_notification 102"});
    EXPECT_EQ(platform.journal, wanted);
    EXPECT_TRUE(platform.notifications.empty());
}

TEST_F(Lifecycle, StopUnregistersTheRootAndThenEveryRowByItsFullName) {
    start();
    stop();
    expect_everything_unregistered();
}

TEST_F(Lifecycle, FailureOfTheFirstListStopsBeforeTheSecondAndUnregisters) {
    for (const int result : {0, 1, -1, 3}) {
        SCOPED_TRACE(result);
        SetUp();
        platform.list_results = {result};
        EXPECT_EQ(start(), "DEBUG : ENTER init_vsan_mib \n");
        ASSERT_EQ(platform.lists_created.size(), 1u);
        EXPECT_EQ(platform.lists_created[0].list, &vsanEntry_undo_list);
        expect_everything_unregistered();
        EXPECT_EQ(platform.notifications.size(), 2u) << "the subscriptions stay";
        stop();
    }
}

TEST_F(Lifecycle, FailureOfTheSecondListUnregistersAndKeepsTheFirst) {
    platform.list_results = {INDXOBJ_CREATED, 1};
    EXPECT_EQ(start(), "DEBUG : ENTER init_vsan_mib \n");
    EXPECT_EQ(platform.lists_created.size(), 2u);
    expect_everything_unregistered();
    EXPECT_TRUE(platform.journal_of("indxobj_destroy").empty());
    EXPECT_TRUE(platform.journal_of("unregister_for_notification").empty());
    EXPECT_EQ(platform.notifications.size(), 2u) << "the subscriptions stay";
}

TEST_F(Lifecycle, FailedRegistrationDoesNotStopTheStart) {
    agent.register_result = MIB_REGISTRATION_FAILED;
    EXPECT_EQ(start(), "DEBUG : ENTER init_vsan_mib \nDEBUG : EXIT init_vsan_mib \n");
    EXPECT_EQ(platform.journal, start_calls);
    EXPECT_TRUE(agent.debug.empty()) << "nothing is reported while debugging is off";
}

TEST_F(Lifecycle, FailedRegistrationIsReportedAsTheAgentDoesWhenDebuggingIsOn) {
    for (const int result : {MIB_REGISTRATION_FAILED, MIB_DUPLICATE_REGISTRATION}) {
        SetUp();
        agent.register_result = result;
        agent.debugging = true;
        start();
        ASSERT_EQ(agent.debug.size(), 4u);
        EXPECT_TRUE(is_trace(agent.debug[0], "debugmsgtoken trace init_vsan_mib(): vsan_mib_talvex, #:\n"))
            << agent.debug[0];
        EXPECT_TRUE(is_trace(agent.debug[1], "debugmsg trace init_vsan_mib(): vsan_mib_talvex, #:\n"))
            << agent.debug[1];
        EXPECT_EQ(agent.debug[2], "debugmsgtoken register_mib vsan_mib registration failed\n");
        EXPECT_EQ(agent.debug[3], "debugmsg register_mib vsan_mib registration failed\n");
        stop();
    }
}

TEST_F(Lifecycle, SuccessfulRegistrationIsNotReported) {
    agent.debugging = true;
    start();
    EXPECT_TRUE(agent.debug.empty());
}

TEST_F(Lifecycle, SecondStartIsNotGuardedAgainst) {
    start();
    platform.journal.clear();
    EXPECT_EQ(start(), "DEBUG : ENTER init_vsan_mib \nDEBUG : EXIT init_vsan_mib \n");
    EXPECT_EQ(platform.journal, start_calls);
    EXPECT_EQ(platform.notifications.size(), 2u);
}

TEST_F(Lifecycle, StopIsHarmlessWithoutAStartAndTwice) {
    EXPECT_EQ(stop(), stop());
    start();
    stop();
    stop();
    EXPECT_EQ(vsanEntry_list.impl, nullptr);
    EXPECT_EQ(vsanEntry_undo_list.impl, nullptr);
}

TEST_F(Lifecycle, StartsAgainAfterAStop) {
    start();
    stop();
    platform.journal.clear();
    start();
    EXPECT_EQ(platform.journal, start_calls);
    EXPECT_NE(vsanEntry_list.impl, nullptr);
}

} // namespace
