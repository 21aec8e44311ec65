#include <chrono>
#include <filesystem>

#include "AtspiFixture.h"
#include "support/MuteSocket.h"

using useragent::AtspiAccessibility;
using useragent::AXError;
using useragent::AXValue;
using namespace std::chrono_literals;

namespace {

class AccessibilityBusTest : public AtspiFixture {
 protected:
    // The socket is no bus, neither as session bus nor as accessibility bus, and holds up no other bus.
    void expectNoBus() {
        for (const bool isSessionBus : {true, false}) {
            AtspiAccessibility tried(dispatch, {isSessionBus ? address : desktop.sessionBus.address(),
                                                isSessionBus ? "" : address, kDeadline});
            EXPECT_LT(timeOf([&] { EXPECT_FALSE(tried.isProcessTrusted()); }), kOneWait);
            EXPECT_LT(timeOf([&] { tried.prepare({{std::nullopt, getpid()}}); }), kOneWait);
            AXValue value;
            EXPECT_EQ(tried.copyAttributeValue(tried.createApplication(getpid()), "AXMainWindow", value),
                      AXError::apiDisabled);
            EXPECT_LT(timeOf([&] { EXPECT_TRUE(accessibility->isProcessTrusted()); }), kOneWait);
        }
    }

    fake::TemporaryFolder folder;
    const std::string path = folder / "bus";
    const std::string address = "unix:path=" + path;
};

TEST_F(AccessibilityBusTest, WaitsForASilentSocketOnlyUntilTheDeadline) {
    const fake::MuteSocket mute(path);
    expectNoBus();
}

TEST_F(AccessibilityBusTest, WaitsOnlyUntilTheDeadlineForASocketThatAuthenticatesAndKeepsSilent) {
    const fake::MuteSocket mute(path, true);
    expectNoBus();
}

TEST_F(AccessibilityBusTest, FailsAtASocketThatLetsNobodyIn) {
    const fake::MuteSocket refusing(path, true, "REJECTED DBUS_COOKIE_SHA1\r\nERROR\r\nERROR\r\n");
    expectNoBus();
    EXPECT_EQ(log.count("does not let this user in"), 1U);
}

TEST_F(AccessibilityBusTest, FailsAtASocketThatIsNoBus) {
    const fake::MuteSocket other(path, true, "220 ready\r\n500 what\r\n500 what\r\n");
    expectNoBus();
    EXPECT_EQ(log.count("does not let this user in"), 1U);
}

TEST_F(AccessibilityBusTest, TellsWhyASocketThatNobodyListensAtIsNoBus) {
    { const fake::MuteSocket closed(path); }
    ASSERT_TRUE(std::filesystem::exists(path));
    expectNoBus();
    EXPECT_EQ(log.linesWith(path).size(), 1U) << "once";
    EXPECT_TRUE(log.contains("refused"));
}

TEST_F(AccessibilityBusTest, NeedsNoneOfTheQueuesToFindTheBus) {
    AtspiAccessibility late(dispatch, {desktop.sessionBus.address(), {}, std::chrono::seconds(10)});
    dispatch->stop();
    EXPECT_TRUE(late.isProcessTrusted());
}

TEST_F(AccessibilityBusTest, FindsNoBusOnceTheLoopHasStopped) {
    const auto loop = std::make_shared<cmn::bus::Loop>();
    AtspiAccessibility late(dispatch, {desktop.sessionBus.address(), {}, kDeadline}, loop);
    loop->stop();
    EXPECT_LT(timeOf([&] { EXPECT_FALSE(late.isProcessTrusted()); }), 2 * kOneWait);
}

TEST_F(AccessibilityBusTest, AReadEndsInTimeAfterTheLoopHasStopped) {
    fake::AtspiApplication application(desktop.accessibilityBus.address());
    application.addWindow("Page", "start");
    desktop.registerApplication(application.busName());
    const auto loop = std::make_shared<cmn::bus::Loop>();
    AtspiAccessibility late(dispatch, {desktop.sessionBus.address(), {}, kDeadline}, loop);
    ASSERT_TRUE(late.isProcessTrusted());
    loop->stop();
    AXValue value;
    EXPECT_LT(timeOf([&] {
                  EXPECT_EQ(late.copyAttributeValue(late.createApplication(getpid()), "AXMainWindow", value),
                            AXError::cannotComplete);
              }),
              kOneWait);
}

}  // namespace
