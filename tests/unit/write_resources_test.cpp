// SPDX-License-Identifier: Apache-2.0
// SETs while memory runs out, lists refuse, and with lists that treat a key already
// present in every way that the platform allows: nothing leaks, is released twice or
// stays on a list.

#include "vsan_write_test.h"

namespace {

struct scenario {
    const char *name;
    std::vector<varbind> (*varbinds)();
};

void PrintTo(const scenario &tested, std::ostream *out) {
    *out << tested.name;
}

const scenario scenarios[] = {
    {"Column", [] { return std::vector<varbind>{name_of(10, "new")}; }},
    {"TwoColumns",
     [] {
         return std::vector<varbind>{name_of(10, "new"), admin_state_of(10, 2)};
     }},
    {"TwoVsans",
     [] {
         return std::vector<varbind>{name_of(10, "new"), name_of(20, "new")};
     }},
    {"Creation", [] { return std::vector<varbind>{row_status_of(99, row_create_and_go)}; }},
    {"CreationTwice",
     [] {
         return std::vector<varbind>{row_status_of(99, row_create_and_go), row_status_of(99, row_create_and_go)};
     }},
    {"CreationWithColumns",
     [] {
         return std::vector<varbind>{name_of(99, "new"), inorder_of(99, 1), row_status_of(99, row_create_and_go)};
     }},
    {"CreationBeforeColumns",
     [] {
         return std::vector<varbind>{row_status_of(99, row_create_and_go), name_of(99, "new"), inorder_of(99, 1)};
     }},
    {"CreationOfNineWithAColumn",
     [] {
         return std::vector<varbind>{name_of(9, "new"), row_status_of(9, row_create_and_go)};
     }},
    {"Active", [] { return std::vector<varbind>{row_status_of(10, row_active)}; }},
    {"ActiveTwice",
     [] {
         return std::vector<varbind>{row_status_of(10, row_active), row_status_of(10, row_active)};
     }},
    {"ActiveAndColumn",
     [] {
         return std::vector<varbind>{row_status_of(10, row_active), name_of(10, "new")};
     }},
    {"ColumnAndActive",
     [] {
         return std::vector<varbind>{name_of(10, "new"), row_status_of(10, row_active)};
     }},
    {"ColumnAndDestroy",
     [] {
         return std::vector<varbind>{name_of(10, "new"), row_status_of(10, row_destroy)};
     }},
    {"DestroyAndColumn",
     [] {
         return std::vector<varbind>{row_status_of(10, row_destroy), name_of(10, "new")};
     }},
    {"CreationAndDestroy",
     [] {
         return std::vector<varbind>{row_status_of(99, row_create_and_go), row_status_of(99, row_destroy)};
     }},
    {"Everything",
     [] {
         return std::vector<varbind>{name_of(10, "new"),
                                     row_status_of(99, row_create_and_go),
                                     interop_of(20, 0),
                                     drop_latency_of(10, 1),
                                     row_status_of(20, row_active),
                                     inorder_of(99, 2),
                                     row_status_of(10, row_destroy)};
     }},
};

class WriteResources : public VsanWriteTest, public testing::WithParamInterface<scenario> {
  protected:
    // The switch as each run finds it.
    static void start_over() {
        platform.vsans.clear();
        platform.add_vsans({1, 10, 20});
        platform.requests.clear();
        platform.errors_set.clear();
    }

    // The scenario's PDU, from which nothing may be left.
    static set_outcome run() {
        start_over();
        set_pdu pdu(GetParam().varbinds());
        const set_outcome outcome = pdu.run();
        for (const int error : pdu.later_errors) {
            EXPECT_EQ(error, 0);
        }
        expect_nothing_left();
        return outcome;
    }

    static void expect_nothing_left() {
        EXPECT_TRUE(listed(vsanEntry_list).empty());
        EXPECT_TRUE(listed(vsanEntry_undo_list).empty());
        EXPECT_EQ(agent.records_held.size(), 0u);
        EXPECT_EQ(platform.replies_held.size(), 0u);
    }

