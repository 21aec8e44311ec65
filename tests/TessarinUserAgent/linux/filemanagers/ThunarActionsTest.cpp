#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "filemanagers/ThunarActions.h"

namespace useragent::thunar {
namespace {

const std::string kOurs =
    "<action>\n\t<unique-id>tessarin-properties</unique-id>\n\t<command>'/h' %F</command>\n</action>";

const std::string kForeign =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!-- the user's <actions> -->\n"
    "<actions>\n"
    "<action attribute=\"a > b '\">\n"
    "\t<name>Öffnen &amp; <![CDATA[</action>]]></name>\n"
    "\t<unique-id>1-1</unique-id>\n"
    "\t<!-- <unique-id>tessarin-properties</unique-id> -->\n"
    "</action>\n"
    "<!-- between --><action/>\n"
    "\t <!-- last -->\r\n"
    "</actions>\n"
    "<!-- after -->\n";

TEST(ThunarActionsTest, AddsAfterTheLastActionAndLeavesEverythingElseAlone) {
    std::string expected = kForeign;
    const std::string last = "<action/>";
    expected.insert(expected.find(last) + last.size(), "\n" + kOurs);
    EXPECT_FALSE(HasAction(kForeign));
    EXPECT_EQ(WithAction(kForeign, kOurs), expected);
    EXPECT_TRUE(HasAction(expected));
}

TEST(ThunarActionsTest, RemovingGivesBackEveryByte) {
    for (const std::string& list :
         {kForeign, std::string(kEmptyList), std::string("<actions></actions>"),
          std::string("\xEF\xBB\xBF<actions>\r\n</actions>\r\n"),
          std::string("<?xml version='1.0' encoding='ISO-8859-1'?><actions  a='>'><x><y/></x></actions>")}) {
        const std::string with = WithAction(list, kOurs);
        EXPECT_TRUE(HasAction(with)) << with;
        EXPECT_EQ(WithoutAction(with), list);
        EXPECT_EQ(WithoutAction(list), list);
    }
}

TEST(ThunarActionsTest, AListThatIsOneEmptyTagBecomesAList) {
    const std::string with = WithAction("<?xml version=\"1.0\"?><actions />", kOurs);
    EXPECT_EQ(with, "<?xml version=\"1.0\"?><actions >\n" + kOurs + "\n</actions>");
    EXPECT_EQ(WithoutAction(with), "<?xml version=\"1.0\"?><actions >\n</actions>");
}

TEST(ThunarActionsTest, AddingTwiceAddsOnce) {
    const std::string once = WithAction(kForeign, kOurs);
    EXPECT_EQ(WithAction(once, kOurs), once);
}

TEST(ThunarActionsTest, KeepsWhatTheUserMadeOfTheActionWhileItDoesTheSame) {
    const std::string changed =
        "<actions>\n<action>\n\t<icon>mine</icon><unique-id> tessarin-properties\n</unique-id>"
        "<command>&apos;/h&apos; %F</command><submenu>Mine</submenu></action>\n</actions>";
    EXPECT_TRUE(HasAction(changed));
    EXPECT_EQ(WithAction(changed, kOurs), changed);
}

TEST(ThunarActionsTest, ReplacesAnActionThatStartsSomethingElse) {
    const std::string old =
        "<actions><action><unique-id>tessarin-properties</unique-id><command>/old</command></action>"
        "<action><unique-id>2</unique-id></action></actions>";
    EXPECT_EQ(WithAction(old, kOurs),
              "<actions>" + kOurs + "<action><unique-id>2</unique-id></action></actions>");
}

TEST(ThunarActionsTest, RemovesEveryOneOfOurs) {
    EXPECT_EQ(WithoutAction("<actions>\n" + kOurs + "<action><name/></action>\n" + kOurs + "\n</actions>"),
              "<actions><action><name/></action>\n</actions>");
}

TEST(ThunarActionsTest, TheIdCountsOnlyInItsPlace) {
    for (const char* list :
         {"<actions><unique-id>tessarin-properties</unique-id></actions>",
          "<actions><action><name>tessarin-properties</name></action></actions>",
          "<actions><other><unique-id>tessarin-properties</unique-id></other></actions>",
          "<actions><action><x><unique-id>tessarin-properties</unique-id></x></action></actions>",
          "<actions><action><unique-id>tessarin-properties-2</unique-id></action></actions>"}) {
        EXPECT_FALSE(HasAction(list)) << list;
        EXPECT_EQ(WithoutAction(list), list);
    }
}

TEST(ThunarActionsTest, RefusesWhatThunarCannotRead) {
    for (const char* text :
         {"", "text", "<actions>", "<actions><action></actions>", "<actions></actions><more/>",
          "<actions>&unknown;</actions>", "<menu></menu>", "<actions>\xFC</actions>",
          "<!DOCTYPE actions [<!ENTITY a '<'>]><actions></actions>"}) {
        EXPECT_THROW(HasAction(text), std::runtime_error) << text;
        EXPECT_THROW(WithAction(text, kOurs), std::runtime_error) << text;
        EXPECT_THROW(WithoutAction(text), std::runtime_error) << text;
    }
}

TEST(ThunarActionsTest, KnowsAListThatItMade) {
    const std::string made = WithAction(kEmptyList, MarkedAsMaker(kOurs));
    EXPECT_TRUE(HasAction(made));
    EXPECT_TRUE(IsMadeByUs(made));
    EXPECT_EQ(WithoutAction(made), kEmptyList);
    EXPECT_FALSE(IsMadeByUs(WithAction(kEmptyList, kOurs)));
}

}  // namespace
}  // namespace useragent::thunar
