// SPDX-License-Identifier: Apache-2.0
// Times as an operator writes them.
#include "tool/duration.h"

#include <gtest/gtest.h>

namespace vswitchctl {

namespace {

using std::chrono::milliseconds;

TEST(Duration, HasOneUnit) {
    EXPECT_EQ(read_duration("0ms"), milliseconds(0));
    EXPECT_EQ(read_duration("500ms"), milliseconds(500));
    EXPECT_EQ(read_duration("2s"), milliseconds(2000));
    EXPECT_EQ(read_duration("3m"), milliseconds(180000));
    EXPECT_EQ(read_duration("168h"), longest_duration);
    for (const char *wrong : {"", "5", "s", "5S", "-5s", "+5s", "1.5s", "5 s", "5s ", "5sm", "169h", "4294967296ms",
                              "604800001ms", "18446744073709551617s", "0x5s"}) {
        EXPECT_FALSE(read_duration(wrong)) << wrong;
    }
    for (const char *text : {"500ms", "2s", "3m", "168h", "0s", "1001ms", "61s"}) {
        EXPECT_EQ(duration_text(read_duration(text).value()), text);
    }
}

} // namespace

} // namespace vswitchctl
