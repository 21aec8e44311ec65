#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "DBusChannelCore.h"

namespace cmn {

// A service's connection with one of its clients: a bus peer, over the bus connection of the listener.
class DBusPeerChannel final : public DBusChannelCore {
 public:
    DBusPeerChannel(std::shared_ptr<DBusThread> thread, std::shared_ptr<SerialQueue> queue,
                    std::shared_ptr<BusConnection> bus, std::string uniqueName);

    void resume() override;

    // On the private queue, before the first message is delivered.
    void setAccepted(bool accepted) { accepted_ = accepted; }

    // What wants no answer is sent at once, like the answers: the peer gets both in their order.
    void call(const std::string& path, const DBusInterfaceDescription& interface, const DBusMethod& method,
              DBusArguments arguments, ReplyHandler onReply, RemoteErrorHandler onError) override;

    // On the D-Bus thread.
    void receivedOnThread(const std::shared_ptr<BusConnection>& bus, IncomingCall call);
    void invalidateOnThread(const std::string& why) override;

    using DBusChannelCore::keepForQueued;

    const std::string& peerName() const override { return uniqueName_; }

 private:
    void startOnThread(PendingCall call) override;
    bool accepts() const override { return accepted_ && resumed_; }

    const std::string uniqueName_;
    bool accepted_ = false;  // of the private queue
    std::atomic<bool> resumed_{false};
    const std::weak_ptr<BusConnection> weakBus_;
    std::atomic<bool> left_{false};
    std::shared_ptr<BusConnection> bus_;  // of the D-Bus thread; null when invalid
};

}  // namespace cmn
