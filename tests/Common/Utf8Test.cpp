#include <gtest/gtest.h>

#include "common/utf8.h"

namespace {

using cmn::IsValidUtf8;
using cmn::Utf16Length;

TEST(IsValidUtf8Test, TakesEveryLengthOfSequence) {
    for (const auto* text :
         {"", "a", "\x7F", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80",
          "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF", "a\xC3\xA4z"})
        EXPECT_TRUE(IsValidUtf8(text)) << text;
    EXPECT_TRUE(IsValidUtf8(std::string_view("a\0b", 3)));
}

TEST(IsValidUtf8Test, RejectsStrayAndMissingBytes) {
    for (const auto* text : {"\x80", "\xBF", "a\x80", "\xC3", "\xC3z", "\xE2\x82", "\xE2\x82z",
                             "\xF0\x9F\x98", "\xFF", "\xFE", "\xF8\x88\x80\x80\x80"})
        EXPECT_FALSE(IsValidUtf8(text)) << text;
}

TEST(IsValidUtf8Test, RejectsOverlongFormsSurrogatesAndWhatIsBeyondUnicode) {
    for (const auto* text : {"\xC0\x80", "\xC1\xBF", "\xE0\x9F\xBF", "\xF0\x8F\xBF\xBF", "\xED\xA0\x80",
                             "\xED\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80"})
        EXPECT_FALSE(IsValidUtf8(text)) << text;
}

TEST(Utf16LengthTest, OfAsciiTextIsItsSize) {
    EXPECT_EQ(Utf16Length(""), 0U);
    EXPECT_EQ(Utf16Length("Install the helper?"), 19U);
    EXPECT_EQ(Utf16Length(std::string_view("a\0b", 3)), 3U);
}

TEST(Utf16LengthTest, CountsOneUnitForSequencesOfUpToThreeBytesAndTwoForFour) {
    EXPECT_EQ(Utf16Length("\xC2\x80"), 1U);
    EXPECT_EQ(Utf16Length("\xDF\xBF"), 1U);
    EXPECT_EQ(Utf16Length("\xE0\xA0\x80"), 1U);
    EXPECT_EQ(Utf16Length("\xEF\xBF\xBF"), 1U);
    EXPECT_EQ(Utf16Length("\xF0\x90\x80\x80"), 2U);
    EXPECT_EQ(Utf16Length("\xF4\x8F\xBF\xBF"), 2U);
    EXPECT_EQ(Utf16Length("a\xC3\xA4\xE2\x82\xAC\xF0\x9F\xA6\x8Az"), 6U);
}

TEST(Utf16LengthTest, CountsEveryByteOutsideAWellFormedSequenceAsOne) {
    EXPECT_EQ(Utf16Length("\x80"), 1U);
    EXPECT_EQ(Utf16Length("a\xFFz"), 3U);
    EXPECT_EQ(Utf16Length("\xE2\x82"), 2U);       // cut off
    EXPECT_EQ(Utf16Length("\xF0\x9F\xA6"), 3U);   // cut off
    EXPECT_EQ(Utf16Length("\xED\xA0\x80"), 3U);   // a surrogate
    EXPECT_EQ(Utf16Length("\xC0\x80"), 2U);       // overlong
    EXPECT_EQ(Utf16Length("\xC3\xC3\xA4z"), 3U);  // the second byte begins a sequence
}

}  // namespace
