// SPDX-License-Identifier: Apache-2.0
// The fixture of the module's tests: a module that has been initialised, and the
// rules that hold for every exchange checked at the end.
#ifndef MODULE_TEST_H
#define MODULE_TEST_H

#include <cctype>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "agent_calls.h"
#include "scripted_platform.h"
#include "trace_places.h"

// Whether `line` is `pattern`, where every '#' of the pattern stands for a source line
// number: one or more digits.
inline bool is_trace(const std::string &line, const std::string &pattern) {
    size_t at = 0;
    for (const char wanted : pattern) {
        if (wanted == '#') {
            const size_t start = at;
            while (at < line.size() && std::isdigit(static_cast<unsigned char>(line[at])) != 0) {
                ++at;
            }
            if (at == start) {
                return false;
            }
        } else if (at >= line.size() || line[at++] != wanted) {
            return false;
        }
    }
    return at == line.size();
}

class ModuleTest : public testing::Test {
  protected:
    // The module is registered before the members of a fixture look for its objects.
    ModuleTest() {
        platform.reset();
        agent.reset();
        testing::internal::CaptureStdout();
        init_vsan_mib();
        testing::internal::GetCapturedStdout();
        platform.journal.clear();
    }

    void TearDown() override {
        testing::internal::CaptureStdout();
        deinit_vsan_mib();
        testing::internal::GetCapturedStdout();

        EXPECT_EQ(platform.replies_held.size(), 0u) << "reply buffers were not released";
        EXPECT_EQ(platform.unscripted_requests, 0u) << "a request was sent that the test does not expect";
        EXPECT_EQ(platform.malformed_history_records, 0u);
        EXPECT_LE(platform.journal.size(), longest_journal) << "a search did not end";
        for (const uint32_t module : platform.history_modules) {
            EXPECT_EQ(module, 0x730000u);
        }
        for (const std::string &name : platform.debug_names) {
            EXPECT_EQ(name, "scripted");
        }
        for (const std::string &text : platform.history_texts) {
            EXPECT_TRUE(stands_where_it_says(text)) << "stands on another line: " << text;
        }
        if (platform.history_unwanted.empty() && platform.debug_unwanted.empty()) {
            expect_both_ways_alike();
        }
        platform.reset();
        agent.reset();
    }

    // How many history lines of a class have this text ('#': a source line number).
    static int traced(uint32_t trace_class, const std::string &pattern) {
        int count = 0;
        for (const trace_line &line : platform.history) {
            if (line.trace_class == trace_class && is_trace(line.text, pattern)) {
                ++count;
            }
        }
        return count;
    }

    // Every history line, for messages of failed expectations.
    static std::string all_traces() {
        std::string result;
        for (const trace_line &line : platform.history) {
            result += std::to_string(line.trace_class) + " " + line.text;
        }
        return result;
    }

    // Calls `visit` with every answer of GETNEXT from the object itself to its end, one PDU
    // a step.
    template <typename Visit> static void walk(registered_object &object, Visit visit) {
        oid_name at = object.name();
        for (int step = 0; step < 20; ++step) {
            platform.next_pdu();
            const read_answer answer = object.get_next(at);
            if (!answer.present) {
                return;
            }
            at = answer.name;
            visit(answer);
        }
        ADD_FAILURE() << "the walk does not end";
    }

    // The rows that a walk of a column visits, in a table whose index is one number.
    static std::vector<oid> walk_of_indexes(uint8_t magic) {
        registered_object object(magic);
        std::vector<oid> seen;
        walk(object, [&](const read_answer &answer) { seen.push_back(answer.name.back()); });
        return seen;
    }

    // That the platform was asked just so often whom it restricts, about these names.
    static void expect_restriction_asked(const std::vector<oid_name> &names, int pdu_type) {
        ASSERT_EQ(platform.allowed_calls.size(), names.size());
        for (size_t i = 0; i < names.size(); ++i) {
            const allowed_vsans_call &call = platform.allowed_calls[i];
            EXPECT_EQ(call.name, names[i]);
            EXPECT_EQ(call.pdu_type, pdu_type);
            EXPECT_EQ(call.size, 512u);
            EXPECT_TRUE(call.bitmap_is_zero);
        }
    }

    // What every read has in common, whoever asks.
    static void expect_envelope_of_read(const sent_request &request, uint32_t opcode, uint32_t length) {
        EXPECT_EQ(request.opcode, opcode);
        EXPECT_EQ(request.length, length);
        EXPECT_TRUE(request.expects_reply);
        EXPECT_FALSE(request.user) << "a read names no user";
        EXPECT_EQ(request.session, 0u) << "a read names no session";
        EXPECT_EQ(request.service, 15u);
        EXPECT_EQ(request.queue, mts_response_q);
        EXPECT_EQ(request.wait_class, 4u);
    }

  private:
    static void expect_both_ways_alike() {
        ASSERT_EQ(platform.history.size(), platform.debug.size());
        for (size_t i = 0; i < platform.history.size(); ++i) {
            EXPECT_EQ(platform.history[i].trace_class, platform.debug[i].trace_class) << platform.history[i].text;
            EXPECT_EQ(platform.history[i].text, platform.debug[i].text);
        }
    }
};

#define EXPECT_TRACED(trace_class, pattern) EXPECT_EQ(traced((trace_class), (pattern)), 1) << all_traces()
#define EXPECT_NOT_TRACED(trace_class, pattern) EXPECT_EQ(traced((trace_class), (pattern)), 0) << all_traces()

#endif
