#include "support/RawPeer.h"

#include <QDBusConnectionInterface>
#include <QDBusReply>
#include <QDBusVirtualObject>
#include <QThread>
#include <atomic>
#include <mutex>
#include <stdexcept>
#include <utility>

namespace fake {

namespace {

constexpr int kCallMilliseconds = 20'000;

QString UniqueConnectionName() {
    static std::atomic<int> last{0};
    return QStringLiteral("raw-peer-%1").arg(++last);
}

QDBusMessage BusCall(const char* member, const QVariantList& arguments) {
    QDBusMessage message = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"), QString::fromLatin1(member));
    message.setArguments(arguments);
    return message;
}

}  // namespace

class RawPeer::Object : public QDBusVirtualObject {
 public:
    explicit Object(Handler onCall) : onCall_(std::move(onCall)) {}

    QString introspect(const QString& /*path*/) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
        const std::lock_guard lock(mutex_);
        if (!onCall_) {
            return false;
        }
        onCall_(message, connection);
        return true;
    }

    // Waits for the handler and lets go of it.
    void close() {
        const std::lock_guard lock(mutex_);
        onCall_ = nullptr;
    }

 private:
    std::mutex mutex_;
    Handler onCall_;  // guarded by mutex_
};

class RawPeer::Thread : public QThread {};

RawPeer::RawPeer(const std::string& address, Handler onCall)
    : name_(UniqueConnectionName()),
      connection_(QDBusConnection::connectToBus(QString::fromStdString(address), name_)),
      thread_(std::make_unique<Thread>()),
      object_(std::make_unique<Object>(std::move(onCall))) {
    if (!connection_.isConnected()) {
        throw std::runtime_error("no bus: " + connection_.lastError().message().toStdString());
    }
    connection_.registerVirtualObject(QStringLiteral("/"), object_.get(), QDBusConnection::SubPath);
    object_->moveToThread(thread_.get());
    thread_->start();
}

RawPeer::~RawPeer() {
    object_->close();
    // The library must not know the object any more when it closes the connection on its own thread.
    connection_.unregisterObject(QStringLiteral("/"), QDBusConnection::UnregisterTree);
    connection_ = QDBusConnection(QString());
    QDBusConnection::disconnectFromBus(name_);
    thread_->quit();
    thread_->wait();
}

std::string RawPeer::uniqueName() const {
    return connection_.baseService().toStdString();
}

bool RawPeer::own(const std::string& name) {
    const QDBusReply<unsigned> reply = connection_.call(
        BusCall("RequestName", {QString::fromStdString(name), 4U}), QDBus::Block, kCallMilliseconds);
    return reply.isValid() && reply.value() == 1;
}

bool RawPeer::release(const std::string& name) {
    const QDBusReply<unsigned> reply = connection_.call(
        BusCall("ReleaseName", {QString::fromStdString(name)}), QDBus::Block, kCallMilliseconds);
    return reply.isValid() && reply.value() == 1;
}

bool RawPeer::hasOwner(const std::string& name) {
    const QDBusReply<bool> reply = connection_.call(BusCall("NameHasOwner", {QString::fromStdString(name)}),
                                                    QDBus::Block, kCallMilliseconds);
    return reply.isValid() && reply.value();
}

QDBusMessage RawPeer::call(const QDBusMessage& message) const {
    return connection_.call(message, QDBus::Block, kCallMilliseconds);
}

void RawPeer::send(const QDBusMessage& message) const {
    connection_.send(message);
}

QDBusMessage RawPeer::message(const std::string& destination, const std::string& path,
                              const std::string& interface, const std::string& member,
                              const QVariantList& arguments) {
    QDBusMessage message =
        QDBusMessage::createMethodCall(QString::fromStdString(destination), QString::fromStdString(path),
                                       QString::fromStdString(interface), QString::fromStdString(member));
    message.setArguments(arguments);
    return message;
}

}  // namespace fake
