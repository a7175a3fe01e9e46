// SPDX-License-Identifier: Apache-2.0
// VSANs that have no value at the distribution service are passed over, by GET too.

#include "fctimer_test.h"

#include <pthread.h>

namespace {

class FcTimerSkip : public FcTimerTest {
  protected:
    FcTimerSkip() { platform.tdx_enabled = 1; }

    registered_object column{RATOV};
};

// Runs a function on a stack far too small for one frame a VSAN.
template <class function> void on_a_small_stack(function run) {
    pthread_attr_t attributes;
    pthread_t thread;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, 256 * 1024), 0);
    ASSERT_EQ(pthread_create(
                  &thread, &attributes,
                  [](void *argument) -> void * {
                      (*static_cast<function *>(argument))();
                      return nullptr;
                  },
                  &run),
              0);
    EXPECT_EQ(pthread_join(thread, nullptr), 0);
    pthread_attr_destroy(&attributes);
}

TEST_F(FcTimerSkip, GetOfAVsanWithoutAValueAnswersWithTheNextThatHasOne) {
    without_value = {20};
    const read_answer answer = column.get(column.instance({20}));
    EXPECT_EQ(answer.number(), value_of(5, 30, 8));
    EXPECT_EQ(answer.name, column.instance({30}));
    EXPECT_EQ(timers_asked(), (std::vector<uint32_t>{20, 30}));
    EXPECT_EQ(timer_kinds(), (std::vector<uint32_t>{5, 5}));
    EXPECT_EQ(starts_asked(), std::vector<int64_t>{20});
    EXPECT_TRACED(101, "header_vsanFcTimerEntry : attr not found for vsan-id : 20 ");
}

TEST_F(FcTimerSkip, GetNextPassesOverAllOfThem) {
    without_value = {2, 20, 30};
    const read_answer answer = column.get_next(column.instance({1}));
    EXPECT_EQ(answer.number(), value_of(5, 40, 8));
    EXPECT_EQ(answer.name, column.instance({40}));
    EXPECT_EQ(timers_asked(), (std::vector<uint32_t>{2, 20, 30, 40}));
    EXPECT_EQ(starts_asked(), (std::vector<int64_t>{1, 2, 20, 30}));
}

TEST_F(FcTimerSkip, EveryColumnPassesOver) {
    without_value = {20};
    for (const auto &[magic, key] : timer_of_column) {
        registered_object object(magic);
        EXPECT_EQ(object.get(object.instance({20})).name, object.instance({30})) << int{magic};
        EXPECT_EQ(get_word(platform.requests.back().payload, 0), key);
    }
}

TEST_F(FcTimerSkip, AVsanThatDoesNotExistIsPassedOverToo) {
    without_value = {25};
    EXPECT_EQ(column.get(column.instance({25})).name, column.instance({30}));
}

TEST_F(FcTimerSkip, APlainGetOfThatStatusIsAFailure) {
    for (const bool show_run : {false, true}) {
        platform.requests.clear();
        platform.tdx_enabled = show_run ? 1 : 0;
        platform.tdx_show_run = show_run ? 1 : 0;
        timer_answers = {{no_such_attribute, 0, std::nullopt}};
        const lookup_result result = look_up(column, column.instance({20}), 1);
        EXPECT_EQ(result.status, no_such_attribute);
        EXPECT_EQ(result.name, column.instance({20}));
        EXPECT_EQ(platform.requests.size(), 1u);
    }
    EXPECT_NOT_TRACED(101, "header_vsanFcTimerEntry : attr not found for vsan-id : 20 ");
}

TEST_F(FcTimerSkip, AReplyThatComesWithThatStatusIsReleased) {
    timer_answers = {{no_such_attribute, 0, timer_record(8, 1, 1, 0, 20, 0)}, {no_such_attribute, 0, bytes(3)}};
    EXPECT_EQ(column.get(column.instance({20})).name, column.instance({40}));
    EXPECT_TRUE(platform.replies_held.empty());
}

TEST_F(FcTimerSkip, TheSearchGoesOnWithTheRequestOfItsPurpose) {
    without_value = {20};
    const lookup_result result = look_up(column, column.instance({20}), 1, 1);
    EXPECT_EQ(result.status, 0u);
    EXPECT_EQ(result.name, column.instance({30}));
    EXPECT_EQ(traced(101, "header_vsanFcTimerEntry get_for_set msg_type = TDX_GET_REQ \n"), 2) << all_traces();
    platform.tdx_show_run = 1;
    platform.requests.clear();
    EXPECT_EQ(look_up(column, column.instance({20}), 1, 1).name, column.instance({30}));
    EXPECT_EQ(timer_kinds(), (std::vector<uint32_t>{5, 5}));
}

TEST_F(FcTimerSkip, AVsanWithoutAValueAtTheManagerItselfIsPassedOverForASetToo) {
    timer_answers = {{tdx_refused, 0, std::nullopt}, {no_such_attribute, 0, std::nullopt}};
    const lookup_result result = look_up(column, column.instance({20}), 1, 1);
    EXPECT_EQ(result.status, 0u);
    EXPECT_EQ(result.name, column.instance({30}));
    EXPECT_EQ(result.record.value, value_of(5, 30, 8));
    EXPECT_EQ(timers_asked(), (std::vector<uint32_t>{20, 20, 30}));
    EXPECT_EQ(timer_kinds(), (std::vector<uint32_t>{5, 1, 5})) << "it stays a question to the service";
    EXPECT_TRACED(101, "header_vsanFcTimerEntry : attr not found for vsan-id : 20 ");
}

