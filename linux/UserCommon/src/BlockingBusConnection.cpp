#include "BlockingBusConnection.h"

#include <fmt/format.h>

#include <QDBusPendingCall>
#include <algorithm>
#include <atomic>
#include <cstdint>
#include <stdexcept>

#include "DBusMarshalling.h"
#include "common/ScopedAction.h"
#include "linux_usercommon/BusProbe.h"

namespace cmn {

namespace {

// The bus library connects with a blocking call on a thread that all its connections share: it is only let
// near a bus that answers.
std::string AddressOfLivingBus(const std::string& addresses, std::chrono::milliseconds deadline) {
    const BusProbeResult result = ProbeBus(ParseBusAddresses(addresses), deadline);
    if (!result.address) {
        throw std::runtime_error(fmt::format("the message bus cannot be reached: {}", result.failure));
    }
    return *result.address;
}

void Disconnect(QDBusConnection& connection) {
    const QString name = connection.name();
    connection = QDBusConnection(QString());
    QDBusConnection::disconnectFromPeer(name);
}

QDBusMessage Hello() {
    return QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.DBus"),
                                          QStringLiteral("/org/freedesktop/DBus"),
                                          QStringLiteral("org.freedesktop.DBus"), QStringLiteral("Hello"));
}

}  // namespace

BlockingBusConnection::BlockingBusConnection(const std::string& addresses,
                                             std::chrono::milliseconds busDeadline)
    : connection_(QString()) {
    static std::atomic<unsigned> lastNumber{0};
    const std::string address = AddressOfLivingBus(addresses, busDeadline);
    // Like a connection to a peer: for a bus the library says Hello itself, and waits for it without a limit
    // of ours.
    connection_ = QDBusConnection::connectToPeer(ToQString(address),
                                                 QStringLiteral("tessarin-caller-%1").arg(++lastNumber));
    ScopedAction undo([this] { Disconnect(connection_); });
    const QDBusMessage welcome = call(Hello(), Clock::now() + busDeadline);
    if (welcome.type() != QDBusMessage::ReplyMessage) {
        throw std::runtime_error(
            fmt::format("the message bus cannot be reached: {}", welcome.errorMessage().toStdString()));
    }
    uniqueName_ = welcome.arguments().value(0).toString().toStdString();
    undo.disarm();
}

BlockingBusConnection::~BlockingBusConnection() {
    Disconnect(connection_);
}

QDBusMessage BlockingBusConnection::call(const QDBusMessage& message, Clock::time_point deadline) const {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    QDBusPendingCall pending =
        connection_.asyncCall(message, static_cast<int>(std::max<std::int64_t>(1, left.count())));
    pending.waitForFinished();
    return pending.reply();
}

}  // namespace cmn
