#pragma once

#include <deque>
#include <string>

#include "BusChannel.h"
#include "linux_bus/Connection.h"

namespace cmn {

// How a bus is reached.
struct BusSettings {
    std::shared_ptr<bus::Loop> loop;
    bus::Options options;
    std::chrono::nanoseconds replyDeadline{};  // for the answers of others
    bool isSystemBus = false;
};

// A client's connection to a service: a private bus connection that follows the owner of the service's name.
//
//   created -> connecting -> active <-> interrupted
//                  |            |            |
//                  +------------+------------+--> ended: nobody owned the name, the bus was lost, or
//                  `invalidate`
class ClientChannel final : public BusChannel {
 public:
    ClientChannel(BusSettings settings, std::shared_ptr<SerialQueue> queue, std::string service);

    void resume() override;
    void end(const std::string& why, std::shared_ptr<void> connection) override;
    // The owner of the service's name. On a system bus that is not the system's own, the user who runs that
    // bus: what it says of others is worth no more.
    std::optional<XPCPeer> peer() const override;

    void call(ServiceRequest request) override;

 private:
    enum class State { created, connecting, active, interrupted, ended };

    void abandon() override;
    const std::string& peerName() const override { return service_; }
    bool accepts(const bus::Question& /*question*/) override { return true; }

    // In the loop's thread.
    void watchService();
    void ownerChanged(const std::string& owner);
    void asked(const bus::Question& question);
    void askWhoOwnsIt(const std::string& owner);
    void sendParked();

    void setPeer(const std::string& owner, const XPCPeer& peer);

    const BusSettings settings_;
    const std::string service_;
    Admission admission_;                              // of the loop's thread
    std::shared_ptr<bus::Subscription> ownerChanges_;  // of the loop's thread

    // Held while a parked request is sent: one that is forgotten is not sent behind that. Recursive: what a
    // request owns may end with it.
    std::recursive_mutex sendingMutex_;

    mutable std::mutex mutex_;  // guards what follows, never held across a call
    State state_ = State::created;
    std::string whyEnded_;
    std::shared_ptr<bus::Connection> bus_;
    std::string owner_;  // unique name of the process that owns the service's name
    std::optional<XPCPeer> peer_;
    // Requests made before it was known whether there is an owner, in their order.
    std::deque<ServiceRequest> parked_;
};

}  // namespace cmn
