#include <chrono>
#include <memory>
#include <thread>

#include "AtspiBrowser.h"
#include "AtspiFixture.h"
#include "accessibility/AccessibilityBus.h"

using fake::Browser;
using useragent::AXElementRef;
using useragent::AXError;
using useragent::AXObserver;
using useragent::kMainWindowChangedNotification;
using useragent::kValueChangedNotification;
using namespace std::chrono_literals;

namespace {

class AtspiRecoveryTest : public AtspiFixture {
 protected:
    AtspiRecoveryTest() : AtspiFixture(kDeadline) {}

    std::unique_ptr<AXObserver> observe(std::int32_t pid, const AXElementRef& element,
                                        const std::string& notification) {
        std::unique_ptr<AXObserver> observer;
        EXPECT_EQ(accessibility->createObserver(pid, seen.callback(), observer), AXError::success);
        EXPECT_EQ(observer->addNotification(element, notification), AXError::success);
        observer->addToMainRunLoop();
        return observer;
    }

    Notifications seen;
};

TEST_F(AtspiRecoveryTest, WaitsForASilentApplicationOnlyUntilTheDeadline) {
    fake::AtspiApplication application(desktop.accessibilityBus.address());
    application.addWindow("Page", "start");
    desktop.registerApplication(application.busName());
    const AXElementRef field = addressField();
    application.hold();
    const auto time = timeOf([&] { EXPECT_FALSE(text(field, "AXValue")); });
    EXPECT_EQ(error, AXError::cannotComplete);
    EXPECT_GE(time, kDeadline - 50ms);
    EXPECT_LT(time, kOneWait);
    EXPECT_TRUE(log.contains("does not answer"));  // more than once when it has been asked again meanwhile
}

TEST_F(AtspiRecoveryTest, ReadsAgainWhatWasNotAnsweredInTime) {
    fake::AtspiApplication application(desktop.accessibilityBus.address());
    const auto window = application.addWindow("Page", "start");
    desktop.registerApplication(application.busName());
    const auto observer = observe(getpid(), foundField(), kValueChangedNotification);
    application.hold();
    application.edit(window.field, "missed");
    ASSERT_TRUE(fake::WaitFor([&] { return log.contains("does not answer"); }));
    // Its bus library answers pings all the time, so the second read is on its way.
    application.release();
    EXPECT_TRUE(fake::WaitFor(
        [&] { return !seen.entries.empty() && text(seen.entries.back().element, "AXValue") == "missed"; }));
}

TEST_F(AtspiRecoveryTest, ExaminesAWindowAgainThatItCouldNotExamineInTime) {
    fake::AtspiApplication application(desktop.accessibilityBus.address());
    application.addWindow("Page", "start");
    const auto second = application.addWindow("Second", "second");
    desktop.registerApplication(application.busName());
    ASSERT_TRUE(mainWindow());
    const auto observer =
        observe(getpid(), accessibility->createApplication(getpid()), kMainWindowChangedNotification);
    application.hold();
    application.activate(second.frame, "Second");
    ASSERT_TRUE(fake::WaitFor([&] { return log.contains("does not answer"); }));
    application.release();
    ASSERT_TRUE(fake::WaitFor([&] { return !seen.entries.empty(); }));
    EXPECT_EQ(text(mainWindow(), "AXDescription"), "Second");
}

TEST_F(AtspiRecoveryTest, WaitsForAStoppedBrowserOnce) {
    Browser browser(desktop);
    const AXElementRef field = addressField(browser.pid());
    ASSERT_TRUE(field);
    browser.stop();
    EXPECT_FALSE(text(field, "AXValue"));
    EXPECT_EQ(error, AXError::cannotComplete);
    EXPECT_LT(timeOf([&] {
                  for (int i = 0; i < 20; ++i) {
                      EXPECT_FALSE(mainWindow(browser.pid()));
                      EXPECT_EQ(error, AXError::cannotComplete);
                  }
              }),
              kDeadline)
        << "nobody waits a second time";
    EXPECT_EQ(log.count("does not answer"), 1U);
    browser.resume();
    EXPECT_TRUE(fake::WaitFor([&] { return text(field, "AXValue") == "start"; }));
    EXPECT_EQ(log.count("answers again"), 1U);
}

TEST_F(AtspiRecoveryTest, FindsStoppedBrowsersBeforeTheyAreRead) {
    Browser stopped(desktop);
    Browser healthy(desktop, "healthy");
    ASSERT_TRUE(mainWindow(stopped.pid()));
    ASSERT_TRUE(mainWindow(healthy.pid()));
    stopped.stop();
    EXPECT_LT(timeOf([&] { look({stopped.pid(), healthy.pid()}); }), kOneWait);
    EXPECT_EQ(log.count("does not answer"), 1U);
    EXPECT_LT(timeOf([&] { EXPECT_FALSE(mainWindow(stopped.pid())); }), kDeadline);
    EXPECT_EQ(text(addressField(healthy.pid()), "AXValue"), "healthy") << "others are not affected";
    EXPECT_LT(timeOf([&] { look({stopped.pid(), healthy.pid()}); }), kDeadline);
    stopped.resume();
    EXPECT_TRUE(fake::WaitFor([&] { return addressField(stopped.pid()) != nullptr; }));
}

TEST_F(AtspiRecoveryTest, NoticesTheRecoveryWithoutTheMainLoop) {
    Browser browser(desktop);
    look({browser.pid()});
    browser.stop();
    look({browser.pid()});
    EXPECT_FALSE(mainWindow(browser.pid()));
    browser.resume();
    for (int i = 0; i < 1000 && !mainWindow(browser.pid()); ++i) {
        std::this_thread::sleep_for(10ms);
        look({browser.pid()});
    }
    EXPECT_TRUE(mainWindow(browser.pid()));
}

TEST_F(AtspiRecoveryTest, TellsTheChangeThatAStoppedBrowserOwed) {
    Browser browser(desktop);
    const auto observer = observe(browser.pid(), foundField(browser.pid()), kValueChangedNotification);
    browser.stop();
    browser.say("edit " + browser.field + "|typed while it hung");
    look({browser.pid()});
    EXPECT_TRUE(seen.entries.empty());
    browser.resume();
    ASSERT_TRUE(fake::WaitFor([&] { return !seen.entries.empty(); }));
    EXPECT_EQ(text(seen.entries.back().element, "AXValue"), "typed while it hung");
}

TEST_F(AtspiRecoveryTest, FindsABrowserThatWasKilledAndStartedAgain) {
    auto browser = std::make_unique<Browser>(desktop, "first life");
    const AXElementRef field = addressField(browser->pid());
    ASSERT_TRUE(field);
    const auto observer = observe(browser->pid(), field, kValueChangedNotification);
    const std::int32_t oldPid = browser->pid();
    browser->kill();
    EXPECT_FALSE(text(field, "AXValue"));
    EXPECT_EQ(error, AXError::cannotComplete);
    EXPECT_FALSE(mainWindow(oldPid));
    desktop.unregisterApplication(browser->busName());
    browser = std::make_unique<Browser>(desktop, "second life");
    EXPECT_EQ(text(addressField(browser->pid()), "AXValue"), "second life");
}

TEST_F(AtspiRecoveryTest, KilledWhileItHungIsForgotten) {
    Browser browser(desktop);
    look({browser.pid()});
    browser.stop();
    look({browser.pid()});
    browser.kill();
    EXPECT_FALSE(mainWindow(browser.pid()));
    Browser next(desktop);
    EXPECT_TRUE(addressField(next.pid()));
    EXPECT_EQ(log.count("answers again"), 0U);
}

TEST_F(AtspiRecoveryTest, FindsTheNewBusNameOfAProcess) {
    auto application = std::make_unique<fake::AtspiApplication>(desktop.accessibilityBus.address());
    application->addWindow("Page", "old name");
    desktop.registerApplication(application->busName());
    EXPECT_EQ(text(addressField(), "AXValue"), "old name");
    desktop.unregisterApplication(application->busName());
    application = std::make_unique<fake::AtspiApplication>(desktop.accessibilityBus.address());
    application->addWindow("Page", "new name");
    desktop.registerApplication(application->busName());
    EXPECT_EQ(text(addressField(), "AXValue"), "new name");
}

TEST_F(AtspiRecoveryTest, TellsThatEverythingIsToBeFoundAnewWhenTheBusDropped) {
    auto browser = std::make_unique<Browser>(desktop);
    const AXElementRef field = addressField(browser->pid());
    const auto observer = observe(browser->pid(), accessibility->createApplication(browser->pid()),
                                  kMainWindowChangedNotification);
    desktop.dropBus();
    EXPECT_FALSE(text(field, "AXValue"));
    EXPECT_LT(timeOf([&] { look({browser->pid()}); }), kOneWait);
    EXPECT_TRUE(fake::WaitFor([&] { return !seen.entries.empty(); }));
    look({browser->pid()});
    QCoreApplication::processEvents();
    EXPECT_EQ(seen.entries.size(), 1U) << "told once";
    EXPECT_EQ(log.count("cannot be reached"), 1U);
    EXPECT_FALSE(accessibility->isProcessTrusted());

    desktop.returnBus();
    browser = std::make_unique<Browser>(desktop, "back");
    look({browser->pid()});
    EXPECT_EQ(text(addressField(browser->pid()), "AXValue"), "back");
    EXPECT_FALSE(text(field, "AXValue"));
    EXPECT_EQ(error, AXError::invalidUIElement) << "the names of the old bus mean nothing on the new one";

    desktop.dropBus();
    look({browser->pid()});
    EXPECT_EQ(log.count("cannot be reached"), 2U) << "said again after it was back";
}

TEST_F(AtspiRecoveryTest, TellsThatEverythingIsToBeFoundAnewWhenItWasSwitchedOffAndOn) {
    Browser browser(desktop);
    ASSERT_TRUE(addressField(browser.pid()));
    const auto observer = observe(browser.pid(), accessibility->createApplication(browser.pid()),
                                  kMainWindowChangedNotification);
    desktop.isEnabled = false;
    look({browser.pid()});
    EXPECT_TRUE(fake::WaitFor([&] { return !seen.entries.empty(); }));
    EXPECT_FALSE(mainWindow(browser.pid()));
    EXPECT_EQ(error, AXError::apiDisabled);
    desktop.isEnabled = true;
    look({browser.pid()});
    EXPECT_TRUE(addressField(browser.pid()));
}

TEST_F(AtspiRecoveryTest, TellsWhoeverSubscribesToALostBusThatItIsLost) {
    Browser browser(desktop);
    const AXElementRef application = accessibility->createApplication(browser.pid());
    const auto first = observe(browser.pid(), application, kMainWindowChangedNotification);
    const std::shared_ptr<useragent::Session> session =
        accessibility->bus().lock()->session(std::chrono::steady_clock::now() + kDeadline);
    ASSERT_TRUE(session);
    session->watches->end();
    ASSERT_TRUE(fake::WaitFor([&] { return seen.entries.size() == 1; }));
    const auto second = observe(browser.pid(), application, kMainWindowChangedNotification);
    EXPECT_TRUE(fake::WaitFor([&] { return seen.entries.size() == 2; })) << "it came too late to be told";
    QCoreApplication::processEvents();
    EXPECT_EQ(seen.entries.size(), 2U) << "the first was not told again";

    std::unique_ptr<AXObserver> third;
    ASSERT_EQ(accessibility->createObserver(browser.pid(), seen.callback(), third), AXError::success);
    ASSERT_EQ(third->addNotification(application, kMainWindowChangedNotification), AXError::success);
    fake::WaitFor([&] { return seen.entries.size() > 2; }, 100ms);
    EXPECT_EQ(seen.entries.size(), 2U) << "it is not on the main loop yet";
    third->addToMainRunLoop();
    EXPECT_TRUE(fake::WaitFor([&] { return seen.entries.size() == 3; })) << "the loss is not forgotten";
}

TEST_F(AtspiRecoveryTest, WaitsForAFrozenBusOnlyUntilTheDeadline) {
    Browser browser(desktop);
    const AXElementRef field = addressField(browser.pid());
    ASSERT_TRUE(field);
    desktop.accessibilityBus.freeze();
    EXPECT_LT(timeOf([&] { EXPECT_FALSE(text(field, "AXValue")); }), kOneWait);
    EXPECT_LT(timeOf([&] { look({browser.pid()}); }), kOneWait);
    desktop.accessibilityBus.thaw();
    EXPECT_TRUE(fake::WaitFor([&] {
        look({browser.pid()});
        return text(field, "AXValue") == "start";
    }));
}

TEST_F(AtspiRecoveryTest, StartsOnADesktopWhoseBusesAreFrozen) {
    desktop.sessionBus.freeze();
    EXPECT_LT(timeOf([&] { EXPECT_FALSE(accessibility->isProcessTrusted()); }), kOneWait);
    EXPECT_LT(timeOf([&] { EXPECT_FALSE(mainWindow()); }), kOneWait);
    EXPECT_EQ(error, AXError::apiDisabled);
    desktop.sessionBus.thaw();
    desktop.accessibilityBus.freeze();
    EXPECT_LT(timeOf([&] { EXPECT_FALSE(accessibility->isProcessTrusted()); }), kOneWait);
    desktop.accessibilityBus.thaw();
    EXPECT_TRUE(accessibility->isProcessTrusted());
    Browser browser(desktop);
    EXPECT_TRUE(addressField(browser.pid()));
}

TEST_F(AtspiRecoveryTest, ARecoveryIsToldToNobodyOnceAllHasEnded) {
    Browser browser(desktop);
    const auto observer = observe(browser.pid(), foundField(browser.pid()), kValueChangedNotification);
    browser.stop();
    look({browser.pid()});
    browser.resume();
    // Without the main loop, so that what is posted to it is still there at the end.
    for (int i = 0; i < 1000 && !log.contains("answers again"); ++i) {
        std::this_thread::sleep_for(10ms);
        look({browser.pid()});
    }
    ASSERT_TRUE(log.contains("answers again"));
    accessibility.reset();
    QCoreApplication::processEvents();
    EXPECT_TRUE(seen.entries.empty());
}

TEST_F(AtspiRecoveryTest, DoesNotLookForAnAbsentBusAtEveryRead) {
    desktop.dropBus();
    EXPECT_FALSE(accessibility->isProcessTrusted());
    EXPECT_LT(timeOf([&] {
                  for (int i = 0; i < 100; ++i) {
                      EXPECT_FALSE(mainWindow());
                  }
              }),
              kOneWait);
    EXPECT_EQ(error, AXError::apiDisabled);
}

}  // namespace