    static void expect_refused_for_want_of_resources(const set_outcome &outcome) {
        EXPECT_EQ(outcome.error, 5);
        EXPECT_EQ(platform.errors_set, (errors{{1, 584}}));
        EXPECT_EQ(sent_kinds().find_first_not_of('1'), std::string::npos) << "reads alone: " << sent_kinds();
    }
};

constexpr unsigned more_than_enough = 1000;

TEST_P(WriteResources, EachAllocationThatFailsIsAGeneralErrorThatLeavesNothing) {
    agent.allocations_before_failure = more_than_enough;
    run();
    const unsigned allocations = more_than_enough - *agent.allocations_before_failure;
    EXPECT_GT(allocations, 0u);
    for (unsigned failing = 0; failing < allocations; ++failing) {
        SCOPED_TRACE(failing);
        agent.allocations_before_failure = failing;
        agent.allocations_failed = 0;
        const set_outcome outcome = run();
        EXPECT_EQ(agent.allocations_failed, 1u);
        expect_refused_for_want_of_resources(outcome);
        agent.allocations_before_failure.reset();
    }
}

TEST_P(WriteResources, EachAdditionThatFailsIsAGeneralErrorThatLeavesNothing) {
    platform.add_results.assign(more_than_enough, 1);
    run();
    const size_t additions = more_than_enough - platform.add_results.size();
    EXPECT_GT(additions, 0u);
    for (size_t failing = 0; failing < additions; ++failing) {
        SCOPED_TRACE(failing);
        platform.add_results.assign(failing, 1);
        platform.add_results.push_back(0);
        expect_refused_for_want_of_resources(run());
        EXPECT_TRUE(platform.add_results.empty());
    }
}

TEST_P(WriteResources, EveryReadingOfAPresentKeyGivesTheSameRequests) {
    const set_outcome wanted = run();
    const std::vector<sent_request> requests = platform.requests;
    for (const present_key reading : {present_key::is_refused, present_key::is_replaced, present_key::is_doubled}) {
        platform.list_reading = reading;
        EXPECT_EQ(run(), wanted);
        ASSERT_EQ(platform.requests.size(), requests.size());
        for (size_t i = 0; i < requests.size(); ++i) {
            EXPECT_EQ(platform.requests[i].kind, requests[i].kind);
            EXPECT_EQ(platform.requests[i].payload, requests[i].payload);
        }
        EXPECT_TRUE(platform.errors_set.empty()) << "no addition was refused";
    }
}

TEST_P(WriteResources, EachRequestThatFailsLeavesNothingWhateverTheReading) {
    run();
    const size_t requests = platform.requests.size();
    const auto serve = platform.manager;
    for (const present_key reading : {present_key::is_refused, present_key::is_replaced, present_key::is_doubled}) {
        platform.list_reading = reading;
        for (size_t failing = 0; failing < requests; ++failing) {
            for (const bool ever_after : {false, true}) {
                size_t number = 0;
                platform.manager = [&](const sent_request &request) {
                    const size_t this_one = number++;
                    if (this_one == failing || (ever_after && this_one > failing)) {
                        return scripted_reply{some_failure, 0, std::nullopt};
                    }
                    return serve(request);
                };
                SCOPED_TRACE(failing);
                run();
            }
        }
    }
    platform.manager = serve;
}

TEST_P(WriteResources, EachReplyThatIsShortOrMissingLeavesNothing) {
    run();
    const size_t requests = platform.requests.size();
    const auto serve = platform.manager;
    const std::optional<bytes> replies[] = {std::nullopt, bytes{}, bytes(4), bytes(2627)};
    for (const std::optional<bytes> &reply : replies) {
        for (size_t failing = 0; failing < requests; ++failing) {
            size_t number = 0;
            platform.manager = [&](const sent_request &request) {
                return number++ == failing && request.kind == kind_get ? scripted_reply{0, 0, reply} : serve(request);
            };
            SCOPED_TRACE(failing);
            run();
        }
    }
    platform.manager = serve;
}

INSTANTIATE_TEST_SUITE_P(All, WriteResources, testing::ValuesIn(scenarios),
                         [](const auto &tested) { return std::string(tested.param.name); });

class WriteShortage : public VsanWriteTest {
  protected:
    WriteShortage() { platform.add_vsans({10}); }
};

TEST_F(WriteShortage, AnUndoCopyThatCannotBeListedIsReleasedAtOnce) {
    set_pdu pdu({name_of(10, "new")});
    pdu.phase(RESERVE1_PHASE);
    platform.add_results = {0};
    EXPECT_EQ(pdu.phase(RESERVE2_PHASE).error, 5);
    EXPECT_TRACED(100, "handle_onepdu_undo_vsanEntryList(#) No Mmory! \n");
    EXPECT_EQ(agent.records_held.size(), 0u);
    EXPECT_EQ(platform.errors_set, (errors{{1, 584}}));
}

TEST_F(WriteShortage, APendingRecordThatCannotBeListedLeavesTheUndoCopyForFree) {
    set_pdu pdu({name_of(10, "new")});
    pdu.phase(RESERVE1_PHASE);
    platform.add_results = {1, 0};
    EXPECT_EQ(pdu.phase(RESERVE2_PHASE).error, 5);
    EXPECT_TRUE(listed(vsanEntry_list).empty());
    EXPECT_EQ(listed(vsanEntry_undo_list), (std::vector<int64_t>{10}));
    EXPECT_EQ(platform.errors_set, (errors{{1, 584}}));
    EXPECT_EQ(pdu.phase(FREE_PHASE).error, 0);
}

TEST_F(WriteShortage, TheRowStatusTracesACopyThatCannotBeListed) {
    set_pdu pdu({row_status_of(10, row_destroy)});
    platform.add_results = {0};
    EXPECT_EQ(pdu.phase(RESERVE1_PHASE).error, 5);
    EXPECT_TRACED(100, "set_vsanRowStatus(#) undo_list 10 \n");
    EXPECT_NOT_TRACED(101, "set_vsanRowStatus(#) indexobj_Add to undo_list \n");
    EXPECT_EQ(agent.records_held.size(), 0u);
}

TEST_F(WriteShortage, NoMemoryIsAGeneralErrorInReserve1ForTheRowStatusAndInReserve2ForAnotherColumn) {
    for (const varbind &row_status : {row_status_of(99, row_create_and_go), row_status_of(10, row_destroy)}) {
        agent.allocations_before_failure = 0;
        EXPECT_EQ(set_pdu({row_status}).phase(RESERVE1_PHASE).error, 5);
    }
    set_pdu column({name_of(10, "new")});
    EXPECT_EQ(column.phase(RESERVE1_PHASE).error, 0);
    agent.allocations_before_failure = 0;
    EXPECT_EQ(column.phase(RESERVE2_PHASE).error, 5);
    EXPECT_EQ(platform.errors_set, (errors{{1, 584}, {1, 584}, {1, 584}}));
}

} // namespace