TEST_F(FcTimerSkip, AServiceSwitchedOffInTheMiddleIsNoticed) {
    without_value = {20};
    platform.manager = [](const sent_request &request) -> scripted_reply {
        if (request.opcode == 149) {
            return {0, 0, row_reply(platform.vsans.at(30))};
        }
        if (request.kind == 1) {
            return {0, 0, timer_record(8, 4711, 1, 0, 30, 0)};
        }
        platform.tdx_enabled = 0;
        return {no_such_attribute, 0, std::nullopt};
    };
    EXPECT_EQ(column.get(column.instance({20})).number(), 4711);
    EXPECT_EQ(timer_kinds(), (std::vector<uint32_t>{5, 1}));
}

TEST_F(FcTimerSkip, TheSearchIsTraced) {
    without_value = {30};
    look_up(column, column.instance({20}), 0);
    const std::string instance = "get_vsanFcTimerEntry_instance : ";
    const std::string lookup = "header_vsanFcTimerEntry : ";
    const std::string size = "with payload (size = 2632) vsanIndex = ";
    const auto found = [&](const std::string &from, const std::string &next) {
        return std::vector<trace_line>{
            {101, lookup + "calling timer_instance() "},
            {101, instance + "Entered "},
            {101, instance + "*length = 15 , vp_namelen = 14 "},
            {101, instance + "oid comapre matched "},
            {101, instance + "Sending GETNEXT request to VSAN mgr " + size + from + "\n"},
            {101, instance + "Received  GETNEXT Response from VSAN mgr " + size + next + " "},
            {101, instance + "Exit with success "},
            {101, lookup + "done calling timer_instance() "},
            {101, "header_vsanFcTimerEntry msg_type = TDX_GET_REQ \n"},
            {101, lookup + "Sending  TDX_GET_REQ request to VSAN mgr vsan_id = " + next + ") timer_type = 8\n"}};
    };
    std::vector<trace_line> wanted = found("20", "30");
    wanted.push_back({101, lookup + "attr not found for vsan-id : 30 "});
    for (const trace_line &line : found("30", "40")) {
        wanted.push_back(line);
    }
    wanted.push_back({101, lookup + "Received  TDX_GET_REQ response from VSAN mgr  vsanIndex = 40 Timer_type  = 8, "
                                    "timer_value =5004008 \n"});
    expect_history(wanted);
}

TEST_F(FcTimerSkip, ItEndsBehindTheLastVsan) {
    without_value = {30, 40};
    const lookup_result result = look_up(column, column.instance({30}), 1);
    EXPECT_EQ(result.status, no_instance);
    EXPECT_EQ(timers_asked(), (std::vector<uint32_t>{30, 40}));
    EXPECT_EQ(starts_asked(), (std::vector<int64_t>{30, 40}));
    EXPECT_FALSE(column.get(column.instance({30})).present);
    EXPECT_FALSE(column.get_next(column.instance({20})).present);
    without_value = {4095};
    EXPECT_FALSE(column.get(column.instance({4095})).present);
}

TEST_F(FcTimerSkip, ItEndsWhereALaterLookupFails) {
    timer_answers = {{no_such_attribute, 0, std::nullopt}, {some_failure, 0, std::nullopt}};
    EXPECT_EQ(look_up(column, column.instance({20}), 1).status, some_failure);
    timer_answers = {{no_such_attribute, 0, std::nullopt}, {0, 0, bytes(14)}};
    EXPECT_EQ(look_up(column, column.instance({20}), 1).status, no_instance);
    EXPECT_TRUE(platform.replies_held.empty());
}

TEST_F(FcTimerSkip, ItEndsAgainstAManagerThatDoesNotAdvance) {
    without_value = {2, 20, 30};
    for (const uint32_t stuck : {2u, 20u}) {
        platform.requests.clear();
        vsan_row row;
        row.index = stuck;
        vsan_answers = {{0, 0, row_reply(row)}, {0, 0, row_reply(row)}, {0, 0, row_reply(row)}};
        EXPECT_EQ(look_up(column, column.instance({20}), 1).status, no_instance);
        EXPECT_EQ(timers_asked(), std::vector<uint32_t>{20});
        EXPECT_EQ(vsan_answers.size(), 2u);
        EXPECT_FALSE(column.get(column.instance({20})).present);
    }
}

TEST_F(FcTimerSkip, ItEndsAgainstAManagerThatGoesInCircles) {
    without_value = {20, 30};
    vsan_row high;
    high.index = 30;
    vsan_row low;
    low.index = 20;
    vsan_answers = {{0, 0, row_reply(high)}, {0, 0, row_reply(low)}, {0, 0, row_reply(high)}};
    EXPECT_FALSE(column.get(column.instance({20})).present);
    EXPECT_EQ(vsan_answers.size(), 1u);
}

TEST_F(FcTimerSkip, FourThousandAndNinetyFiveVsansWithoutAValueNeedNoDeepStack) {
    platform.vsans.clear();
    for (uint32_t vsan = 1; vsan <= 4095; ++vsan) {
        platform.add_vsan(vsan);
        without_value.insert(vsan);
    }
    platform.history_unwanted = platform.debug_unwanted = {101, 100};
    on_a_small_stack([this] { EXPECT_FALSE(column.get_next(column.name()).present); });
    std::vector<uint32_t> all;
    for (uint32_t vsan = 1; vsan <= 4095; ++vsan) {
        all.push_back(vsan);
    }
    EXPECT_EQ(timers_asked(), all) << "each once";

    platform.requests.clear();
    platform.journal.clear();
    without_value.erase(4095);
    on_a_small_stack([this] {
        const read_answer answer = column.get(column.instance({1}));
        EXPECT_EQ(answer.name, column.instance({4095}));
        EXPECT_EQ(answer.number(), value_of(5, 4095, 8));
    });
    EXPECT_EQ(timers_asked(), all);
}

} // namespace
