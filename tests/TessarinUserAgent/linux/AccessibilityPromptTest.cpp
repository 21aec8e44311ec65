#include <QDBusConnection>
#include <mutex>
#include <vector>

#include "AtspiFixture.h"
#include "support/RawPeer.h"

namespace {

// The desktop's notification service. Thread-safe.
class NotificationService {
 public:
    explicit NotificationService(const std::string& busAddress)
        : peer_(busAddress,
                [this](const QDBusMessage& call, QDBusConnection bus) { onCall(call, std::move(bus)); }) {
        peer_.own("org.freedesktop.Notifications");
    }

    std::vector<QDBusMessage> shown() const {
        const std::lock_guard lock(mutex_);
        return shown_;
    }

    void press(unsigned number, const QString& action) const {
        QDBusMessage signal = QDBusMessage::createSignal(QStringLiteral("/org/freedesktop/Notifications"),
                                                         QStringLiteral("org.freedesktop.Notifications"),
                                                         QStringLiteral("ActionInvoked"));
        signal.setArguments({number, action});
        peer_.send(signal);
    }

    static constexpr unsigned kNumber = 4711;

 private:
    void onCall(const QDBusMessage& call, QDBusConnection bus) {
        const std::lock_guard lock(mutex_);
        if (call.member() == QLatin1String("Notify")) {
            shown_.push_back(call);
        }
        bus.send(call.createReply(kNumber));
    }

    mutable std::mutex mutex_;
    std::vector<QDBusMessage> shown_;
    fake::RawPeer peer_;
};

class AccessibilityPromptTest : public AtspiFixture {
 protected:
    AccessibilityPromptTest() : AtspiFixture(std::chrono::seconds(1)) { desktop.isEnabled = false; }

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

}  // namespace
