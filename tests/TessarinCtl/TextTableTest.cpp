#include <gtest/gtest.h>

#include <sstream>

#include "TextTable.h"

namespace {

using ctl::CutTo;
using ctl::DisplayWidth;
using ctl::TextTable;

TEST(TextTable, KnowsHowWideATerminalShowsATextWhateverTheLocale) {
    EXPECT_EQ(DisplayWidth(""), 0U);
    EXPECT_EQ(DisplayWidth("na\u00EFve"), 5U);
    EXPECT_EQ(DisplayWidth("\u6F22\u5B57"), 4U);
    EXPECT_EQ(DisplayWidth("e\u0301"), 1U);
    EXPECT_EQ(DisplayWidth("\xFF"), 1U);
}

TEST(TextTable, CutsBetweenCharactersOnly) {
    EXPECT_EQ(CutTo(5, "na\u00EFve"), "na\u00EFve");
    EXPECT_EQ(CutTo(4, "na\u00EFve"), "na\u00EF\u2026");
    EXPECT_EQ(CutTo(4, "\u6F22\u5B57\u6F22"), "\u6F22\u2026");
}

TEST(TextTable, CutsTheWidestColumnFirst) {
    TextTable table({{"A"}, {"B", TextTable::Align::right}});
    table.add({"aaaaaaaaaaaaaaaaaaaa", "bbbb"});
    table.add({"\n", "1"});
    std::ostringstream out;
    table.write(out, 16);
    EXPECT_EQ(out.str(),
              "A              B\n"
              "aaaaaaaaa\u2026  bbbb\n"
              "\\x0a           1\n");
}

}  // namespace
