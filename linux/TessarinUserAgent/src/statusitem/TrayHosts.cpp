#include "statusitem/TrayHosts.h"

#include <QDBusError>
#include <QDBusMessage>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QMetaObject>
#include <QString>
#include <utility>

#include "common/log.h"
#include "statusitem/BusTrayIcon.h"

namespace useragent {
namespace {

const QString kWatcher = QString::fromLatin1(BusTrayIcon::kWatcher);
const QString kWatcherPath = QString::fromLatin1(BusTrayIcon::kWatcherPath);

bool IsSilence(const QDBusError& error) {
    return error.type() == QDBusError::NoReply || error.type() == QDBusError::Timeout ||
           error.type() == QDBusError::TimedOut;
}

}  // namespace

TrayHosts::TrayHosts(std::function<void(TrayRoad)> onAnswer, std::chrono::milliseconds timeout)
    : onAnswer_(std::move(onAnswer)),
      timeout_(timeout),
      bus_(QDBusConnection::sessionBus()),
      owners_(kWatcher, bus_, QDBusServiceWatcher::WatchForOwnerChange) {
    connect(&owners_, &QDBusServiceWatcher::serviceOwnerChanged, this, &TrayHosts::ask);
    for (const char* const signal : {"StatusNotifierHostRegistered", "StatusNotifierHostUnregistered"}) {
        bus_.connect(kWatcher, kWatcherPath, kWatcher, QLatin1String(signal), this, SLOT(ask()));
    }
    // From the bus library itself, when the bus is lost.
    bus_.connect(QString(), QStringLiteral("/org/freedesktop/DBus/Local"),
                 QStringLiteral("org.freedesktop.DBus.Local"), QStringLiteral("Disconnected"), this,
                 SLOT(ask()));
}

void TrayHosts::ask() {
    if (!bus_.isConnected()) {
        QMetaObject::invokeMethod(
            this, [this] { onAnswer_(TrayRoad::windowSystem); }, Qt::QueuedConnection);
        return;
    }
    QDBusMessage question = QDBusMessage::createMethodCall(
        kWatcher, kWatcherPath, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    question.setArguments({kWatcher, QStringLiteral("IsStatusNotifierHostRegistered")});
    question.setAutoStartService(false);
    answer_ = std::make_unique<QDBusPendingCallWatcher>(
        bus_.asyncCall(question, static_cast<int>(timeout_.count())));
    connect(answer_.get(), &QDBusPendingCallWatcher::finished, this,
            [this](QDBusPendingCallWatcher* answer) { answered(*answer); });
}

void TrayHosts::answered(QDBusPendingCallWatcher& answer) {
    const QDBusPendingReply<QDBusVariant> reply = answer;
    answer_.release()->deleteLater();
    if (reply.isError() && IsSilence(reply.error()) && bus_.isConnected()) {
        if (!std::exchange(saidSilent_, true)) {
            TLOG_WARN("The desktop's status area does not answer; the status item waits for it");
        }
        ask();
        return;
    }
    saidSilent_ = false;
    const bool hasHost = reply.isValid() && reply.value().variant().toBool();
    onAnswer_(hasHost ? TrayRoad::sessionBus : TrayRoad::windowSystem);
}

}  // namespace useragent
