#include "accessibility/AccessibilityPrompt.h"

#include <QDBusVariant>
#include <QVariantMap>
#include <utility>

#include "common/log.h"

namespace useragent {
namespace {

constexpr const char* kNotifications = "org.freedesktop.Notifications";
constexpr const char* kNotificationsPath = "/org/freedesktop/Notifications";
constexpr const char* kSwitchOnAction = "switch-on";

// Services that have to be started first take their time.
constexpr std::chrono::seconds kServiceTimeout{25};

void LogRemedy() {
    TLOG_WARN(
        "Accessibility is off and nobody could be asked to switch it on. It can be done with: busctl --user "
        "set-property org.a11y.Bus /org/a11y/bus org.a11y.Status IsEnabled b true");
}

}  // namespace

AccessibilityPrompt::AccessibilityPrompt(std::weak_ptr<AtspiCore> core) : core_(std::move(core)) {}

void AccessibilityPrompt::ask() {
    const std::shared_ptr<AtspiCore> core = core_.lock();
    if (!core || std::exchange(asked_, true)) {
        return;
    }
    const std::optional<QDBusConnection> session = core->bus.session(core->deadline());
    if (!session) {
        LogRemedy();
        return;
    }
    // The session may have been too slow to answer the question that led here.
    core->calls.call(*session, atspi::GetProperty(atspi::kSessionObject, "org.a11y.Status", "IsEnabled"),
                     kServiceTimeout, [this](const QDBusMessage& reply) {
                         const std::optional<bool> isEnabled = atspi::ReadBoolProperty(reply);
                         if (!isEnabled) {
                             TLOG_WARN("This session has no accessibility: {}",
                                       reply.errorMessage().toStdString());
                         } else if (!*isEnabled) {
                             notify();
                         }
                     });
}

void AccessibilityPrompt::notify() {
    const std::shared_ptr<AtspiCore> core = core_.lock();
    const std::optional<QDBusConnection> session = core ? core->bus.session(core->deadline()) : std::nullopt;
    if (!session) {
        return;
    }
    const QStringList actions{QString::fromLatin1(kSwitchOnAction), QStringLiteral("Switch on")};
    const QVariantMap hints{{QStringLiteral("urgency"), QVariant::fromValue<uchar>(1)}};
    const int neverExpires = 0;
    core->calls.call(
        *session,
        atspi::Call(
            {QString::fromLatin1(kNotifications), QString::fromLatin1(kNotificationsPath)}, kNotifications,
            "Notify",
            {QStringLiteral("Tessarin User Agent"), 0U, QStringLiteral("preferences-desktop-accessibility"),
             QStringLiteral("Accessibility is switched off"),
             QStringLiteral("Tessarin needs it to see which addresses the web browsers visit."), actions,
             hints, neverExpires}),
        kServiceTimeout, [this](const QDBusMessage& reply) { notified(reply); });
}

void AccessibilityPrompt::notified(const QDBusMessage& reply) {
    const std::shared_ptr<AtspiCore> core = core_.lock();
    const std::optional<std::uint32_t> number = atspi::ReadNumber(reply);
    std::optional<QDBusConnection> session = core ? core->bus.session(core->deadline()) : std::nullopt;
    if (!number || !session) {
        LogRemedy();
        return;
    }
    notification_ = *number;
    // Only whoever shows the notification can say what became of it.
    session->connect(reply.service(), QLatin1String(kNotificationsPath), QLatin1String(kNotifications),
                     QStringLiteral("ActionInvoked"), this, SLOT(actionInvoked(QDBusMessage)));
}

void AccessibilityPrompt::actionInvoked(const QDBusMessage& signal) {
    const QVariantList arguments = signal.arguments();
    if (arguments.value(0).toUInt() == notification_ &&
        arguments.value(1).toString() == QLatin1String(kSwitchOnAction)) {
        switchOn();
    }
}

void AccessibilityPrompt::switchOn() {
    const std::shared_ptr<AtspiCore> core = core_.lock();
    const std::optional<QDBusConnection> session = core ? core->bus.session(core->deadline()) : std::nullopt;
    if (!session) {
        return;
    }
    core->calls.call(*session,
                     atspi::Call(atspi::kSessionObject, "org.freedesktop.DBus.Properties", "Set",
                                 {QStringLiteral("org.a11y.Status"), QStringLiteral("IsEnabled"),
                                  QVariant::fromValue(QDBusVariant(true))}),
                     kServiceTimeout, [](const QDBusMessage& reply) {
                         if (reply.type() == QDBusMessage::ReplyMessage) {
                             TLOG_INFO("Accessibility was switched on at the user's wish");
                         } else {
                             TLOG_WARN("Accessibility could not be switched on: {}",
                                       reply.errorMessage().toStdString());
                         }
                     });
}

}  // namespace useragent
