#include <gmock/gmock.h>

#include <string>

#include "PathForLog.h"

namespace host {
namespace {

TEST(PathForLogTest, AnOrdinaryPathStandsAsItIs) {
    EXPECT_EQ(PathForLog("/home/a b/\xC3\xA9{}.txt"), "/home/a b/\xC3\xA9{}.txt");
    EXPECT_EQ(PathForLog(""), "");
    EXPECT_EQ(PathForLog(std::string(200, 'a')), std::string(200, 'a'));
}

TEST(PathForLogTest, ControlCharactersAreSpelledOut) {
    EXPECT_EQ(PathForLog("a\nb\r\x1B[0m\x7F"), "a\\x0ab\\x0d\\x1b[0m\\x7f");
    EXPECT_EQ(PathForLog(std::string("a\0b", 3)), "a\\x00b");
    EXPECT_EQ(PathForLog("\xC2\x9B"
                         "0m\xC2\xA0\xC3\x9B"),
              "\\xc2\\x9b0m\xC2\xA0\xC3\x9B");
}

TEST(PathForLogTest, ALongPathIsShortened) {
    EXPECT_EQ(PathForLog(std::string(201, 'a')), std::string(200, 'a') + "... (201 bytes)");
    EXPECT_EQ(PathForLog(std::string(1'048'576, 'a')), std::string(200, 'a') + "... (1048576 bytes)");
    EXPECT_EQ(PathForLog(std::string(199, 'a') + "\xC3\xA9"), std::string(199, 'a') + "... (201 bytes)");
}

}  // namespace
}  // namespace host
