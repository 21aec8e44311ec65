#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "support/RawPeer.h"

namespace fake {

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

    void press(const QVariant& number, const QString& action) const {
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

}  // namespace fake
