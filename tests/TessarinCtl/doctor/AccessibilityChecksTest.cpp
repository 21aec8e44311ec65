#include <QVariant>

#include "World.h"
#include "common/json.h"
#include "doctor/AgentBrowsers.h"
#include "useragent/AgentStatus.h"

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

TEST_F(AccessibilityChecksTest, TheAgentIsAskedOnTheSessionsBus) {
    const Machine asking = machine();
    const auto ask = [&](std::chrono::milliseconds time) {
        return BrowsersOfAgent(*asking.buses, cmn::bus::Clock::now() + time);
    };
    EXPECT_FALSE(ask(std::chrono::seconds(20)).has_value()) << "what it says is no status";
    useragent::AgentStatus status;
    status.browsers = {{"Firefox", 7, 12, ""}, {"Google Chrome", 8, std::nullopt, ""}};
    agent.reset();
    agent = std::make_unique<fake::RawPeer>(
        sessionAddress, [&](const QDBusMessage& call, QDBusConnection connection) {
            EXPECT_EQ(call.interface().toStdString() + "." + call.member().toStdString(),
                      "com.tessarin.TessarinUserAgent.Status.Get");
            EXPECT_EQ(call.arguments(), QVariantList{false}) << "no addresses";
            connection.send(call.createReply(QString::fromStdString(cmn::proto::ObjectToJson(status))));
        });
    ASSERT_TRUE(agent->own("com.tessarin.TessarinUserAgent"));
    const Browsers told = ask(std::chrono::seconds(20));
    ASSERT_TRUE(told && told->size() == 2);
    EXPECT_EQ((*told)[0].name, "Firefox");
    EXPECT_EQ((*told)[0].pid, 7);
    EXPECT_TRUE((*told)[0].isRead);
    EXPECT_FALSE((*told)[1].isRead);
    agent.reset();
    EXPECT_FALSE(ask(std::chrono::seconds(20)).has_value()) << "nobody is there";
    agent = silent(desktop.sessionBus, "com.tessarin.TessarinUserAgent");
    EXPECT_FALSE(ask(kShort).has_value());
}

TEST_F(AccessibilityChecksTest, WithoutABrowserThereIsNothingToRead) {
    seen.emplace().clear();
    EXPECT_EQ(run(CheckBrowsers).verdict, Verdict::notApplicable);
    seen.reset();
    EXPECT_THAT(run(CheckBrowsers), Is(Verdict::warning, "cannot be told", "above"));
}

}  // namespace
}  // namespace ctl
