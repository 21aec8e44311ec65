#include "BusConnection.h"

#include <fmt/format.h>

#include <QDBusPendingCallWatcher>
#include <array>
#include <atomic>
#include <utility>

#include "DBusMarshalling.h"
#include "common/log.h"
#include "linux_usercommon/BusProbe.h"

namespace cmn {

namespace {

constexpr const char* kBusName = "org.freedesktop.DBus";
constexpr const char* kBusPath = "/org/freedesktop/DBus";

struct BusSignal {
    const char* interface;
    const char* name;
    const char* slot;
};
const std::array<BusSignal, 2> kSignals{{
    {kBusName, "NameOwnerChanged", SLOT(busSignal(QDBusMessage))},
    {"org.freedesktop.DBus.Local", "Disconnected", SLOT(disconnected(QDBusMessage))},
}};

// A bus throws out who sends more than it allows (32 MiB on a system bus): refuse well before that.
constexpr std::size_t kLargestMessage = std::size_t{16} * 1024 * 1024;

QDBusMessage ToMessage(OutgoingCall call) {
    QDBusMessage message = QDBusMessage::createMethodCall(ToQString(call.destination), ToQString(call.path),
                                                          ToQString(call.interface), ToQString(call.member));
    message.setAutoStartService(false);  // a service that is absent stays absent
    message.setArguments(ToVariants(std::move(call.arguments)));
    return message;
}

}  // namespace

DBusResult ToResult(const QDBusMessage& answer) {
    if (answer.type() != QDBusMessage::ReplyMessage) {
        return DBusError{answer.errorName().toStdString(), answer.errorMessage().toStdString()};
    }
    if (auto arguments = FromMessage(answer)) {
        return std::move(*arguments);
    }
    return DBusError{dbus_error::kInvalidArgs, fmt::format("The answer has the unexpected signature \"{}\"",
                                                           answer.signature().toStdString())};
}

std::shared_ptr<BusConnection> BusConnection::open(BusSettings settings, Events events) {
    const std::shared_ptr<DBusThread> thread = settings.thread;
    // Destroyed on its thread, and never in the middle of one of its own events. When the thread has ended,
    // the task is destroyed and the connection with it.
    std::shared_ptr<BusConnection> self(
        new BusConnection(std::move(settings), std::move(events)), [thread](BusConnection* connection) {
            const auto owned = std::make_shared<std::unique_ptr<BusConnection>>(connection);
            thread->post([owned] { owned->reset(); });
        });
    self->weakSelf_ = self;
    ProbeBus(self->settings_.pool, self->settings_.addresses, self->settings_.busDeadline,
             [thread, weakSelf = std::weak_ptr(self)](const BusProbeResult& result) {
                 thread->post([weakSelf, result] {
                     if (const auto connection = weakSelf.lock()) {
                         result.address ? connection->connectTo(*result.address)
                                        : connection->lost(result.failure);
                     }
                 });
             });
    return self;
}

BusConnection::BusConnection(BusSettings settings, Events events)
    : settings_(std::move(settings)), events_(std::move(events)), connection_(QString()) {}

BusConnection::~BusConnection() {
    const QString name = connection_.name();
    if (name.isEmpty()) {
        return;
    }
    // First the library must no longer know this object: a message that it handles while the last reference
    // to the connection goes would be posted here with a reference to what is being deleted.
    for (const BusSignal& signal : kSignals) {
        connection_.disconnect({}, {}, QLatin1String(signal.interface), QLatin1String(signal.name), this,
                               signal.slot);
    }
    connection_.unregisterObject(QStringLiteral("/"), QDBusConnection::UnregisterTree);
    connection_ = QDBusConnection(QString());
    QDBusConnection::disconnectFromPeer(name);
}

void BusConnection::connectTo(const std::string& address) {
    static std::atomic<unsigned> lastNumber{0};
    // Opened like a connection to a peer, because for a bus the library says Hello itself, with a blocking
    // call on the thread that all connections of the process share.
    connection_ =
        QDBusConnection::connectToPeer(ToQString(address), QStringLiteral("tessarin-%1").arg(++lastNumber));
    if (!connection_.isConnected()) {
        lost(connection_.lastError().message().toStdString());
        return;
    }
    connection_.registerVirtualObject(QStringLiteral("/"), this, QDBusConnection::SubPath);
    for (const BusSignal& signal : kSignals) {
        connection_.connect({}, {}, QLatin1String(signal.interface), QLatin1String(signal.name), this,
                            signal.slot);
    }
    callBus("Hello", {}, [this](const DBusResult& result) {
        if (const auto* error = std::get_if<DBusError>(&result)) {
            lost(error->message);
        } else {
            events_.onReady();
        }
    });
}

void BusConnection::call(OutgoingCall call, std::chrono::milliseconds deadline, Answer answer) {
    if (ApproximateSize(call.arguments) > kLargestMessage) {
        settings_.thread->post([weakSelf = weakSelf_, answer = std::move(answer)] {
            if (weakSelf.lock()) {
                answer(QDBusMessage::createError(QLatin1String(dbus_error::kLimitsExceeded),
                                                 QStringLiteral("The message is too large")));
            }
        });
        return;
    }
    const QDBusPendingCall pending =
        connection_.asyncCall(ToMessage(std::move(call)), static_cast<int>(deadline.count()));
    if (pending.isFinished()) {  // answered already, or it could not even be sent
        settings_.thread->post([weakSelf = weakSelf_, answer = std::move(answer), pending] {
            if (weakSelf.lock()) {
                answer(pending.reply());
            }
        });
        return;
    }
    auto* const watcher = new QDBusPendingCallWatcher(pending, this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [answer = std::move(answer)](QDBusPendingCallWatcher* finished) {
                finished->deleteLater();
                answer(finished->reply());
            });
}

void BusConnection::callBus(const char* member, DBusArguments arguments,
                            std::function<void(const DBusResult&)> answer) {
    call({kBusName, kBusPath, kBusName, member, std::move(arguments)}, settings_.busDeadline,
         [answer = std::move(answer)](const QDBusMessage& message) { answer(ToResult(message)); });
}

bool BusConnection::send(OutgoingCall call) const {
    return ApproximateSize(call.arguments) <= kLargestMessage && connection_.send(ToMessage(std::move(call)));
}

void BusConnection::answer(const QDBusMessage& question, DBusResult result) const {
    if (question.type() == QDBusMessage::InvalidMessage) {
        return;
    }
    if (const auto* error = std::get_if<DBusError>(&result)) {
        connection_.send(question.createErrorReply(ToQString(error->name), ToQString(error->message)));
        return;
    }
    auto& arguments = std::get<DBusArguments>(result);
    if (ApproximateSize(arguments) > kLargestMessage) {
        TLOG_ERROR("An answer to {} is too large to be sent", question.member().toStdString());
        connection_.send(question.createErrorReply(QLatin1String(dbus_error::kLimitsExceeded),
                                                   QStringLiteral("The answer is too large")));
        return;
    }
    connection_.send(question.createReply(ToVariants(std::move(arguments))));
}

void BusConnection::watchOwners(const std::string& condition) {
    const std::string rule = fmt::format(
        "type='signal',sender='{0}',interface='{0}',member='NameOwnerChanged',{1}", kBusName, condition);
    callBus("AddMatch", {rule}, [this](const DBusResult& result) {
        if (const auto* error = std::get_if<DBusError>(&result)) {
            lost(error->message);
        }
    });
}

void BusConnection::askOwner(const std::string& name, std::function<void(const std::string& owner)> answer) {
    callBus("GetNameOwner", {name}, [this, answer = std::move(answer)](const DBusResult& result) {
        const auto* const error = std::get_if<DBusError>(&result);
        if (error == nullptr) {
            const auto& arguments = std::get<DBusArguments>(result);
            const auto* const owner =
                arguments.empty() ? nullptr : std::get_if<std::string>(&arguments.front());
            answer(owner != nullptr ? *owner : std::string());
        } else if (error->name == dbus_error::kNameHasNoOwner) {
            answer({});
        } else {
            lost(error->message);
        }
    });
}

QString BusConnection::introspect(const QString& /*path*/) const {
    return {};
}

bool BusConnection::handleMessage(const QDBusMessage& message, const QDBusConnection& /*connection*/) {
    IncomingCall call;
    if (message.isReplyRequired()) {
        call.question = message;
    }
    call.sender = message.service().toStdString();
    call.path = message.path().toStdString();
    call.interface = message.interface().toStdString();
    call.member = message.member().toStdString();
    call.signature = message.signature().toStdString();
    call.arguments = FromMessage(message);
    events_.onCall(std::move(call));
    return true;
}

void BusConnection::busSignal(const QDBusMessage& message) {
    if (message.service() != QLatin1String(kBusName)) {
        return;  // anyone can send a signal of that name
    }
    const auto arguments = FromMessage(message);
    if (arguments && DBusSignature(*arguments) == "sss") {
        events_.onNameOwnerChanged(std::get<std::string>((*arguments)[0]),
                                   std::get<std::string>((*arguments)[1]),
                                   std::get<std::string>((*arguments)[2]));
    }
}

void BusConnection::disconnected(const QDBusMessage& message) {
    if (message.service().isEmpty()) {  // made by the library, not sent by anyone
        lost("the bus closed the connection");
    }
}

void BusConnection::lost(const std::string& why) {
    if (const auto onLost = std::exchange(events_.onLost, nullptr)) {
        onLost(why);
    }
}

}  // namespace cmn
