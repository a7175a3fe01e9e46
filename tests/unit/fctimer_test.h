// SPDX-License-Identifier: Apache-2.0
// The fixture of the timer table's tests: a switch with some VSANs, a value for each
// timer at the manager and another at the distribution service.
#ifndef FCTIMER_TEST_H
#define FCTIMER_TEST_H

#include <algorithm>
#include <set>
#include <utility>
#include <vector>

#include "module_test.h"

// The table's columns, by magic.
constexpr uint8_t FORCE_FLAG = 38;
constexpr uint8_t RATOV = 39;
constexpr uint8_t EDTOV = 40;
constexpr uint8_t DSTOV = 41;
constexpr uint8_t FSTOV = 42;

// Which timer a column shows.
constexpr std::pair<uint8_t, uint32_t> timer_of_column[] = {
    {FORCE_FLAG, 0}, {RATOV, 8}, {EDTOV, 7}, {DSTOV, 9}, {FSTOV, 10}};

constexpr uint32_t no_such_attribute = 0x40190002u;
constexpr uint32_t tdx_refused = 0x40190028u;
constexpr uint32_t no_instance = 0x40490002u;

class FcTimerTest : public ModuleTest {
  protected:
    // The force flags live as long as the process; every test starts with none.
    FcTimerTest() {
        std::fill(std::begin(vsanFcTimerForceFlags), std::end(vsanFcTimerForceFlags), uint8_t{0});
        platform.add_vsans({1, 2, 20, 30, 40});
        platform.manager = [this](const sent_request &request) { return serve(request); };
    }

    // The value of a timer at the manager (kind 1) and at the service (kind 5).
    static uint32_t value_of(uint32_t kind, uint32_t vsan, uint32_t key) { return kind * 1000000 + vsan * 100 + key; }

    // VSANs that have no value at the service.
    std::set<uint32_t> without_value;

    // Answers to the next timer requests, instead of values.
    std::deque<scripted_reply> timer_answers;

    // Answers to the next requests for a VSAN, instead of the switch's.
    std::deque<scripted_reply> vsan_answers;

    // The VSANs whose timer was asked for, and those that a search started from.
    static std::vector<uint32_t> timers_asked() {
        std::vector<uint32_t> result;
        for (const sent_request &request : timer_requests()) {
            result.push_back(get_word(request.payload, 10));
        }
        return result;
    }
    static std::vector<int64_t> starts_asked() {
        std::vector<int64_t> result;
        for (const sent_request &request : platform.requests) {
            if (request.opcode == 149) {
                result.push_back(request.vsan());
            }
        }
        return result;
    }
    static std::vector<sent_request> timer_requests() {
        std::vector<sent_request> result;
        for (const sent_request &request : platform.requests) {
            if (request.opcode == 127) {
                result.push_back(request);
            }
        }
        return result;
    }
    static std::vector<uint32_t> timer_kinds() {
        std::vector<uint32_t> result;
        for (const sent_request &request : timer_requests()) {
            result.push_back(request.kind);
        }
        return result;
    }

    static void forget_traces() {
        platform.history.clear();
        platform.debug.clear();
    }

    // The whole history since the last forget_traces.
    static void expect_history(const std::vector<trace_line> &wanted) {
        EXPECT_EQ(platform.history.size(), wanted.size()) << all_traces();
        for (size_t i = 0; i < std::min(wanted.size(), platform.history.size()); ++i) {
            EXPECT_EQ(platform.history[i].trace_class, wanted[i].trace_class) << i;
            EXPECT_EQ(platform.history[i].text, wanted[i].text) << i;
        }
    }

    struct lookup_result {
        uint32_t status;
        oid_name name;
        fc_timer_record record;
    };

    // header_vsanFcTimerEntry in a buffer as large as the agent's.
    static lookup_result look_up(const registered_object &object, const oid_name &asked, int exact, int for_set = 0) {
        oid buffer[MAX_OID_LEN];
        std::copy(asked.begin(), asked.end(), buffer);
        size_t length = asked.size();
        lookup_result result = {};
        result.status = header_vsanFcTimerEntry(&object.var, buffer, &length, exact, &result.record, for_set);
        result.name.assign(buffer, buffer + length);
        return result;
    }

  private:
    scripted_reply serve(const sent_request &request) {
        if (request.opcode == 149) {
            if (!vsan_answers.empty()) {
                return take(vsan_answers);
            }
            const auto row = platform.vsans.upper_bound(static_cast<uint32_t>(request.vsan()));
            if (row == platform.vsans.end()) {
                return {0x40190001u, 0, std::nullopt};
            }
            return {0, 0, row_reply(row->second)};
        }
        if (!timer_answers.empty()) {
            return take(timer_answers);
        }
        if (request.kind == 3) {
            return {};
        }
        const uint32_t key = get_word(request.payload, 0);
        const uint32_t vsan = get_word(request.payload, 10);
        if (request.kind == 5 && without_value.count(vsan) != 0) {
            return {no_such_attribute, 0, std::nullopt};
        }
        return {0, 0, timer_record(key, value_of(request.kind, vsan, key), 1, 0, vsan, 0)};
    }

    static scripted_reply take(std::deque<scripted_reply> &answers) {
        scripted_reply answer = answers.front();
        answers.pop_front();
        return answer;
    }
};

#endif
