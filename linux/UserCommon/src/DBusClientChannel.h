#pragma once

#include <deque>
#include <string>

#include "DBusChannelCore.h"

namespace cmn {

// A client's connection to a service: a private bus connection that follows the owner of the service's name.
//
//   created -> connecting -> active <-> interrupted
//                  |            |            |
//                  +------------+------------+--> invalid: nobody owned the name, the bus was lost, or
//                  `invalidate`
class DBusClientChannel final : public DBusChannelCore {
 public:
    DBusClientChannel(BusSettings settings, std::shared_ptr<SerialQueue> queue, std::string service);

    void resume() override;

 private:
    enum class State { created, connecting, active, interrupted };

    const std::string& peerName() const override { return service_; }
    void startOnThread(PendingCall call) override;
    void invalidateOnThread(const std::string& why) override;
    void roomOnThread() override { sendWaitingOnThread(); }
    void abandonOnThread() override;

    void openOnThread();
    void watchServiceOnThread();
    void ownerChangedOnThread(const std::string& owner);
    void receivedOnThread(IncomingCall call);
    void sendWaitingOnThread();
    void failWaitingOnThread(const DBusError& error);

    const BusSettings settings_;
    const std::string service_;

    // Of the D-Bus thread.
    State state_ = State::created;
    std::shared_ptr<BusConnection> bus_;
    std::string owner_;  // unique name of the process that owns the service's name
    // Calls made before it was known whether there is an owner, or while as many as the bus allows are not
    // answered yet. In their order.
    std::deque<PendingCall> waiting_;
};

}  // namespace cmn
