#include <gtest/gtest.h>

#include "accessibility/AtspiProtocol.h"

using useragent::atspi::AXRoleName;
using useragent::atspi::State;

namespace {

constexpr auto kEditable = State::editable | State::showing;

TEST(AtspiProtocol, EditableEntryOfOneLineIsATextField) {
    EXPECT_EQ(AXRoleName(79, kEditable | State::singleLine), "AXTextField");
}

TEST(AtspiProtocol, EditableComboBoxIsATextField) {
    EXPECT_EQ(AXRoleName(11, kEditable), "AXTextField");
}

TEST(AtspiProtocol, EntryWithTheRoleOfTextIsATextField) {
    EXPECT_EQ(AXRoleName(61, kEditable | State::singleLine), "AXTextField");
}

TEST(AtspiProtocol, EntryOfSeveralLinesIsNoTextField) {
    EXPECT_EQ(AXRoleName(79, kEditable | State::multiLine), "AXTextArea");
    EXPECT_EQ(AXRoleName(79, kEditable), "AXTextArea");
}

TEST(AtspiProtocol, ReadOnlyEntryOfOneLineIsATextField) {
    EXPECT_EQ(AXRoleName(79, State::showing | State::singleLine), "AXTextField");
    EXPECT_EQ(AXRoleName(11, State::showing | State::singleLine), "AXTextField");
}

TEST(AtspiProtocol, ListToChooseFromIsNoTextField) {
    EXPECT_EQ(AXRoleName(11, State::showing | State::active), "AXPopUpButton");
}

TEST(AtspiProtocol, FrameThatHoldsADocumentIsAWebArea) {
    EXPECT_EQ(AXRoleName(28, 0), "AXWebArea");
}

TEST(AtspiProtocol, PasswordIsNoTextField) {
    EXPECT_EQ(AXRoleName(40, kEditable | State::singleLine), "AXUnknown");
}

TEST(AtspiProtocol, OtherRolesHaveTheirNearestName) {
    EXPECT_EQ(AXRoleName(23, 0), "AXWindow");
    EXPECT_EQ(AXRoleName(43, 0), "AXButton");
    EXPECT_EQ(AXRoleName(63, 0), "AXToolbar");
    EXPECT_EQ(AXRoleName(95, 0), "AXWebArea");
    EXPECT_EQ(AXRoleName(116, 0), "AXStaticText");
}

TEST(AtspiProtocol, RolesNobodyKnowsAreUnknown) {
    EXPECT_EQ(AXRoleName(0, 0), "AXUnknown");
    EXPECT_EQ(AXRoleName(4000000000U, ~0ULL), "AXUnknown");
}

}  // namespace
