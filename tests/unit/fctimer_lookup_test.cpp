// SPDX-License-Identifier: Apache-2.0
// One timer of one VSAN: which kind of request it takes, the request, and the reply.

#include "fctimer_test.h"

#include <cerrno>
#include <cstring>

namespace {

class FcTimerLookup : public FcTimerTest {
  protected:
    registered_object column{RATOV};
    const oid_name name = column.instance({20});

    static const std::string &prefix() {
        static const std::string text = "header_vsanFcTimerEntry : ";
        return text;
    }
};

TEST_F(FcTimerLookup, KindFollowsServiceShowRunModeAndPurpose) {
    for (const uint32_t enabled : {0u, 1u, 7u}) {
        for (const uint32_t show_run : {0u, 1u, 9u}) {
            for (const int for_set : {0, 1, -1}) {
                for (const int exact : {0, 1}) {
                    SCOPED_TRACE(testing::Message() << "enabled " << enabled << " show-run " << show_run << " for set "
                                                    << for_set << " exact " << exact);
                    platform.requests.clear();
                    platform.tdx_features.clear();
                    forget_traces();
                    platform.tdx_enabled = enabled;
                    platform.tdx_show_run = show_run;
                    const bool tdx = enabled != 0 && (for_set != 0 || show_run == 0);
                    EXPECT_EQ(look_up(column, name, exact, for_set).status, 0u);
                    EXPECT_EQ(timer_kinds(), std::vector<uint32_t>{tdx ? 5u : 1u});
                    EXPECT_EQ(platform.tdx_features, (std::vector<std::string>{"fctimer", "fctimer"}));
                    EXPECT_EQ(traced(101, "header_vsanFcTimerEntry msg_type = TDX_GET_REQ \n"),
                              tdx && for_set == 0 ? 1 : 0)
                        << all_traces();
                    EXPECT_EQ(traced(101, "header_vsanFcTimerEntry get_for_set msg_type = TDX_GET_REQ \n"),
                              tdx && for_set != 0 ? 1 : 0)
                        << all_traces();
                }
            }
        }
    }
}

TEST_F(FcTimerLookup, TheServiceIsAskedFirstOfAll) {
    const std::vector<std::string> asked = {"tdx enabled", "tdx show-run mode"};
    const auto calls_of = [&](const oid_name &wanted, int exact) {
        platform.journal.clear();
        look_up(column, wanted, exact, 0);
        return platform.journal;
    };
    EXPECT_EQ(calls_of(name, 1), (std::vector<std::string>{asked[0], asked[1], "request 127 kind 1"}));
    EXPECT_EQ(calls_of(name, 0),
              (std::vector<std::string>{asked[0], asked[1], "request 149 kind 2", "request 127 kind 1"}));
    EXPECT_EQ(calls_of(column.instance({0}), 1), asked) << "for a VSAN that cannot be, too";
    EXPECT_EQ(calls_of(column.instance({4096}), 0), asked);
}

TEST_F(FcTimerLookup, AServiceThatCannotBeAskedCountsAsNotEnabled) {
    platform.tdx_enabled = 1;
    for (const uint32_t status : {some_failure, UINT32_MAX}) {
        platform.tdx_enabled_status = status;
        EXPECT_EQ(get(RATOV, {20}).number(), value_of(1, 20, 8));
        EXPECT_EQ(look_up(column, name, 1, 1).record.value, value_of(1, 20, 8));
    }
}

TEST_F(FcTimerLookup, AnUnknownShowRunModeCountsAsOff) {
    platform.tdx_enabled = 1;
    platform.tdx_show_run = 1;
    for (const uint32_t status : {some_failure, UINT32_MAX}) {
        platform.tdx_show_run_status = status;
        EXPECT_EQ(get(RATOV, {20}).number(), value_of(5, 20, 8));
    }
}

TEST_F(FcTimerLookup, EachColumnAsksForItsTimerInFifteenBytes) {
    platform.user = "alice";
    platform.session = 77;
    for (const uint32_t enabled : {0u, 1u}) {
        platform.tdx_enabled = enabled;
        for (const auto &[magic, key] : timer_of_column) {
            SCOPED_TRACE(int{magic});
            platform.requests.clear();
            EXPECT_TRUE(get(magic, {4095}).present);
            ASSERT_EQ(platform.requests.size(), 1u) << "GET costs one request";
            const sent_request &request = platform.requests[0];
            expect_envelope_of_read(request, 127, 15);
            EXPECT_EQ(request.payload, (bytes{0, 0, 0, static_cast<uint8_t>(key), 0, 0, 0, 0, 1, 0, 0, 0, 15, 255, 0}));
        }
    }
    EXPECT_TRUE(platform.heartbeats.empty());
}

TEST_F(FcTimerLookup, GetNextCostsTwoRequestsAndEveryReadAnew) {
    for (int i = 1; i <= 2; ++i) {
        EXPECT_EQ(get_next(RATOV, {20}).number(), value_of(1, 30, 8));
        EXPECT_EQ(platform.requests.size(), 2u * static_cast<size_t>(i));
    }
    EXPECT_EQ(timers_asked(), (std::vector<uint32_t>{30, 30}));
}

TEST_F(FcTimerLookup, TheWholeReplyIsTakenAndItsThreeWordsConverted) {
    timer_answers = {{0, 0, timer_record(0x01020304, 0xF0E0D0C0, 9, 8, 0x00000A0B, 7)}};
    const lookup_result result = look_up(column, name, 1);
    EXPECT_EQ(result.status, 0u);
    EXPECT_EQ(result.record.key, 0x01020304u);
    EXPECT_EQ(result.record.value, 0xF0E0D0C0u);
    EXPECT_EQ(result.record.per_vsan, 9);
    EXPECT_EQ(result.record.flag, 8);
    EXPECT_EQ(result.record.vsan, 0x0A0Bu);
    EXPECT_EQ(result.record.tail, 7);
    EXPECT_EQ(result.name, column.instance({0x0A0B})) << "the name is that of the VSAN that came back";
}

TEST_F(FcTimerLookup, ALongerReplyIsFine) {
    bytes reply = timer_record(8, 4711, 1, 0, 20, 0);
    reply.resize(200, 0xEE);
    timer_answers = {{0, 0, reply}};
    EXPECT_EQ(get(RATOV, {20}).number(), 4711);
}

TEST_F(FcTimerLookup, EveryShortReplyIsRefusedAndReleased) {
    for (size_t length = 0; length < 15; ++length) {
        SCOPED_TRACE(length);
        bytes cut = timer_record(8, 4711, 1, 0, 20, 0);
        cut.resize(length);
        timer_answers = {{0, 0, cut}, {0, 0, cut}, {0, 0, cut}};
        EXPECT_EQ(look_up(column, name, 1).status, no_instance);
        const read_answer answer = column.get(name);
        EXPECT_FALSE(answer.present);
        EXPECT_EQ(answer.name, name);
        EXPECT_FALSE(column.get_next(name).present);
        EXPECT_TRUE(platform.replies_held.empty());
    }
}

TEST_F(FcTimerLookup, SuccessWithoutAReplyKeepsTheNameAndAnswersZero) {
    timer_answers = {{0, 0, std::nullopt}, {0, 0, std::nullopt}};
    const lookup_result result = look_up(column, name, 1);
    EXPECT_EQ(result.status, 0u);
    EXPECT_EQ(result.name, name);
    EXPECT_EQ(result.record.vsan, 20u);
    EXPECT_EQ(result.record.key, 8u) << "in host order";
    EXPECT_EQ(get(RATOV, {20}).number(), 0);
}

TEST_F(FcTimerLookup, AFailureKeepsTheNameReleasesTheReplyAndReturnsItsStatus) {
    for (const uint32_t status : {0x40190001u, no_such_attribute, tdx_refused, some_failure, UINT32_MAX}) {
        SCOPED_TRACE(status);
        for (const auto &data : {std::optional<bytes>(), std::optional<bytes>(timer_record(8, 1, 1, 0, 20, 0))}) {
            timer_answers = {{status, 0, data}, {status, 0, data}, {status, 0, data}};
            const lookup_result result = look_up(column, name, 1);
            EXPECT_EQ(result.status, status);
            EXPECT_EQ(result.name, name);
            EXPECT_FALSE(column.get(name).present);
            const read_answer next = column.get_next(name);
            EXPECT_FALSE(next.present);
            EXPECT_EQ(next.name, name);
            EXPECT_TRUE(timer_answers.empty());
            EXPECT_TRUE(platform.replies_held.empty());
        }
    }
    EXPECT_TRUE(platform.errors_set.empty());
    EXPECT_TRUE(agent.details.empty());
}

TEST_F(FcTimerLookup, ALookupIsTracedWhole) {
    look_up(column, name, 1);
    expect_history({{101, prefix() + "calling timer_instance() "},
                    {101, "get_vsanFcTimerEntry_instance : Entered "},
                    {101, "get_vsanFcTimerEntry_instance : *length = 15 , vp_namelen = 14 "},
                    {101, "get_vsanFcTimerEntry_instance : Exit with success "},
                    {101, prefix() + "done calling timer_instance() "},
                    {101, prefix() + "Sending  GET request to VSAN mgr vsan_id = 20) timer_type = 8\n"},
                    {101, prefix() + "Received  GET response from VSAN mgr  vsanIndex = 20 Timer_type  = 8, "
                                     "timer_value =1002008 \n"}});
    forget_traces();
    platform.tdx_enabled = 1;
    look_up(column, name, 1);
    expect_history({{101, prefix() + "calling timer_instance() "},
                    {101, "get_vsanFcTimerEntry_instance : Entered "},
                    {101, "get_vsanFcTimerEntry_instance : *length = 15 , vp_namelen = 14 "},
                    {101, "get_vsanFcTimerEntry_instance : Exit with success "},
                    {101, prefix() + "done calling timer_instance() "},
                    {101, "header_vsanFcTimerEntry msg_type = TDX_GET_REQ \n"},
                    {101, prefix() + "Sending  TDX_GET_REQ request to VSAN mgr vsan_id = 20) timer_type = 8\n"},
                    {101, prefix() + "Received  TDX_GET_REQ response from VSAN mgr  vsanIndex = 20 Timer_type  = 8, "
                                     "timer_value =5002008 \n"}});
}

TEST_F(FcTimerLookup, AMissingVsanIsTraced) {
    EXPECT_EQ(look_up(column, column.instance({0}), 1).status, no_instance);
    expect_history({{101, prefix() + "calling timer_instance() "},
                    {101, "get_vsanFcTimerEntry_instance : Entered "},
                    {101, "get_vsanFcTimerEntry_instance : *length = 15 , vp_namelen = 14 "},
                    {101, prefix() + "done calling timer_instance() "},
                    {101, prefix() + "return after timer_instance()"}});
}

TEST_F(FcTimerLookup, TheSearchsStatusIsReturned) {
    vsan_answers = {{some_failure, 0, bytes(10)}};
    EXPECT_EQ(look_up(column, name, 0).status, some_failure);
}

TEST_F(FcTimerLookup, AFailureIsTracedByTheKindOfItsRequest) {
    timer_answers = {{some_failure, 0, std::nullopt},
                     {UINT32_MAX, ETIMEDOUT, bytes(3)},
                     {some_failure, 0, std::nullopt},
                     {no_such_attribute, 0, std::nullopt}};
    look_up(column, name, 1);
    EXPECT_TRACED(100,
                  prefix() + "GET request failedfor vsan_id = 20 with error : " + failure_text(some_failure) + "\n");
    look_up(column, name, 1);
    EXPECT_TRACED(100, prefix() + "GET request failedfor vsan_id = 20 with error : " + strerror(ETIMEDOUT) + "\n");
    platform.tdx_enabled = 1;
    look_up(column, name, 1);
    EXPECT_TRACED(100, prefix() + "GETNEXT request failedfor vsan_id = 20 with error : " + failure_text(some_failure) +
                           "\n");
    platform.tdx_show_run = 1;
    look_up(column, name, 1);
    EXPECT_TRACED(100, prefix() + "GET request failedfor vsan_id = 20 with error : " + failure_text(no_such_attribute) +
                           "\n");
}

TEST_F(FcTimerLookup, AReadOfTheServiceThatItRefusesIsNotSentAgain) {
    platform.tdx_enabled = 1;
    timer_answers = {{tdx_refused, 0, std::nullopt}};
    EXPECT_EQ(look_up(column, name, 1).status, tdx_refused);
    EXPECT_EQ(timer_kinds(), std::vector<uint32_t>{5});
    EXPECT_TRACED(100,
                  prefix() + "GETNEXT request failedfor vsan_id = 20 with error : " + failure_text(tdx_refused) + "\n");
}

TEST_F(FcTimerLookup, ForASetItIsSentOnceMoreToTheManager) {
    platform.tdx_enabled = 1;
    platform.tdx_show_run = 1;
    for (const auto &data : {std::optional<bytes>(), std::optional<bytes>(timer_record(8, 1, 1, 0, 20, 0))}) {
        platform.requests.clear();
        forget_traces();
        timer_answers = {{tdx_refused, 0, data}};
        const lookup_result result = look_up(column, name, 1, 1);
        EXPECT_EQ(result.status, 0u);
        EXPECT_EQ(result.record.value, value_of(1, 20, 8));
        EXPECT_EQ(timer_kinds(), (std::vector<uint32_t>{5, 1}));
        EXPECT_EQ(platform.requests[1].payload, platform.requests[0].payload) << "the same bytes";
        EXPECT_EQ(platform.requests[1].length, 15u);
        EXPECT_EQ(platform.requests[1].wait_class, 4u);
        EXPECT_TRUE(platform.replies_held.empty());
        EXPECT_TRACED(101, "header_vsanFcTimerEntry Re-sending with GET_REQ \n");
    }
}

TEST_F(FcTimerLookup, TheStatusOfTheSecondRequestReplacesTheFirst) {
    platform.tdx_enabled = 1;
    for (const uint32_t second : {tdx_refused, some_failure}) {
        platform.requests.clear();
        timer_answers = {{tdx_refused, 0, std::nullopt}, {second, 0, bytes(15)}};
        EXPECT_EQ(look_up(column, name, 1, 1).status, second);
        EXPECT_EQ(timer_kinds(), (std::vector<uint32_t>{5, 1})) << "no third request";
        EXPECT_TRACED(100, prefix() + "GET request failedfor vsan_id = 20 with error : " + failure_text(second) + "\n");
    }
}

TEST_F(FcTimerLookup, ForASetOnlyThatStatusOfTheServiceIsSentAgain) {
    timer_answers = {{tdx_refused, 0, std::nullopt}, {some_failure, 0, std::nullopt}};
    EXPECT_EQ(look_up(column, name, 1, 1).status, tdx_refused) << "the manager's own refusal stands";
    platform.tdx_enabled = 1;
    EXPECT_EQ(look_up(column, name, 1, 1).status, some_failure);
    EXPECT_EQ(timer_kinds(), (std::vector<uint32_t>{1, 5}));
}

} // namespace
