#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>

#include "DBusThread.h"
#include "linux_usercommon/BusAddress.h"
#include "linux_usercommon/DBusTypes.h"
#include "linux_usercommon/TaskPool.h"

namespace cmn {

// A method call that arrived.
struct IncomingCall {
    QDBusMessage question;  // what an answer refers to; an invalid message when none is wanted
    std::string sender;     // unique bus name
    std::string path;
    std::string interface;  // may be empty
    std::string member;
    std::string signature;
    std::optional<DBusArguments> arguments;  // nothing when types are among them that no contract uses
};

struct OutgoingCall {
    std::string destination;
    std::string path;
    std::string interface;
    std::string member;
    DBusArguments arguments = {};
};

using DBusResult = std::variant<DBusArguments, DBusError>;

// How a bus is reached.
struct BusSettings {
    std::shared_ptr<DBusThread> thread;
    std::shared_ptr<TaskPool> pool;
    std::vector<BusAddress> addresses;
    std::chrono::milliseconds busDeadline;    // for each answer of the bus itself
    std::chrono::milliseconds replyDeadline;  // for the answers of others
};

// The arguments of an answer, or what it says went wrong. Any thread: large answers are better read where
// they are used than on the D-Bus thread.
DBusResult ToResult(const QDBusMessage& answer);

// One private connection to a message bus, under a unique name of its own. Lives on the D-Bus thread: events
// happen there, and operations unless they say otherwise; none of them waits for the bus. It lets go of the
// bus when it is destroyed.
class BusConnection final : public QDBusVirtualObject {
    Q_OBJECT

 public:
    struct Events {
        std::function<void()> onReady;
        std::function<void(const std::string& why)> onLost;  // at most once, also when it never got ready
        std::function<void(IncomingCall)> onCall;
        std::function<void(const std::string& name, const std::string& oldOwner, const std::string& newOwner)>
            onNameOwnerChanged;  // see `watchOwners`
    };
    using Answer = std::function<void(const QDBusMessage&)>;

    static std::shared_ptr<BusConnection> open(BusSettings settings, Events events);
    ~BusConnection() override;

    // `answer` is called once unless this object is destroyed before.
    void call(OutgoingCall call, Answer answer) {
        this->call(std::move(call), settings_.replyDeadline, std::move(answer));
    }
    void callBus(const char* member, DBusArguments arguments, std::function<void(const DBusResult&)> answer);
    // Sends a call that wants no answer. False when the connection cannot take it. Any thread, once it is
    // ready.
    bool send(OutgoingCall call) const;
    // Does nothing when no answer is wanted. Any thread.
    void answer(const QDBusMessage& question, DBusResult result) const;

    // From now on reports the changes of owners that fulfil a condition of a match rule, for example
    // "arg0='a.name'".
    void watchOwners(const std::string& condition);
    // Empty: nobody owns the name. Asked after `watchOwners`, nothing is missed in between.
    void askOwner(const std::string& name, std::function<void(const std::string& owner)> answer);

    // QDBusVirtualObject
    QString introspect(const QString& path) const override;
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override;

 private slots:
    void busSignal(const QDBusMessage& message);
    void disconnected(const QDBusMessage& message);

 private:
    BusConnection(BusSettings settings, Events events);

    void call(OutgoingCall call, std::chrono::milliseconds deadline, Answer answer);
    void connectTo(const std::string& address);
    void lost(const std::string& why);

    const BusSettings settings_;
    Events events_;
    std::weak_ptr<BusConnection> weakSelf_;
    QDBusConnection connection_;
};

}  // namespace cmn
