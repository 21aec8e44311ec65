#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
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
    std::uint64_t id = 0;  // names it when it is answered; 0 when no answer is wanted
    std::string sender;    // unique bus name
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

// One private connection to a message bus, under a unique name of its own. Lives on the D-Bus thread: all
// operations and events happen there, none of them waits for the bus. It lets go of the bus when it is
// destroyed.
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
    using Answer = std::function<void(const DBusResult&)>;

    static std::shared_ptr<BusConnection> open(BusSettings settings, Events events);
    ~BusConnection() override;

    // `answer` is called once unless this object is destroyed before.
    void call(const OutgoingCall& call, Answer answer) {
        this->call(call, settings_.replyDeadline, std::move(answer));
    }
    void callBus(const char* member, DBusArguments arguments, Answer answer);
    // Sends a call that wants no answer. False when the connection cannot take it.
    bool send(const OutgoingCall& call);

    void answer(std::uint64_t id, const DBusResult& result);

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

    void call(const OutgoingCall& call, std::chrono::milliseconds deadline, Answer answer);
    void connectTo(const std::string& address);
    void lost(const std::string& why);

    const BusSettings settings_;
    Events events_;
    std::weak_ptr<BusConnection> weakSelf_;
    QDBusConnection connection_;
    std::map<std::uint64_t, QDBusMessage> unanswered_;
    std::uint64_t lastId_ = 0;
};

}  // namespace cmn
