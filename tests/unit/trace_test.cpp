// SPDX-License-Identifier: Apache-2.0
// Trace lines: both ways, their filters, and their length.

#include "module_test.h"

#include "vsan_mib_trace.h"

namespace {

class Trace : public ModuleTest {
  protected:
    static void two_lines() {
        VSAN_TRACE(100, "failure %d\n", 1);
        VSAN_TRACE(101, "event %s\n", "two");
    }

    static std::vector<std::string> texts(const std::vector<trace_line> &lines) {
        std::vector<std::string> result;
        for (const trace_line &line : lines) {
            result.push_back(std::to_string(line.trace_class) + " " + line.text);
        }
        return result;
    }
};

using lines = std::vector<std::string>;

TEST_F(Trace, GoesToTheHistoryAndToTheDebugOutput) {
    two_lines();
    EXPECT_EQ(texts(platform.history), (lines{"100 failure 1\n", "101 event two\n"}));
    EXPECT_EQ(texts(platform.debug), (lines{"100 failure 1\n", "101 event two\n"}));
}

TEST_F(Trace, HistoryIsFilteredByClass) {
    platform.history_unwanted = {101};
    two_lines();
    EXPECT_EQ(texts(platform.history), lines{"100 failure 1\n"});
    EXPECT_EQ(platform.debug.size(), 2u) << "the other way has its own filter";
}

TEST_F(Trace, DebugOutputIsFilteredByClass) {
    platform.debug_unwanted = {100};
    two_lines();
    EXPECT_EQ(texts(platform.debug), lines{"101 event two\n"});
    EXPECT_EQ(platform.history.size(), 2u);
}

TEST_F(Trace, AnUnwantedLineCostsNoFormatting) {
    platform.history_unwanted = {101};
    platform.debug_unwanted = {101};
    int evaluated = 0;
    VSAN_TRACE(101, "%d\n", ++evaluated);
    EXPECT_EQ(evaluated, 0);
    VSAN_TRACE(100, "%d\n", ++evaluated);
    EXPECT_EQ(evaluated, 1) << "both ways get the same text";
    platform.history.clear();
    platform.debug.clear();
}

TEST_F(Trace, FiltersCanChangeWhileRunning) {
    platform.history_unwanted = {101};
    VSAN_TRACE(101, "unseen\n");
    platform.history_unwanted = {};
    VSAN_TRACE(101, "seen\n");
    EXPECT_EQ(texts(platform.history), lines{"101 seen\n"});
    platform.debug.erase(platform.debug.begin());
}

TEST_F(Trace, HistoryTextIsCutAtFiveHundredAndEleven) {
    for (const size_t length : {0u, 1u, 510u, 511u, 512u, 513u, 4000u}) {
        platform.history.clear();
        const std::string text(length, 'x');
        trace_text(100, "%s", text.c_str());
        ASSERT_EQ(platform.history.size(), 1u) << length;
        EXPECT_EQ(platform.history[0].text, text.substr(0, 511));
    }
    EXPECT_EQ(platform.malformed_history_records, 0u);
    EXPECT_EQ(platform.debug.back().text, std::string(2047, 'x')) << "the debug output gets more of it";
    platform.history.clear();
    platform.debug.clear();
}

} // namespace
