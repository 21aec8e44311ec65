#include <gtest/gtest.h>

#include <string_view>

#include "common/utf8.h"

namespace {

using cmn::EscapeControls;
using cmn::IsValidUtf8;
using cmn::Utf16Length;

TEST(IsValidUtf8Test, TakesEveryLengthOfSequence) {
    for (const auto* text :
         {"", "a", "\x7F", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80",
          "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF", "a\xC3\xA4z"})
        EXPECT_TRUE(IsValidUtf8(text)) << text;
    EXPECT_TRUE(IsValidUtf8(std::string_view("a\0b", 3)));
}

TEST(IsValidUtf8Test, FindsAStrayByteBehindAnyNumberOfGoodOnes) {
    for (std::size_t before = 0; before < 40; ++before) {
        const std::string good(before, 'a');
        EXPECT_TRUE(IsValidUtf8(good)) << before;
        EXPECT_TRUE(IsValidUtf8(good + "\xc3\xa4" + good)) << before;
        EXPECT_FALSE(IsValidUtf8(good + "\xff")) << before;
        EXPECT_FALSE(IsValidUtf8(good + "\x80" + good)) << before;
    }
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

TEST(Utf8SequenceLengthTest, IsThatOfTheFirstCharacterAndZeroWhereNoneBegins) {
    EXPECT_EQ(cmn::Utf8SequenceLength("az"), 1U);
    EXPECT_EQ(cmn::Utf8SequenceLength("\xC3\xA4z"), 2U);
    EXPECT_EQ(cmn::Utf8SequenceLength("\xE2\x82\xACz"), 3U);
    EXPECT_EQ(cmn::Utf8SequenceLength("\xF0\x9F\xA6\x8Az"), 4U);
    EXPECT_EQ(cmn::Utf8SequenceLength(""), 0U);
    EXPECT_EQ(cmn::Utf8SequenceLength("\x80z"), 0U);
    EXPECT_EQ(cmn::Utf8SequenceLength("\xE2\x82"), 0U);  // cut off
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

TEST(EscapeControlsTest, LeavesTextAsItIs) {
    for (const auto* text : {"", "http://a b/?q={}\\x0a", "\xC3\xA4\xE2\x82\xAC\xF0\x9F\xA6\x8A",
                             "\xC2\xA0 ~", "\xE2\x80\xA7\xE2\x80\xAF\xE2\x81\xA5\xE2\x81\xAA"})
        EXPECT_EQ(EscapeControls(text), text);
}

TEST(EscapeControlsTest, SpellsControlCharacters) {
    EXPECT_EQ(EscapeControls("a\nb\r\n\tc"), "a\\x0ab\\x0d\\x0a\\x09c");
    EXPECT_EQ(EscapeControls(std::string_view("\0\x1F \x7F", 4)), "\\x00\\x1f \\x7f");
    EXPECT_EQ(EscapeControls("\x1B[2J\x1B]0;title\x07"), "\\x1b[2J\\x1b]0;title\\x07");
    EXPECT_EQ(EscapeControls("\xC2\x80\xC2\x9B"
                             "0m\xC2\x9F"),
              "\\xc2\\x80\\xc2\\x9b0m\\xc2\\x9f");
}

TEST(EscapeControlsTest, SpellsSeparatorsOfLinesAndMarksOfDirection) {
    EXPECT_EQ(EscapeControls("\xE2\x80\xA8\xE2\x80\xA9"), "\\xe2\\x80\\xa8\\xe2\\x80\\xa9");
    EXPECT_EQ(EscapeControls("\xE2\x80\xAA\xE2\x80\xAE"), "\\xe2\\x80\\xaa\\xe2\\x80\\xae");
    EXPECT_EQ(EscapeControls("\xE2\x81\xA6\xE2\x81\xA9"), "\\xe2\\x81\\xa6\\xe2\\x81\\xa9");
}

TEST(EscapeControlsTest, SpellsBytesOfNoCharacter) {
    EXPECT_EQ(EscapeControls("\x9B"
                             "0m\xFF"),
              "\\x9b0m\\xff");
    EXPECT_EQ(EscapeControls("\xC3\n\xE2\x80"), "\\xc3\\x0a\\xe2\\x80");
    EXPECT_EQ(EscapeControls("\xED\xA0\x80"), "\\xed\\xa0\\x80");
}

}  // namespace
