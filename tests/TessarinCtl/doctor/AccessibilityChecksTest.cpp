#include "World.h"

namespace ctl {
namespace {

class AccessibilityChecksTest : public World {};

TEST_F(AccessibilityChecksTest, TheBusOfASessionWithoutAccessibilityIsMissed) {
    const fake::PrivateBus bare;
    sessionAddress = bare.address();
    EXPECT_THAT(run(CheckAccessibilityBus),
                Is(Verdict::wrong, "has no accessibility", "apt-get install at-spi2-core"));
    EXPECT_THAT(run(CheckAccessibilitySwitch),
                Is(Verdict::wrong, "cannot be told", "apt-get install at-spi2-core"));
}

TEST_F(AccessibilityChecksTest, ABusThatIsGoneIsTold) {
    desktop.accessibilityBus.kill();
    EXPECT_THAT(run(CheckAccessibilityBus),
                Is(Verdict::wrong, "bus cannot be reached", "at-spi-bus-launcher"));
}

TEST_F(AccessibilityChecksTest, ARegistryThatIsGoneOrHangsIsTold) {
    desktop.holdRegistry();
    EXPECT_THAT(run(CheckAccessibilityBus, kShort),
                Is(Verdict::wrong, "registry cannot be asked", "at-spi2-registryd"));
    desktop.dropRegistry();
    EXPECT_THAT(run(CheckAccessibilityBus),
                Is(Verdict::wrong, "registry cannot be asked", "XDG_SESSION_TYPE"));
}

TEST_F(AccessibilityChecksTest, WhatIsOffIsSwitchedOn) {
    desktop.isEnabled = false;
    const Finding finding = run(CheckAccessibilitySwitch);
    ASSERT_THAT(finding, Is(Verdict::wrong, "It is off", "busctl --user set-property org.a11y.Bus"));
    finding.mend(machine(), cmn::bus::Clock::now() + std::chrono::seconds(20));
    EXPECT_TRUE(desktop.isEnabled);
    EXPECT_THAT(run(CheckAccessibilitySwitch), IsGood());
    sessionAddress = "";
    EXPECT_THROW(finding.mend(machine(), cmn::bus::Clock::now() + kShort), std::runtime_error);
}

TEST_F(AccessibilityChecksTest, WhatTheAgentSaysOfBrowsersGoesBeforeAnOwnLook) {
    ofAgent = {{"Firefox", 1, true}, {"Google Chrome", 2, false, "it shows nothing"}};
    EXPECT_THAT(run(CheckBrowsers),
                Is(Verdict::wrong,
                   "Firefox (process 1) is read; Google Chrome (process 2) is not read: it shows nothing",
                   "--force-renderer-accessibility=basic"));
    ofAgent.reset();
    seen = {{"Firefox", 3, false, "it is away"}};
    EXPECT_THAT(run(CheckBrowsers),
                Is(Verdict::wrong, "Firefox (process 3) is not read: it is away", "start Firefox again"));
}

TEST_F(AccessibilityChecksTest, WithoutABrowserThereIsNothingToRead) {
    seen.emplace().clear();
    EXPECT_EQ(run(CheckBrowsers).verdict, Verdict::notApplicable);
    seen.reset();
    EXPECT_THAT(run(CheckBrowsers), Is(Verdict::warning, "cannot be told", "above"));
}

}  // namespace
}  // namespace ctl
