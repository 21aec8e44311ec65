#include "DBusPeerChannel.h"

#include <utility>

namespace cmn {

DBusPeerChannel::DBusPeerChannel(std::shared_ptr<DBusThread> thread, std::shared_ptr<SerialQueue> queue,
                                 std::shared_ptr<BusConnection> bus, std::string uniqueName)
    : DBusChannelCore(std::move(thread), std::move(queue)),
      uniqueName_(std::move(uniqueName)),
      weakBus_(bus),
      bus_(std::move(bus)) {}

void DBusPeerChannel::call(const std::string& path, const DBusInterfaceDescription& interface,
                           const DBusMethod& method, DBusArguments arguments, ReplyHandler onReply,
                           RemoteErrorHandler onError) {
    const auto bus = left_ ? nullptr : weakBus_.lock();
    if (!method.noReply || !bus) {
        DBusChannelCore::call(path, interface, method, std::move(arguments), std::move(onReply),
                              std::move(onError));
    } else if (!bus->send({uniqueName_, path, interface.name, method.name, std::move(arguments)})) {
        PendingCall failed;
        failed.onError = std::move(onError);
        fail(failed, {dbus_error::kFailed, "The message could not be sent"});
    }
}

void DBusPeerChannel::resume() {
    publishExportedObject();
    resumed_ = true;
}

void DBusPeerChannel::receivedOnThread(const std::shared_ptr<BusConnection>& bus, IncomingCall call) {
    deliverOnThread(bus, std::move(call));
}

void DBusPeerChannel::startOnThread(PendingCall call) {
    if (bus_) {
        sendOnThread(*bus_, std::move(call));
    } else {
        fail(call, endedError());
    }
}

void DBusPeerChannel::invalidateOnThread(const std::string& why) {
    left_ = true;
    bus_.reset();
    DBusChannelCore::invalidateOnThread(why);
}

}  // namespace cmn
