#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "interface/ToolkitPlatform.h"

using testing::HasSubstr;
using useragent::Displays;
using useragent::PlatformsToTry;
using useragent::WhyNothingIsShown;

namespace {

constexpr Displays kNone{};
constexpr Displays kX11{true, false};
constexpr Displays kWayland{false, true};
constexpr Displays kBoth{true, true};

TEST(ToolkitPlatform, TriesTheDisplaysThatAnswerAndThenNone) {
    EXPECT_EQ(PlatformsToTry("", kBoth), "wayland;xcb;offscreen");
    EXPECT_EQ(PlatformsToTry("", kWayland), "wayland;offscreen");
    EXPECT_EQ(PlatformsToTry("", kX11), "xcb;offscreen");
    EXPECT_EQ(PlatformsToTry("", kNone), "offscreen");
}

TEST(ToolkitPlatform, TakesWhatTheEnvironmentAsksForAsFarAsItAnswers) {
    EXPECT_EQ(PlatformsToTry("xcb", kBoth), "xcb;offscreen");
    EXPECT_EQ(PlatformsToTry("wayland-egl;xcb", kX11), "xcb;offscreen");
    EXPECT_EQ(PlatformsToTry("wayland-egl;xcb", kWayland), "wayland-egl;offscreen");
    EXPECT_EQ(PlatformsToTry("vnc:size=640x480", kNone), "vnc:size=640x480;offscreen");
}

TEST(ToolkitPlatform, SaysNothingWhereWindowsAreShownOrNotWanted) {
    EXPECT_EQ(WhyNothingIsShown("", "wayland;xcb;offscreen", "xcb"), "");
    EXPECT_EQ(WhyNothingIsShown("offscreen", "offscreen;offscreen", "offscreen"), "");
}

TEST(ToolkitPlatform, SaysWhatIsMissing) {
    EXPECT_THAT(WhyNothingIsShown("", "wayland;xcb;offscreen", "offscreen"), HasSubstr("qt6-wayland"));
    EXPECT_THAT(WhyNothingIsShown("", "xcb;offscreen", "offscreen"), HasSubstr("QT_DEBUG_PLUGINS"));
    EXPECT_THAT(WhyNothingIsShown("xcb", "offscreen", "offscreen"), HasSubstr("no display answers"));
}

}  // namespace
