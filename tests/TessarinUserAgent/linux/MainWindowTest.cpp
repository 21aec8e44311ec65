#include <gtest/gtest.h>

#include "accessibility/MainWindow.h"

using useragent::ChooseMainWindow;
using useragent::TopLevel;
using useragent::atspi::State;
using useragent::atspi::States;

namespace {

constexpr auto kInactive = State::showing | State::editable;
constexpr auto kActive = State::showing | State::active;

const TopLevel kFirst{"/1", 23, kInactive, "first"};
const TopLevel kSecond{"/2", 23, kInactive, "second"};
const TopLevel kActiveFrame{"/3", 23, kActive, "active"};
const TopLevel kActiveMenu{"/4", 23, kActive, ""};
const TopLevel kActiveDialog{"/5", 16, kActive, "Open File"};
const TopLevel kBubble{"/6", 23, kInactive, ""};

TEST(MainWindow, IsTheActiveFrame) {
    EXPECT_EQ(ChooseMainWindow({kFirst, kSecond, kActiveFrame}, {"/1"}, ""), 2);
}

TEST(MainWindow, WithoutAnActiveFrameIsTheLastOne) {
    EXPECT_EQ(ChooseMainWindow({kFirst, kSecond}, {"/2"}, ""), 1);
}

TEST(MainWindow, WithoutAnActiveFrameIsTheFrontMostOnScreen) {
    EXPECT_EQ(ChooseMainWindow({kFirst, kSecond}, {"/closed"}, "second"), 1);
    EXPECT_EQ(ChooseMainWindow({kFirst, kSecond}, {"/1"}, "second"), 1);
    EXPECT_EQ(ChooseMainWindow({kFirst, kSecond, kActiveFrame}, {}, "second"), 2);
    EXPECT_EQ(ChooseMainWindow({kFirst, kSecond}, {}, "of another program"), 0);
}

TEST(MainWindow, OfSeveralThatClaimToBeActiveIsTheFrontMostOnScreen) {
    const TopLevel alsoActive{"/8", 23, kActive, "also active"};
    EXPECT_EQ(ChooseMainWindow({kActiveFrame, alsoActive}, {"/3"}, "also active"), 1);
    EXPECT_EQ(ChooseMainWindow({kActiveFrame, alsoActive}, {"/8"}, ""), 1);
}

TEST(MainWindow, BehindAnotherProgramIsTheFrontMostWhateverClaimsToBeActive) {
    EXPECT_EQ(ChooseMainWindow({kFirst, kSecond, kActiveFrame}, {"/3"}, "second", true), 1);
    EXPECT_EQ(ChooseMainWindow({kFirst, kSecond, kActiveFrame}, {}, "of none of them", true), 2);
}

TEST(MainWindow, IsTheFrontMostAlsoWhenAMinimisedOneStillClaimsToBeActive) {
    const TopLevel minimised{"/10", 23, States{} | State::active, "minimised"};
    const TopLevel saidSo{"/10", 23, kActive | State::iconified, "minimised"};
    EXPECT_EQ(ChooseMainWindow({minimised, kFirst}, {"/10"}, "first"), 1);
    EXPECT_EQ(ChooseMainWindow({saidSo, kFirst}, {"/10"}, "first"), 1);
}

TEST(MainWindow, IsTheActiveOneAlsoWhenSomethingCoversIt) {
    const TopLevel covered{"/10", 23, States{} | State::active, "covered"};
    const TopLevel alsoCovered{"/13", 23, States{}, "also covered"};
    EXPECT_EQ(ChooseMainWindow({kFirst, covered}, {"/1"}, "covered"), 1);
    EXPECT_EQ(ChooseMainWindow({kFirst, covered}, {"/1"}, ""), 1);
    EXPECT_EQ(ChooseMainWindow({alsoCovered, covered}, {"/13"}, "also covered"), 1);
}

TEST(MainWindow, IsTheFrontMostAlsoWhenItsTitleOnScreenIsShorter) {
    const TopLevel isPrivate{"/11", 23, kInactive, "page - Browser (Private)"};
    EXPECT_EQ(ChooseMainWindow({kFirst, isPrivate}, {"/1"}, "page - Browser"), 1);
}

TEST(MainWindow, IsTheFrontMostAlsoWhenItsTitleBeginsWithThatOfItsFindBar) {
    const TopLevel popUp{"/14", 23, kInactive, "Find in page\n    page"};
    EXPECT_EQ(ChooseMainWindow({kFirst, popUp}, {"/1"}, "page - Browser"), 1);
    EXPECT_EQ(ChooseMainWindow({kFirst, popUp}, {"/1"}, "page"), 1);
    EXPECT_EQ(ChooseMainWindow({kFirst, popUp}, {"/1"}, "pages - Browser"), 0);
    EXPECT_EQ(ChooseMainWindow({kFirst, popUp}, {"/1"}, ""), 0);
}

TEST(MainWindow, IsRatherAnotherThanOneWhoseLastLineIsOnScreen) {
    const TopLevel popUp{"/14", 23, kInactive, "Find in page\n    page"};
    const TopLevel sameWord{"/15", 23, kInactive, "page - Browser"};
    const TopLevel withoutWords{"/16", 23, kInactive, "Find in page\n    "};
    EXPECT_EQ(ChooseMainWindow({popUp, sameWord}, {"/14"}, "page - Browser"), 1);
    EXPECT_EQ(ChooseMainWindow({kFirst, withoutWords}, {"/1"}, " of nobody"), 0);
}

TEST(MainWindow, IsRatherTheOneWhoseWholeTitleIsOnScreen) {
    const TopLevel isPrivate{"/11", 23, kInactive, "first (Private)"};
    EXPECT_EQ(ChooseMainWindow({isPrivate, kFirst}, {"/11"}, "first"), 1);
    EXPECT_EQ(ChooseMainWindow({isPrivate, kFirst}, {"/1"}, "first (Private)"), 0);
}

TEST(MainWindow, OfTwoWithTheSameTitleIsTheLastOne) {
    const TopLevel twin{"/9", 23, kInactive, "first"};
    EXPECT_EQ(ChooseMainWindow({kFirst, twin}, {"/9"}, "first"), 1);
}

TEST(MainWindow, OfSeveralWithTheSameTitleIsTheOneThatWasItLatest) {
    const TopLevel twin{"/9", 23, kInactive, "first"};
    const TopLevel third{"/12", 23, kInactive, "first"};
    EXPECT_EQ(ChooseMainWindow({kFirst, twin, third}, {"/closed", "/12", "/9", "/1"}, "first"), 2);
    EXPECT_EQ(ChooseMainWindow({kFirst, kSecond, twin}, {"/2", "/9"}, "first"), 2);
}

TEST(MainWindow, IsAMinimisedOneOnlyWhenAllAre) {
    const TopLevel minimised{"/10", 23, State::showing | State::iconified, "minimised"};
    EXPECT_EQ(ChooseMainWindow({minimised, kFirst}, {"/10"}, ""), 1);
    EXPECT_EQ(ChooseMainWindow({minimised}, {}, ""), 0);
}

TEST(MainWindow, WithoutALastOneIsTheFirstFrameWithATitle) {
    EXPECT_EQ(ChooseMainWindow({kBubble, kFirst, kSecond}, {}, ""), 1);
    EXPECT_EQ(ChooseMainWindow({kBubble, kFirst, kSecond}, {"/closed"}, ""), 1);
}

TEST(MainWindow, IsNeverAMenuABubbleOrADialog) {
    EXPECT_EQ(ChooseMainWindow({kActiveMenu, kActiveDialog, kBubble, kFirst, kSecond}, {"/2"}, ""), 4);
    EXPECT_EQ(ChooseMainWindow({kActiveMenu, kActiveDialog, kBubble}, {"/6"}, ""), std::nullopt);
}

TEST(MainWindow, IsNeverAFrameThatIsDead) {
    const TopLevel dead{"/7", 23, State::active | State::defunct, "dead"};
    EXPECT_EQ(ChooseMainWindow({dead, kFirst}, {"/7"}, "dead"), 1);
}

TEST(MainWindow, IsAbsentWithoutWindows) {
    EXPECT_EQ(ChooseMainWindow({}, {}, ""), std::nullopt);
}

}  // namespace
