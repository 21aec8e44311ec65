#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "impl_linux/property_list.h"

namespace {

using cmn::FindPlistString;

std::string Plist(const std::string& entries) {
    return R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Tessarin//DTD PLIST 1.0//EN" "PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
)" + entries +
           "</dict>\n</plist>\n";
}

std::optional<std::string> Version(const std::string& plist) {
    return FindPlistString(plist, "Version");
}

TEST(PlistTest, FindsTheStringUnderAKey) {
    const auto plist =
        Plist("<key>Name</key> <string>x</string>\n<key>Version</key>\n\t<string>1.2</string>\n");
    EXPECT_EQ(Version(plist), "1.2");
    EXPECT_EQ(FindPlistString(plist, "Name"), "x");
    EXPECT_EQ(FindPlistString(plist, "name"), std::nullopt);
}

TEST(PlistTest, MissingKeyIsEmpty) {
    EXPECT_EQ(Version(Plist("")), std::nullopt);
    EXPECT_EQ(Version(Plist("<key>Other</key><string>1</string>")), std::nullopt);
    EXPECT_EQ(Version(""), std::nullopt);
    EXPECT_EQ(Version("bplist00 no text at all"), std::nullopt);
}

TEST(PlistTest, EmptyStringIsAString) {
    EXPECT_EQ(Version(Plist("<key>Version</key><string></string>")), "");
    EXPECT_EQ(Version(Plist("<key>Version</key><string/>")), "");
}

TEST(PlistTest, TakesOnlyStrings) {
    EXPECT_EQ(Version(Plist("<key>Version</key><integer>1</integer>")), std::nullopt);
    EXPECT_EQ(Version(Plist("<key>Version</key><true/>")), std::nullopt);
    EXPECT_EQ(Version(Plist("<key>Version</key><array><string>1</string></array>")), std::nullopt);
    EXPECT_EQ(Version(Plist("<key>Version</key><key>Other</key><string>1</string>")), std::nullopt);
    EXPECT_EQ(Version(Plist("<key>Version</key>")), std::nullopt);
}

TEST(PlistTest, AValueIsNoKey) {
    EXPECT_EQ(Version(Plist("<key>Name</key><string>Version</string><key>Other</key><string>1</string>")),
              std::nullopt);
    EXPECT_EQ(Version(Plist("<key>Name</key><string>Version</string><string>1</string>")), std::nullopt);
}

TEST(PlistTest, LooksIntoTheTopDictionaryAlone) {
    const std::string inner = "<key>Version</key><string>inner</string>";
    EXPECT_EQ(
        Version(Plist("<key>Types</key><array><dict>" + inner + "</dict></array>" + "<key>More</key><dict>" +
                      inner + "</dict>" + "<key>Flag</key><false/><key>Version</key><string>top</string>")),
        "top");
    EXPECT_EQ(Version(Plist("<key>More</key><dict>" + inner + "</dict>")), std::nullopt);
}

TEST(PlistTest, PassesOverComments) {
    EXPECT_EQ(Version("<!-- <plist> -->" +
                      Plist("<!-- <key>Version</key><string>0</string> -->"
                            "<key>Version<!-- x --></key><!-- > --><string>1<!-- 2 -->3</string>")),
              "13");
}

TEST(PlistTest, ResolvesEntitiesAndCharacterData) {
    EXPECT_EQ(Version(Plist(
                  "<key>V&#101;rsion</key><string>&lt;&amp;&gt;&quot;&apos;&#65;&#x4e2d;&#x1F600;</string>")),
              "<&>\"'A\u4e2d\U0001F600");
    EXPECT_EQ(Version(Plist("<key>Version</key><string>a<![CDATA[<b>&amp;]]>c</string>")), "a<b>&amp;c");
}

TEST(PlistTest, LeavesWhatIsNoEntityAsItIs) {
    for (const auto* text : {"&unknown;", "&", "a & b"})
        EXPECT_EQ(Version(Plist("<key>Version</key><string>" + std::string(text) + "</string>")), text);
}

TEST(PlistTest, ReferenceToNoCharacterIsEmpty) {
    for (const auto* text : {"&#0;", "&#x110000;", "&#xD800;", "&#;", "&#x;", "&#1x;"}) {
        EXPECT_EQ(Version(Plist("<key>Version</key><string>" + std::string(text) + "</string>")),
                  std::nullopt)
            << text;
    }
}

TEST(PlistTest, TextThatIsNotUtf8IsEmpty) {
    EXPECT_EQ(Version(Plist("<key>Version</key><string>1\xFF</string>")), std::nullopt);
    EXPECT_EQ(Version(Plist("<key>\xFF</key><string>0</string><key>Version</key><string>1</string>")), "1");
}

TEST(PlistTest, TakesAttributesAndBlanksInTags) {
    EXPECT_EQ(Version(Plist("<key >Version</key ><string\n id=\"a\">1</string>")), "1");
}

TEST(PlistTest, BrokenTextIsEmptyAtEveryPlaceItMayBreak) {
    const auto whole = Plist("<key>Version</key><string>1.2</string>");
    const auto end = whole.find("</plist>") + 8;
    for (std::size_t size = 0; size < end; ++size)
        EXPECT_EQ(Version(whole.substr(0, size)), std::nullopt) << size;
    EXPECT_EQ(Version(whole.substr(0, end)), "1.2");
    EXPECT_EQ(Version(whole + "more"), std::nullopt);
    EXPECT_EQ(Version(Plist("<key>Version</key><string>1<></string>")), std::nullopt);
    EXPECT_EQ(Version(Plist("<key>Version</key><string>1<b>2</b></string>")), std::nullopt);
    EXPECT_EQ(Version(Plist("<![CDATA[ <key>Version</key><string>1</string>")), std::nullopt);
    EXPECT_EQ(Version(Plist("<!-- <key>Version</key><string>1</string>")), std::nullopt);
}

TEST(PlistTest, TakesAListOfNoOtherShape) {
    const std::string entry = "<key>Version</key><string>1</string>";
    EXPECT_EQ(Version("<plist><dict>" + entry + "</dict></plist>"), "1");
    EXPECT_EQ(Version("<dict>" + entry + "</dict>"), std::nullopt);
    EXPECT_EQ(Version("<plist>" + entry + "</plist>"), std::nullopt);
    EXPECT_EQ(Version("<plist><array>" + entry + "</array></plist>"), std::nullopt);
    EXPECT_EQ(Version("<other><dict>" + entry + "</dict></other>"), std::nullopt);
}

std::string NestedArrays(std::size_t size) {
    const std::string open = "<a>", close = "</a>";
    std::string text;
    const auto levels = size / (open.size() + close.size());
    for (std::size_t i = 0; i < levels; ++i)
        text += open;
    for (std::size_t i = 0; i < levels; ++i)
        text += close;
    return text;
}

TEST(PlistTest, ReadsAsDeepAsTheLongestTextGoes) {
    const auto entry = "<key>Version</key><string>1</string>";
    const auto plain = Plist(entry);
    const auto deep = NestedArrays(cmn::kMaxPropertyList - plain.size());
    EXPECT_EQ(Version(Plist(entry + deep)), "1");
    EXPECT_EQ(Version(Plist(entry + std::string(cmn::kMaxPropertyList - plain.size(), ' '))), "1");
    EXPECT_EQ(Version(Plist(entry + std::string(cmn::kMaxPropertyList - plain.size() + 1, ' '))),
              std::nullopt);
    // The stack would not hold it.
    EXPECT_EQ(Version(Plist(entry + NestedArrays(1 << 20))), std::nullopt);
}

}  // namespace
