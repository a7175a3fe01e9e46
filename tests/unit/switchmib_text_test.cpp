// SPDX-License-Identifier: Apache-2.0
#include <string>

#include <gtest/gtest.h>

#include "contract/plain_text.h"

namespace {

bool is_plain(const std::string &text) {
    return is_plain_text(reinterpret_cast<const uint8_t *>(text.data()), text.size()) != 0;
}

TEST(PlainText, IsUtf8) {
    for (const std::string text : {"", "fc1", " ~", "\xc2\xa0", "h\xc3\xb6he", "\xe0\xa0\x80", "\xed\x9f\xbf",
                                   "\xee\x80\x80", "\xef\xbf\xbf", "\xf0\x90\x80\x80", "\xf4\x8f\xbf\xbf"}) {
        EXPECT_TRUE(is_plain(text)) << text;
    }
}

TEST(PlainText, IsNotWhatIsNoUtf8) {
    for (const std::string text : {"\x80", "\xbf", "\xc0\xaf", "\xc1\xbf", "\xc3", "\xc3\x28", "\xe0\x9f\xbf",
                                   "\xe2\x82", "\xe2\x28\xa1", "\xed\xa0\x80", "\xed\xbf\xbf", "\xf0\x8f\xbf\xbf",
                                   "\xf0\x90\x80", "\xf4\x90\x80\x80", "\xf5\x80\x80\x80", "\xfe", "\xff", "ok\xc3"}) {
        EXPECT_FALSE(is_plain(text)) << testing::PrintToString(text);
    }
}

TEST(PlainText, HasNoControlCharacters) {
    for (const std::string &text : {std::string(1, '\0'), std::string("a\nb"), std::string("\x1f"), std::string("\x7f"),
                                    std::string("\xc2\x80"), std::string("\xc2\x9f")}) {
        EXPECT_FALSE(is_plain(text)) << testing::PrintToString(text);
    }
}

} // namespace
