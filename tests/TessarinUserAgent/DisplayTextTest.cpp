#include <gtest/gtest.h>

#include "useragent/DisplayText.h"

namespace {

using useragent::FileNameText;
using useragent::OneLine;

TEST(OneLineTest, EveryControlCharacterAndLineSeparatorIsABlank) {
    EXPECT_EQ(OneLine("a\nb\r\n\tc\x1B[1m\x7F"), "a b   c [1m ");
    EXPECT_EQ(OneLine(std::string_view("a\0b", 3)), "a b");
    EXPECT_EQ(OneLine("a\u0080b\u009Fc\u2028d\u2029e"), "a b c d e");
}

TEST(OneLineTest, AllOtherTextStaysAsItIs) {
    for (const char* text :
         {"", "a b\\c", "\u00A0\u00E4\u20AC\u2027\u202A\U0001F6AB", "caf\xE9", "\xC2", "\xE2\x80"}) {
        EXPECT_EQ(OneLine(text), text);
    }
}

TEST(FileNameTextTest, ANameThatIsNoTextIsSaidToBeUnreadable) {
    EXPECT_EQ(FileNameText("/home/caf\xE9\n.txt"), "The name cannot be read: /home/caf\\xe9\\x0a.txt");
    EXPECT_EQ(FileNameText("/home/caf\u00E9\n\\.txt"), "/home/caf\u00E9 \\.txt");
    EXPECT_EQ(FileNameText(""), "");
}

}  // namespace
