#include <gtest/gtest.h>

#include "windowlist/LinuxWindowList.h"

using useragent::ChooseWindowSource;
using useragent::WindowSource;

namespace {

TEST(LinuxWindowList, AsksTheXServerWhereItKnowsAllWindows) {
    EXPECT_EQ(ChooseWindowSource("", true), WindowSource::xServer);
}

TEST(LinuxWindowList, AsksTheAccessibilityBusUnderWayland) {
    EXPECT_EQ(ChooseWindowSource("wayland-0", true), WindowSource::accessibilityBus);
    EXPECT_EQ(ChooseWindowSource("wayland-0", false), WindowSource::accessibilityBus);
}

TEST(LinuxWindowList, AsksTheAccessibilityBusWithoutADisplayThatAnswers) {
    EXPECT_EQ(ChooseWindowSource("", false), WindowSource::accessibilityBus);
}

}  // namespace
