#include <gmock/gmock.h>

#include <chrono>
#include <stop_token>
#include <string>
#include <string_view>
#include <utility>

#include "Common/Failures.h"
#include "TextMatcher.h"

namespace host {
namespace {

using fake::FailureOf;

using namespace std::chrono_literals;

// Each question for the time takes a millisecond.
ScanBounds Bounds(const ScanLimits& limits, std::stop_token stop = {}) {
    return ScanBounds(
        limits, [time = std::chrono::steady_clock::time_point()]() mutable { return time += 1ms; },
        std::move(stop));
}

// "all/distinct"
std::string Counted(const std::string& pattern, std::string_view text,
                    CheckDigit checkDigit = CheckDigit::none) {
    auto bounds = Bounds({.time = std::chrono::hours(1)});
    const auto counts = TextMatcher(pattern, checkDigit).count(text, bounds);
    EXPECT_EQ(bounds.reason(), nullptr);
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

TEST(TextMatcherTest, LinesAreNothingToAPatternUnlessItSaysSo) {
    EXPECT_EQ(Counted("^ab", "ab\nab"), "1/1");
    EXPECT_EQ(Counted("(?m)^ab", "ab\nab"), "2/1");
    EXPECT_EQ(Counted("ab$", "ab\nab"), "1/1");
    EXPECT_EQ(Counted("ab$", "ab\n"), "0/0");
    EXPECT_EQ(Counted("(?m)ab$", "ab\nab\n"), "2/1");
    EXPECT_EQ(Counted("a.b", "a\nb a b"), "1/1");
    EXPECT_EQ(Counted("(?s)a.b", "a\nb a b"), "2/2");
}

TEST(TextMatcherTest, AWrongCheckDigitDoesNotCount) {
    EXPECT_EQ(Counted("\\d{4}", "1230 1234 1230 0026", CheckDigit::luhn), "3/2");
    EXPECT_EQ(Counted("[a-z]+", "letters only", CheckDigit::luhn), "0/0");
}

TEST(TextMatcherTest, WhatAWrongCheckDigitCoversIsSearchedAgain) {
    EXPECT_EQ(Counted("\\d{4}", "91230", CheckDigit::luhn), "1/1");
    EXPECT_EQ(Counted("\\d{4}", "9912309", CheckDigit::luhn), "1/1");
    EXPECT_EQ(Counted("(?:^|\\D)(\\d(?: ?\\d){3})(?:\\D|$)", "9 1230", CheckDigit::luhn), "1/1");
    EXPECT_EQ(Counted("\\d{4}", "12301230", CheckDigit::luhn), "2/1") << "a right one is not";
    EXPECT_EQ(Counted("\\d{4}", "00000", CheckDigit::luhn), "1/1");
}

TEST(TextMatcherTest, EndsBetweenTwoMatchesWhenItsTimeIsOver) {
    auto bounds = Bounds({.time = 10ms});
    EXPECT_EQ(TextMatcher("a", CheckDigit::none).count(std::string(100, 'a'), bounds).all, 9U);
    EXPECT_STREQ(bounds.reason(), "It took too long");
    EXPECT_EQ(TextMatcher("a", CheckDigit::none).count("a", bounds).all, 0U) << "the next pattern";
}

TEST(TextMatcherTest, MatchesThatDoNotCountTakeTimeToo) {
    for (const auto* pattern : {"x*", "(x?)a", "a"}) {
        auto bounds = Bounds({.time = 10ms});
        TextMatcher(pattern, CheckDigit::luhn).count(std::string(100, 'a'), bounds);
        EXPECT_STREQ(bounds.reason(), "It took too long") << pattern;
    }
}

TEST(TextMatcherTest, EndsWhenThePatternSearchedTooMuchAgain) {
    const std::string text = std::string(1'000, 'a') + "b";
    const TextMatcher matcher("(?s)(a).*b", CheckDigit::none);
    // Each match leaves 1,000, 999, 998, ... bytes that are searched once more.
    auto bounds = Bounds({.time = std::chrono::hours(1), .searchedAgain = 4'990});
    EXPECT_EQ(matcher.count(text, bounds).all, 6U);
    EXPECT_STREQ(bounds.reason(), "A pattern searched the text again and again");
    EXPECT_EQ(TextMatcher("a", CheckDigit::none).count(text, bounds).all, 1'000U) << "the next pattern";
    auto wide = Bounds({.time = std::chrono::hours(1)});
    EXPECT_EQ(matcher.count(text, wide).all, 1'000U);
    EXPECT_EQ(wide.reason(), nullptr);
}

TEST(TextMatcherTest, APatternThatGoesOverTheTextOnceSearchesNothingAgain) {
    auto bounds = Bounds({.time = std::chrono::hours(1), .searchedAgain = 0});
    EXPECT_EQ(TextMatcher("[a-z]+|\\d", CheckDigit::none).count("one 2 three 4", bounds).all, 4U);
    EXPECT_EQ(bounds.reason(), nullptr);
}

TEST(TextMatcherTest, EndsWhenItIsStopped) {
    std::stop_source stop;
    auto bounds = Bounds({.time = std::chrono::hours(1)}, stop.get_token());
    const TextMatcher matcher("a", CheckDigit::none);
    EXPECT_EQ(matcher.count("aaa", bounds).all, 3U);
    stop.request_stop();
    EXPECT_EQ(matcher.count("aaa", bounds).all, 0U);
    EXPECT_STREQ(bounds.reason(), "The host ends");
}

TEST(TextMatcherTest, TakesAnyBytes) {
    using std::string_view_literals::operator""sv;
    EXPECT_EQ(Counted("[a-z]+", "one\0two\0\0one"sv), "3/2");
    EXPECT_EQ(Counted("[a-z]+",
                      "\xFF"
                      "one\x80\xC3"
                      "two\xE2\x82"),
              "2/2");
}

TEST(TextMatcherTest, CountsInAMegabyteOfMatches) {
    std::string text;
    for (int i = 0; i < 100'000; ++i) {
        text += "ab" + std::to_string(i % 10) + " plenty ";
    }
    EXPECT_EQ(Counted("ab\\d", text), "100000/10");
}

TEST(TextMatcherTest, RefusesAPatternThatIsNone) {
    const auto failure = FailureOf([] { TextMatcher("(abc", CheckDigit::none); });
    EXPECT_THAT(failure, testing::StartsWith("is refused: "));
    EXPECT_EQ(FailureOf([] { TextMatcher("abc", CheckDigit::none); }), "nothing was thrown");
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
