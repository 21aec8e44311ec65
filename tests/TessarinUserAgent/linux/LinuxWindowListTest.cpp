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

TEST(LinuxWindowList, TellsAProcessesWindowsAndWhetherTheyAreInFrontOfAll) {
    class Fixed : public useragent::WindowList {
     public:
        std::optional<std::vector<useragent::WindowInfo>> copyOnScreenWindows() override {
            return std::vector<useragent::WindowInfo>{{"A", 1, "front"}, {"B", 2, "one"}, {"A", 1, {}}};
        }
    } windows;
    EXPECT_EQ(useragent::WindowsOf(1, windows).titles, (std::vector<std::string>{"front", ""}));
    EXPECT_TRUE(useragent::WindowsOf(1, windows).isInFront);
    EXPECT_EQ(useragent::WindowsOf(2, windows).titles, std::vector<std::string>{"one"});
    EXPECT_FALSE(useragent::WindowsOf(2, windows).isInFront);
    EXPECT_TRUE(useragent::WindowsOf(3, windows).titles.empty());
}

}  // namespace
