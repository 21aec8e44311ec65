#include <gmock/gmock.h>

#include <string>
#include <string_view>

#include "Common/Failures.h"
#include "TextMatcher.h"

namespace host {
namespace {

using fake::FailureOf;

// "all/distinct"
std::string Counted(const std::string& pattern, std::string_view text,
                    CheckDigit checkDigit = CheckDigit::none) {
    const auto counts = TextMatcher(pattern, checkDigit).count(text);
    return std::to_string(counts.all) + "/" + std::to_string(counts.distinct);
}

TEST(TextMatcherTest, CountsAllMatchesAndTheDistinctOnes) {
    EXPECT_EQ(Counted("[a-z]+", "one two one three one"), "5/3");
    EXPECT_EQ(Counted("[a-z]+", "1 2 3"), "0/0");
    EXPECT_EQ(Counted("[a-z]+", ""), "0/0");
}

TEST(TextMatcherTest, MatchesDoNotOverlap) {
    EXPECT_EQ(Counted("aa", "aaaaa"), "2/1");
}

TEST(TextMatcherTest, EmptyMatchesNeitherCountNorHoldItUp) {
    for (const auto* pattern : {"", "()", "x*", "$", "^", "\\b", "(?m)^$", "(x?)", "(x?)a"}) {
        EXPECT_EQ(Counted(pattern, "aaa aaa\n\na"), "0/0") << pattern;
        EXPECT_EQ(Counted(pattern, ""), "0/0") << pattern;
    }
}

TEST(TextMatcherTest, FindsWhatStandsBetweenEmptyMatches) {
    EXPECT_EQ(Counted("a*",
                      "baab\xC3\xA9"
                      "a"),
              "2/2");
    EXPECT_EQ(Counted("(a?)b", "b ab b ab"), "2/1");
    EXPECT_EQ(Counted("(a?)b", "bab"), "1/1");
}

TEST(TextMatcherTest, TheFirstGroupIsTheMatch) {
    EXPECT_EQ(Counted("id=(\\d+)(;|$)", "id=1;id=2;id=1"), "3/2");
    EXPECT_EQ(Counted("(?:id|no)=\\d+", "id=1 no=1"), "2/2");
}

TEST(TextMatcherTest, SurroundingsOfAMatchCanBelongToTheNextOneToo) {
    EXPECT_EQ(Counted("(?:^|\\D)(\\d{3})(?:\\D|$)", "123 456 789"), "3/3");
    EXPECT_EQ(Counted("(?:^|\\D)(\\d{3})(?:\\D|$)", "1234 567"), "1/1");
}

TEST(TextMatcherTest, AMatchWithoutTheGroupDoesNotCount) {
    EXPECT_EQ(Counted("foo|(bar)", "foo bar foo"), "1/1");
}

TEST(TextMatcherTest, WhatPrecedesTheSearchCountsForWordBoundaries) {
    EXPECT_EQ(Counted("\\bab", "abab ab"), "2/1");
    EXPECT_EQ(Counted("^ab", "abab"), "1/1");
}

TEST(TextMatcherTest, AWrongCheckDigitDoesNotCount) {
    EXPECT_EQ(Counted("\\d{4}", "1230 1234 1230 0026", CheckDigit::luhn), "3/2");
    EXPECT_EQ(Counted("[a-z]+", "letters only", CheckDigit::luhn), "0/0");
}

TEST(TextMatcherTest, TakesAnyBytes) {
    using std::string_view_literals::operator""sv;
    EXPECT_EQ(Counted("[a-z]+", "one\0two\0\0one"sv), "3/2");
    EXPECT_EQ(Counted("[a-z]+",
                      "\xFF"
                      "one\x80\xC3"
                      "two\xE2\x82"),
              "2/2");
    EXPECT_EQ(Counted("\xC3\xA9.", "\xC3\xA9\xE2\x82\xAC \xC3\xA9\x80"), "1/1");
}

TEST(TextMatcherTest, CountsInAMegabyteOfMatches) {
    std::string text;
    for (int i = 0; i < 100'000; ++i) {
        text += "ab" + std::to_string(i % 10) + " plenty ";
    }
    EXPECT_EQ(Counted("ab\\d", text), "100000/10");
}

TEST(TextMatcherTest, PassesOnWhatIsWrongWithAPattern) {
    const auto failure = [](const std::string& pattern) {
        return FailureOf([&] { TextMatcher(pattern, CheckDigit::none); });
    };
    EXPECT_EQ(failure("(abc"), "is refused: missing ): (abc");
    EXPECT_EQ(failure("a(?=b)"), "is refused: invalid perl operator: (?=");
    EXPECT_EQ(failure("\xFF"), "is refused: invalid UTF-8");
    EXPECT_EQ(failure("((a{999}){999}){999}"), "is refused: invalid repetition size: {999}");
    EXPECT_EQ(failure("abc"), "nothing was thrown");
}

TEST(CheckDigitTest, LuhnAcceptsTheRightDigitOnly) {
    for (const char last : std::string_view("0123456789")) {
        EXPECT_EQ(PassesLuhn(std::string("7992739871") + last), last == '3') << last;
    }
}

TEST(CheckDigitTest, LuhnNoticesEveryOtherSingleDigit) {
    const std::string right = "4111111111111111";
    for (std::size_t position = 0; position < right.size(); ++position) {
        for (char digit = '0'; digit <= '9'; ++digit) {
            auto text = right;
            text[position] = digit;
            EXPECT_EQ(PassesLuhn(text), text == right) << text;
        }
    }
}

TEST(CheckDigitTest, LuhnSkipsWhatIsNoDigit) {
    EXPECT_TRUE(PassesLuhn("4111 1111-1111.1111"));
    EXPECT_TRUE(PassesLuhn("378282246310005"));
    EXPECT_FALSE(PassesLuhn("378282246310006"));
    EXPECT_FALSE(PassesLuhn(""));
    EXPECT_FALSE(PassesLuhn("no digit"));
    EXPECT_TRUE(PassesLuhn("0"));
}

}  // namespace
}  // namespace host
