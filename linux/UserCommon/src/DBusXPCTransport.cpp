#include "linux_usercommon/DBusXPCTransport.h"

#include <utility>

#include "ClientChannel.h"
#include "DBusXPCListener.h"
#include "linux_bus/WellKnown.h"

namespace cmn {

namespace {

template <typename Object, typename Made>
void Remember(std::vector<std::weak_ptr<Object>>& objects, const std::shared_ptr<Made>& made) {
    std::erase_if(objects, [](const auto& object) { return object.expired(); });
    objects.push_back(made);
}

template <typename Object, typename End>
void EndAll(const std::vector<std::weak_ptr<Object>>& objects, End end) {
    for (const auto& object : objects) {
        if (const auto alive = object.lock()) {
            end(*alive);
        }
    }
}

DBusXPCOptions Completed(DBusXPCOptions options) {
    if (options.systemBusAddress.empty()) {
        options.systemBusAddress = bus::SystemBusAddress();
    }
    if (options.sessionBusAddress.empty()) {
        options.sessionBusAddress = bus::SessionBusAddress();
    }
    return options;
}

}  // namespace

DBusXPCTransport::DBusXPCTransport(std::shared_ptr<LinuxDispatch> dispatch, DBusXPCOptions options)
    : dispatch_(std::move(dispatch)), options_(Completed(std::move(options))) {}

DBusXPCTransport::~DBusXPCTransport() {
    stop();
}

void DBusXPCTransport::stop() {
    const std::lock_guard lock(mutex_);
    EndAll(channels_, [](BusChannel& channel) { channel.end("the transport has ended", nullptr); });
    EndAll(listeners_, [](XPCListener& listener) { listener.invalidate(); });
}

BusSettings DBusXPCTransport::busSettings(DBusBus bus) const {
    const bool isSystemBus = bus == DBusBus::system;
    BusSettings settings{dispatch_->loop(), {}, options_.replyDeadline, isSystemBus};
    settings.options.address = isSystemBus ? options_.systemBusAddress : options_.sessionBusAddress;
    settings.options.connectDeadline = options_.connectDeadline;
    settings.options.answerDeadline = options_.busDeadline;
    return settings;
}

std::shared_ptr<XPCConnection> DBusXPCTransport::createConnection(const std::string& machServiceName,
                                                                  XPCConnectionOptions options) {
    const DBusBus bus = options == XPCConnectionOptions::privileged ? DBusBus::system : DBusBus::session;
    const auto channel =
        std::make_shared<ClientChannel>(busSettings(bus), dispatch_->createSerialQueue(), machServiceName);
    const std::lock_guard lock(mutex_);
    Remember(channels_, channel);
    return channel->makeConnection();
}

std::shared_ptr<XPCListener> DBusXPCTransport::createListener(const std::string& machServiceName) {
    auto listener = MakeListener(
        {busSettings(options_.listenerBus), [dispatch = dispatch_] { return dispatch->createSerialQueue(); },
         options_.onListenerEvent},
        machServiceName);
    const std::lock_guard lock(mutex_);
    Remember(listeners_, listener);
    return listener;
}

}  // namespace cmn
