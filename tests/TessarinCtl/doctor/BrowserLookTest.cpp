#include <thread>

#include "World.h"
#include "doctor/BrowserLook.h"
#include "support/Environment.h"
#include "support/FakeAccessibility.h"
#include "support/FakeWindowList.h"

namespace ctl {
namespace {

class BrowserLookTest : public testing::Test {
 protected:
    // Looks once.
    Browsers look() { return LookAtBrowsers(accessibility, windows, cmn::bus::Clock::now()); }

    fake::LogCapture log;
    fake::Accessibility accessibility;
    fake::WindowList windows;
};

TEST_F(BrowserLookTest, ABrowserWithAnAddressFieldIsRead) {
    accessibility.addBrowser(7, "https://example.org");
    windows.set({{{"Firefox", 7}, {"Firefox", 8}, {"Terminal", 9}}});
    const Browsers seen = look();
    ASSERT_TRUE(seen);
    ASSERT_EQ(seen->size(), 1U);
    EXPECT_EQ(seen->front().name, "Firefox");
    EXPECT_EQ(seen->front().pid, 7);
    EXPECT_TRUE(seen->front().isRead) << seen->front().why;
}

TEST_F(BrowserLookTest, ABrowserWithoutOneSaysWhy) {
    auto empty = accessibility.addBrowser(7, "");
    empty.window->children({});
    accessibility.addBrowser(8, "").application->fail(useragent::kMainWindowAttribute,
                                                      useragent::AXError::cannotComplete);
    windows.set({{{"Firefox", 7}, {"Google Chrome", 8}}});
    const Browsers seen = look();
    ASSERT_TRUE(seen);
    ASSERT_EQ(seen->size(), 2U);
    for (const BrowserState& browser : *seen) {
        EXPECT_FALSE(browser.isRead);
        EXPECT_THAT(browser.why, testing::HasSubstr(browser.pid == 7 ? "no address field"
                                                                     : "not on the accessibility bus"));
    }
}

TEST_F(BrowserLookTest, ABrowserThatWakesUpIsLookedAtAgain) {
    auto sleeping = accessibility.addBrowser(7, "");
    sleeping.window->children({});
    windows.set({{{"Firefox", 7}}});
    std::thread wakes([&] {
        while (windows.calls() < 2) {
            std::this_thread::yield();
        }
        sleeping.window->children({useragent::AXElementRef(sleeping.field)});
    });
    const Browsers seen =
        LookAtBrowsers(accessibility, windows, cmn::bus::Clock::now() + std::chrono::seconds(20));
    wakes.join();
    ASSERT_TRUE(seen && seen->size() == 1);
    EXPECT_TRUE(seen->front().isRead);
}

TEST_F(BrowserLookTest, WithoutAListOfWindowsNothingIsKnown) {
    windows.set(std::nullopt);
    EXPECT_EQ(look().has_value(), false);
    windows.set({{}});
    ASSERT_TRUE(look());
    EXPECT_TRUE(look()->empty());
}

// With the real ends: on a session of its own there is no browser.
TEST_F(BrowserLookTest, TheLookOfThisProcessEndsInTime) {
    const fake::AtspiDesktop desktop;
    const fake::Environment session("DBUS_SESSION_BUS_ADDRESS", desktop.sessionBus.address());
    const fake::Environment noX("DISPLAY", std::nullopt);
    const fake::Environment noWayland("WAYLAND_DISPLAY", std::nullopt);
    const Browsers seen = LookAtBrowsers(cmn::bus::Clock::now() + std::chrono::milliseconds(500));
    ASSERT_TRUE(seen);
    EXPECT_TRUE(seen->empty());
}

}  // namespace
}  // namespace ctl
