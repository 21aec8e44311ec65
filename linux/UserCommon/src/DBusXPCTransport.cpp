#include "linux_usercommon/DBusXPCTransport.h"

#include <utility>

#include "DBusClientChannel.h"
#include "DBusThread.h"
#include "DBusXPCConnection.h"
#include "DBusXPCListener.h"
#include "linux_usercommon/BusAddress.h"

namespace cmn {

namespace {

template <typename Object, typename Made>
void Remember(std::vector<std::weak_ptr<Object>>& objects, const std::shared_ptr<Made>& made) {
    std::erase_if(objects, [](const auto& object) { return object.expired(); });
    objects.push_back(made);
}

template <typename Object>
void EndAll(const std::vector<std::weak_ptr<Object>>& objects) {
    for (const auto& object : objects) {
        if (const auto alive = object.lock()) {
            alive->invalidate();
        }
    }
}

DBusXPCOptions WithAddresses(DBusXPCOptions options) {
    if (options.systemBusAddress.empty()) {
        options.systemBusAddress = SystemBusAddress();
    }
    if (options.sessionBusAddress.empty()) {
        options.sessionBusAddress = SessionBusAddress();
    }
    return options;
}

}  // namespace

DBusXPCTransport::DBusXPCTransport(std::shared_ptr<LinuxDispatch> dispatch, DBusXPCOptions options)
    : dispatch_(std::move(dispatch)),
      options_(WithAddresses(std::move(options))),
      thread_(std::make_shared<DBusThread>()) {}

DBusXPCTransport::~DBusXPCTransport() {
    stop();
}

void DBusXPCTransport::stop() {
    {
        const std::lock_guard lock(mutex_);
        EndAll(connections_);
        EndAll(listeners_);
    }
    thread_->stop();
}

BusSettings DBusXPCTransport::busSettings(DBusBus bus) const {
    const std::string& address =
        bus == DBusBus::system ? options_.systemBusAddress : options_.sessionBusAddress;
    return {thread_, dispatch_->pool(), ParseBusAddresses(address), options_.busDeadline,
            options_.replyDeadline};
}

std::shared_ptr<XPCConnection> DBusXPCTransport::createConnection(const std::string& machServiceName,
                                                                  XPCConnectionOptions options) {
    const DBusBus bus = options == XPCConnectionOptions::privileged ? DBusBus::system : DBusBus::session;
    auto connection = std::make_shared<DBusXPCConnection>(std::make_shared<DBusClientChannel>(
        busSettings(bus), dispatch_->createSerialQueue(), machServiceName));
    const std::lock_guard lock(mutex_);
    Remember(connections_, connection);
    return connection;
}

std::shared_ptr<XPCListener> DBusXPCTransport::createListener(const std::string& machServiceName) {
    DBusXPCListener::Parts parts{busSettings(options_.listenerBus),
                                 [dispatch = dispatch_] { return dispatch->createSerialQueue(); },
                                 options_.onListenerEvent};
    auto listener = std::make_shared<DBusXPCListener>(std::move(parts), machServiceName);
    const std::lock_guard lock(mutex_);
    Remember(listeners_, listener);
    return listener;
}

}  // namespace cmn
