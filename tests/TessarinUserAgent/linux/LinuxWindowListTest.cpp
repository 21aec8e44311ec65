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

TEST(LinuxWindowList, IsOutdatedWhenAnotherProcessOfAProgramIsInFrontThanWhenItWasPolled) {
    const auto windows = std::make_shared<fake::WindowList>();
    useragent::PolledWindowList polled(windows);
    windows->set({{{"A", 2}, {"B", 3}, {"A", 1}}});
    EXPECT_TRUE(polled.isOutdated()) << "nothing was polled yet";
    EXPECT_EQ(polled.copyOnScreenWindows()->size(), 3U);
    EXPECT_FALSE(polled.isOutdated());
    windows->set({{{"B", 3}, {"A", 2}, {"A", 1}, {"A", 2}}});
    EXPECT_FALSE(polled.isOutdated()) << "each program has the same process in front";
    windows->set({{{"A", 1}, {"A", 2}, {"B", 3}}});
    EXPECT_TRUE(polled.isOutdated());
    windows->set({{{"A", 2}}});
    EXPECT_TRUE(polled.isOutdated()) << "a program has gone";
    windows->set(std::nullopt);
    EXPECT_FALSE(polled.isOutdated()) << "nobody knows";
    EXPECT_FALSE(polled.copyOnScreenWindows());
    windows->set({{{"A", 2}, {"B", 3}}});
    EXPECT_FALSE(polled.isOutdated());
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
