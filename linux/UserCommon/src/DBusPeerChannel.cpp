#include "DBusPeerChannel.h"

#include <utility>

namespace cmn {

DBusPeerChannel::DBusPeerChannel(std::shared_ptr<DBusThread> thread, std::shared_ptr<SerialQueue> queue,
                                 std::shared_ptr<BusConnection> bus, std::string uniqueName)
    : DBusChannelCore(std::move(thread), std::move(queue)),
      uniqueName_(std::move(uniqueName)),
      bus_(std::move(bus)) {}

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
    bus_.reset();
    DBusChannelCore::invalidateOnThread(why);
}

void DBusPeerChannel::keepForQueued(std::shared_ptr<void> kept) {
    queue()->post([kept = std::move(kept)] {});
}

}  // namespace cmn
