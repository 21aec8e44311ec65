#include <gtest/gtest.h>

#include <string>

#include "Expression.h"
#include "TextMatcher.h"

// What the engine on macOS does besides what TextMatcherTest says of every engine.
namespace host {
namespace {

TEST(MacExpressionTest, SeesBytes) {
    const auto found = Expression("\xC3\xA9.").find("\xC3\xA9\xE2\x82\xAC", 0);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->end, 3U);
}

TEST(MacExpressionTest, ASearchThatCostsTooMuchEndsThePatternNotTheScan) {
    const std::string text(5'000, 'a');
    EXPECT_THROW(Expression("(a*)*b").find(text, 0), SearchTooLong);
    ScanBounds bounds({.time = std::chrono::hours(1)});
    EXPECT_EQ(TextMatcher("(a*)*b", CheckDigit::none).count(text, bounds).all, 0U);
    EXPECT_STREQ(bounds.reason(), "A pattern searched the text again and again");
    EXPECT_EQ(TextMatcher("a", CheckDigit::none).count("aa", bounds).all, 2U);
}

}  // namespace
}  // namespace host
