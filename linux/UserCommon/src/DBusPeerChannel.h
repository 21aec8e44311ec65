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

    // On the D-Bus thread.
    void receivedOnThread(const std::shared_ptr<BusConnection>& bus, IncomingCall call);
    void invalidateOnThread(const std::string& why) override;

    // Keeps something alive until all that is in the private queue now has run.
    void keepForQueued(std::shared_ptr<void> kept);

    const std::string& peerName() const override { return uniqueName_; }

 private:
    void startOnThread(PendingCall call) override;
    bool accepts() const override { return accepted_ && resumed_; }

    const std::string uniqueName_;
    bool accepted_ = false;  // of the private queue
    std::atomic<bool> resumed_{false};
    std::shared_ptr<BusConnection> bus_;  // of the D-Bus thread; null when invalid
};

}  // namespace cmn
