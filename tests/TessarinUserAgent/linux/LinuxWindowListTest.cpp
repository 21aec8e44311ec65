#include <gtest/gtest.h>

#include "windowlist/LinuxWindowList.h"

using useragent::ChooseWindowSource;
using useragent::WindowSource;

namespace {

TEST(LinuxWindowList, AsksTheXServerWhereItKnowsAllWindows) {
    EXPECT_EQ(ChooseWindowSource("", ":0"), WindowSource::xServer);
}

TEST(LinuxWindowList, AsksTheAccessibilityBusUnderWayland) {
    EXPECT_EQ(ChooseWindowSource("wayland-0", ":0"), WindowSource::accessibilityBus);
    EXPECT_EQ(ChooseWindowSource("wayland-0", ""), WindowSource::accessibilityBus);
}

TEST(LinuxWindowList, AsksTheAccessibilityBusWithoutAnyDisplay) {
    EXPECT_EQ(ChooseWindowSource("", ""), WindowSource::accessibilityBus);
}

}  // namespace
