#include <gtest/gtest.h>

#include <string>

#include "Common/Failures.h"
#include "Expression.h"

// What the engine on Linux does besides what TextMatcherTest says of every engine.
namespace host {
namespace {

TEST(LinuxExpressionTest, SeesCharactersWhereTheTextIsUtf8) {
    const std::string text = "\xC3\xA9\xE2\x82\xAC \xC3\xA9\x80";
    const Expression expression("\xC3\xA9.");
    const auto found = expression.find(text, 0);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->end, 5U);
    EXPECT_FALSE(expression.find(text, found->end));
}

TEST(LinuxExpressionTest, SaysWhatIsWrongWithAPattern) {
    const auto failure = [](const std::string& pattern) {
        return fake::FailureOf([&] { const Expression expression(pattern); });
    };
    EXPECT_EQ(failure("(abc"), "missing ): (abc");
    EXPECT_EQ(failure("a(?=b)"), "invalid perl operator: (?=");
    EXPECT_EQ(failure("\xFF"), "invalid UTF-8");
    EXPECT_EQ(failure("((a{999}){999}){999}"), "invalid repetition size: {999}");
    EXPECT_EQ(failure("abc"), "nothing was thrown");
}

}  // namespace
}  // namespace host
