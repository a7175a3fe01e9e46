// SPDX-License-Identifier: Apache-2.0
// The lines of the event history, and what is none.
#include <gtest/gtest.h>

#include <string>

#include "sdwrap/history_line.h"

namespace {

constexpr std::string_view TIME = "2026-11-22T02:00:00.123456Z";

std::string written(const history_line &record) {
    char line[HISTORY_MAX_LINE];
    return std::string(line, history_line_write(record, line));
}

TEST(HistoryLine, ARecordIsOneLineForPeople) {
    EXPECT_EQ("2026-11-22T02:00:00.123456Z 4711 7536640 100 a text, with blanks \n",
              written({TIME, 4711, 7536640, 100, "a text, with blanks "}));
    EXPECT_EQ("2026-11-22T02:00:00.123456Z 0 0 0 \n", written({TIME, 0, 0, 0, ""}));
}

TEST(HistoryLine, ARecordComesBackWithAllFields) {
    const std::string longest(HISTORY_MAX_TEXT, 'x');
    for (const std::string &text :
         {std::string(), std::string("  two blanks in front"), std::string("a\xff"), longest}) {
        const history_line record = {TIME, UINT32_MAX, UINT32_MAX, UINT32_MAX, text};
        const std::string line = written(record);
        history_line read = {};
        ASSERT_TRUE(history_line_read(std::string_view(line).substr(0, line.size() - 1), read)) << text;
        EXPECT_EQ(record, read);
    }
}

TEST(HistoryLine, ATextIsCutWhereTheLineWouldBeTooLong) {
    const std::string text(HISTORY_MAX_TEXT + 1, 'x');
    const std::string line = written({TIME, UINT32_MAX, UINT32_MAX, UINT32_MAX, text});
    EXPECT_LE(line.size(), HISTORY_MAX_LINE);
    EXPECT_EQ(HISTORY_MAX_TEXT + 1, line.size() - line.find_last_of(' ') - 1) << "and the line's end";
}

TEST(HistoryLine, WhatIsNoRecordIsNotRead) {
    history_line read;
    for (const char *line :
         {"", "x", "2026-11-22T02:00:00.123456Z", "2026-11-22T02:00:00.123456Z 1 2",
          "2026-11-22T02:00:00.123456Z 1 2 x text", "2026-11-22T02:00:00.123456Z 1 2 4294967296 text",
          "2026-11-22T02:00:00.123456Z -1 2 3 text", "2026-11-22 02:00:00.123456Z 1 2 3 text",
          "2026-11-22T02:00:00.12345Z 1 2 3 text", "2026-11-22T02:00:00.123456ZZ 1 2 3 text"}) {
        EXPECT_FALSE(history_line_read(line, read)) << line;
    }
}

} // namespace
