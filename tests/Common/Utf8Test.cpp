#include <gtest/gtest.h>

#include "common/utf8.h"

namespace {

using cmn::IsValidUtf8;

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

}  // namespace
