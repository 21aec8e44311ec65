#include "AtspiFixture.h"
#include "support/NotificationService.h"

namespace {

using fake::NotificationService;

class AccessibilityPromptTest : public AtspiFixture {
 protected:
    AccessibilityPromptTest() : AtspiFixture(std::chrono::seconds(1)) { desktop.isEnabled = false; }

    // As when the agent starts.
    void start(const useragent::ToldOnce& told) {
        accessibility = std::make_shared<useragent::AtspiAccessibility>(
            dispatch,
            useragent::AtspiSettings{
                desktop.sessionBus.address(), {}, std::chrono::seconds(1), screen.port(), {}, told});
    }
    QString buttonOf(const QDBusMessage& notification) {
        return notification.arguments().at(5).toStringList().value(0);
    }
};

TEST_F(AccessibilityPromptTest, ShowsOneNotificationHoweverOftenItIsAsked) {
    const NotificationService service(desktop.sessionBus.address());
    EXPECT_FALSE(accessibility->isProcessTrustedWithPrompt());
    EXPECT_FALSE(accessibility->isProcessTrustedWithPrompt());
    ASSERT_TRUE(fake::WaitFor([&] { return !service.shown().empty(); }));
    EXPECT_FALSE(accessibility->isProcessTrustedWithPrompt());
    QCoreApplication::processEvents();
    ASSERT_EQ(service.shown().size(), 1U);
    const QDBusMessage shown = service.shown().front();
    EXPECT_EQ(shown.signature(), "susssasa{sv}i");
    EXPECT_EQ(shown.arguments().at(5).toStringList().size(), 2) << "one button with its label";
}

TEST_F(AccessibilityPromptTest, ButtonSwitchesAccessibilityOn) {
    const NotificationService service(desktop.sessionBus.address());
    EXPECT_FALSE(accessibility->isProcessTrustedWithPrompt());
    ASSERT_TRUE(fake::WaitFor([&] { return !service.shown().empty(); }));
    const QString button = buttonOf(service.shown().front());
    ASSERT_TRUE(fake::WaitFor([&] {
        service.press(NotificationService::kNumber, button);
        return desktop.isEnabled.load();
    }));
    EXPECT_TRUE(accessibility->isProcessTrusted());
    EXPECT_TRUE(fake::WaitFor([&] { return log.contains("switched on at the user's wish"); }));
}

TEST_F(AccessibilityPromptTest, ButtonsOfOtherNotificationsDoNothing) {
    const NotificationService service(desktop.sessionBus.address());
    EXPECT_FALSE(accessibility->isProcessTrustedWithPrompt());
    ASSERT_TRUE(fake::WaitFor([&] { return !service.shown().empty(); }));
    const QString button = buttonOf(service.shown().front());
    service.press(NotificationService::kNumber + 1, button);
    service.press(NotificationService::kNumber, QStringLiteral("default"));
    // The right button works and comes after the wrong ones.
    fake::WaitFor([&] { return false; }, std::chrono::milliseconds(300));
    EXPECT_FALSE(desktop.isEnabled);
}

TEST_F(AccessibilityPromptTest, NamesTheRemedyWithoutANotificationService) {
    EXPECT_FALSE(accessibility->isProcessTrustedWithPrompt());
    EXPECT_TRUE(fake::WaitFor([&] { return log.contains("busctl --user set-property org.a11y.Bus"); }));
}

TEST_F(AccessibilityPromptTest, AsksNothingWhenAccessibilityIsOn) {
    const NotificationService service(desktop.sessionBus.address());
    desktop.isEnabled = true;
    EXPECT_TRUE(accessibility->isProcessTrustedWithPrompt());
    fake::WaitFor([&] { return false; }, std::chrono::milliseconds(100));
    EXPECT_TRUE(service.shown().empty());
}

TEST_F(AccessibilityPromptTest, AsksNothingWhenTheSessionWasOnlySlow) {
    const NotificationService service(desktop.sessionBus.address());
    desktop.isEnabled = true;
    desktop.accessibilityBus.freeze();
    EXPECT_FALSE(accessibility->isProcessTrustedWithPrompt());
    desktop.accessibilityBus.thaw();
    fake::WaitFor([&] { return false; }, std::chrono::milliseconds(300));
    EXPECT_TRUE(service.shown().empty());
}

TEST_F(AccessibilityPromptTest, AUserWhoWasAskedOnceIsNotAskedAgainAtTheNextStart) {
    const fake::TemporaryFolder folder;
    const useragent::ToldOnce told(folder / "state");
    const NotificationService service(desktop.sessionBus.address());
    start(told);
    EXPECT_FALSE(accessibility->isProcessTrustedWithPrompt());
    ASSERT_TRUE(fake::WaitFor([&] { return told.wasTold("accessibility"); }));
    start(told);
    EXPECT_FALSE(accessibility->isProcessTrustedWithPrompt());
    EXPECT_TRUE(fake::WaitFor([&] {
        return log.contains("as the user was told before. It can be switched on with: busctl --user");
    }));
    EXPECT_EQ(service.shown().size(), 1U);
}

TEST_F(AccessibilityPromptTest, AUserWhoCouldNotBeAskedIsAskedAtTheNextStart) {
    const fake::TemporaryFolder folder;
    const useragent::ToldOnce told(folder / "state");
    start(told);
    EXPECT_FALSE(accessibility->isProcessTrustedWithPrompt());
    EXPECT_TRUE(fake::WaitFor([&] { return log.contains("nobody could be asked to switch it on"); }));
    EXPECT_FALSE(told.wasTold("accessibility"));
    const NotificationService service(desktop.sessionBus.address());
    start(told);
    EXPECT_FALSE(accessibility->isProcessTrustedWithPrompt());
    EXPECT_TRUE(fake::WaitFor([&] { return service.shown().size() == 1; }));
}

}  // namespace
