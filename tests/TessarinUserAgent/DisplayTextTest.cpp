#include <gtest/gtest.h>

#include "useragent/DisplayText.h"

namespace {

using useragent::EscapedBytes;
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

TEST(EscapedBytesTest, BytesThatAreNoTextAndControlCharactersAreNumbers) {
    EXPECT_EQ(EscapedBytes("/home/caf\xE9/\xFF\xFE.txt"), "/home/caf\\xE9/\\xFF\\xFE.txt");
    EXPECT_EQ(EscapedBytes("\n\x1B[1m\u0085"), "\\x0A\\x1B[1m\\xC2\\x85");
    EXPECT_EQ(EscapedBytes("\u00E4\xC3"), "\u00E4\\xC3");
}

TEST(EscapedBytesTest, ANameThatLooksEscapedIsNotTakenForAnother) {
    EXPECT_EQ(EscapedBytes("caf\\xE9"), "caf\\\\xE9");
    EXPECT_NE(EscapedBytes("caf\\xE9"), EscapedBytes("caf\xE9"));
}

TEST(FileNameTextTest, ANameThatIsNoTextIsSaidToBeUnreadable) {
    EXPECT_EQ(FileNameText("/home/caf\xE9\n.txt"), "The name cannot be read: /home/caf\\xE9\\x0A.txt");
    EXPECT_EQ(FileNameText("/home/caf\u00E9\n\\.txt"), "/home/caf\u00E9 \\.txt");
    EXPECT_EQ(FileNameText(""), "");
}

}  // namespace
