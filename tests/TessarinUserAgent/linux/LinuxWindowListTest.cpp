#include <gtest/gtest.h>

#include "support/FakeWindowList.h"
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

TEST(LinuxWindowList, TellsTheProcessOfEachProgramsFrontMostWindow) {
    fake::WindowList windows;
    windows.set({{{"A", 2}, {"B", 3}, {"A", 1}, {std::nullopt, 4}}});
    EXPECT_EQ(useragent::FrontProcesses(windows),
              (std::map<std::string, std::int32_t>{{"", 4}, {"A", 2}, {"B", 3}}));
    windows.set(std::nullopt);
    EXPECT_TRUE(useragent::FrontProcesses(windows).empty());
}

TEST(LinuxWindowList, TellsAProcessesWindowsAndWhetherTheyAreInFrontOfAll) {
    fake::WindowList windows;
    windows.set({{{"A", 1, "front"}, {"B", 2, "one"}, {"A", 1, {}}}});
    EXPECT_EQ(useragent::WindowsOf(1, windows).titles, (std::vector<std::string>{"front", ""}));
    EXPECT_TRUE(useragent::WindowsOf(1, windows).isInFront);
    EXPECT_EQ(useragent::WindowsOf(2, windows).titles, std::vector<std::string>{"one"});
    EXPECT_FALSE(useragent::WindowsOf(2, windows).isInFront);
    EXPECT_TRUE(useragent::WindowsOf(3, windows).titles.empty());
}

}  // namespace
