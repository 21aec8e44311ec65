#include <gtest/gtest.h>

#include "accessibility/TextMirror.h"

using useragent::TextChange;
using useragent::TextMirror;

namespace {

class TextMirrorTest : public testing::Test {
 protected:
    void erase(std::size_t offset, std::size_t length, const std::string& text) {
        mirror.apply({TextChange::Kind::deleted, offset, length, text});
    }
    void insert(std::size_t offset, std::size_t length, const std::string& text) {
        mirror.apply({TextChange::Kind::inserted, offset, length, text});
    }

    TextMirror mirror;
};

TEST_F(TextMirrorTest, IsNotKnownBeforeItIsSet) {
    EXPECT_FALSE(mirror.text());
    insert(0, 1, "a");
    EXPECT_FALSE(mirror.text());
    mirror.set("b");
    EXPECT_EQ(mirror.text(), "b");
}

TEST_F(TextMirrorTest, FollowsDeletionsAndInsertions) {
    mirror.set("example.org");
    erase(7, 4, ".org");
    EXPECT_EQ(mirror.text(), "example");
    insert(7, 4, ".com");
    insert(0, 4, "www.");
    EXPECT_EQ(mirror.text(), "www.example.com");
    erase(0, 15, "www.example.com");
    EXPECT_EQ(mirror.text(), "");
}

TEST_F(TextMirrorTest, CountsCodePoints) {
    mirror.set("\u00e4\u20ac\U0001F600z");
    erase(1, 2, "\u20ac\U0001F600");
    EXPECT_EQ(mirror.text(), "\u00e4z");
    insert(1, 1, "\U0001F600");
    EXPECT_EQ(mirror.text(), "\u00e4\U0001F600z");
}

TEST_F(TextMirrorTest, IsNotKnownAfterAChangeThatDoesNotFit) {
    for (const auto& [offset, length, text] :
         {std::tuple{4U, 1U, "x"}, std::tuple{0U, 2U, "x"}, std::tuple{0U, 1U, "xy"}}) {
        mirror.set("abc");
        insert(offset, length, text);
        EXPECT_FALSE(mirror.text()) << text;
    }
    for (const auto& [offset, length, text] : {std::tuple{0U, 1U, "b"}, std::tuple{2U, 2U, "cd"}}) {
        mirror.set("abc");
        erase(offset, length, text);
        EXPECT_FALSE(mirror.text()) << text;
    }
}

TEST_F(TextMirrorTest, SurvivesTextThatIsNotUTF8) {
    mirror.set("\xff\xc3(");
    insert(1, 1, "\x80");
    insert(100, 1, "x");
    EXPECT_FALSE(mirror.text());
}

}  // namespace
