// SPDX-License-Identifier: Apache-2.0
// The text form of the filters of history and debug output.
#include <gtest/gtest.h>

#include <string_view>

#include "sdwrap/debug_filters.h"

namespace {

class DebugFilters : public testing::Test {
  protected:
    debug_filters_errors parse(std::string_view text) {
        return debug_filters_parse({text.data(), text.size()}, filters);
    }
    bool history(uint32_t event_class) const { return debug_filters_of(filters, event_class).history; }
    bool debug(uint32_t event_class) const { return debug_filters_of(filters, event_class).debug; }

    debug_filters filters = {};
};

TEST_F(DebugFilters, OrdinaryTraceIsOffByDefaultAndFailuresGoIntoTheHistory) {
    EXPECT_TRUE(history(100));
    EXPECT_FALSE(history(101));
    EXPECT_FALSE(debug(100));
    EXPECT_FALSE(debug(101));
    EXPECT_TRUE(history(102));
    EXPECT_FALSE(debug(102));
}

TEST_F(DebugFilters, ASettingChangesOneThingOfOneClass) {
    EXPECT_EQ(0u, parse("history 101 on\ndebug 100 on\n").count);
    EXPECT_TRUE(history(101));
    EXPECT_FALSE(debug(101));
    EXPECT_TRUE(history(100));
    EXPECT_TRUE(debug(100));
}

TEST_F(DebugFilters, TheLastSettingCounts) {
    parse("debug 100 on\ndebug 100 off");
    EXPECT_FALSE(debug(100));
    parse("");
    EXPECT_TRUE(history(100)) << "a text replaces the settings of the former one";
}

TEST_F(DebugFilters, BlanksAndCommentsAreAllowed) {
    EXPECT_EQ(0u, parse("# all\n\n \t\r\n\thistory  100   off # quiet\r\ndebug 4294967295 on").count);
    EXPECT_FALSE(history(100));
    EXPECT_TRUE(debug(4294967295));
}

TEST_F(DebugFilters, WhatIsNoSettingIsSkippedAndCounted) {
    for (const char *bad : {"trace 100 on", "debug", "debug 100", "debug 100 yes", "debug on 100", "debug -1 on",
                            "debug 4294967296 on", "debug 18446744073709551716 on", "debug 0x64 on", "debug 100 on on",
                            "debug100 on", "Debug 100 on", "debug 100 ON"}) {
        SCOPED_TRACE(bad);
        const debug_filters_errors errors = parse("history 101 on\n" + std::string(bad) + "\nhistory 100 off\n" + bad);
        EXPECT_EQ(2u, errors.count);
        EXPECT_EQ(2u, errors.first_line);
        EXPECT_TRUE(history(101));
        EXPECT_FALSE(history(100));
        EXPECT_FALSE(debug(100));
    }
}

TEST_F(DebugFilters, AClassTooManyIsSkipped) {
    std::string text;
    for (uint32_t event_class = 0; event_class <= DEBUG_FILTERS_MAX; ++event_class) {
        text += "debug " + std::to_string(event_class) + " on\n";
    }
    const debug_filters_errors errors = parse(text + "debug 0 off\n");
    EXPECT_EQ(1u, errors.count);
    EXPECT_EQ(DEBUG_FILTERS_MAX + 1, errors.first_line);
    EXPECT_TRUE(debug(DEBUG_FILTERS_MAX - 1));
    EXPECT_FALSE(debug(DEBUG_FILTERS_MAX));
    EXPECT_FALSE(debug(0)) << "a class that is there can still be changed";
}

} // namespace
