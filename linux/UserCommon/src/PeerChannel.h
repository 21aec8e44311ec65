#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>

#include "BusChannel.h"

namespace cmn {

// A service's connection with one of its clients: a bus peer, over the bus connection of the listener.
class PeerChannel final : public BusChannel {
 public:
    struct Parts {
        std::shared_ptr<bus::Connection> bus;
        std::shared_ptr<bus::Loop> loop;
        std::shared_ptr<SerialQueue> queue;
        std::chrono::nanoseconds replyDeadline{};
    };

    PeerChannel(Parts parts, std::string uniqueName, XPCPeer peer);

    void resume() override;
    void end(const std::string& why, std::shared_ptr<void> connection) override;
    std::optional<XPCPeer> peer() const override { return peer_; }

    void call(ServiceRequest request) override;

    // The service has decided about this peer.
    void setAccepted(bool accepted) { accepted_ = accepted; }
    // Who answers a message, or why nobody does.
    bus::Result<ExportedObjects::Found> find(const bus::Message& message) const;

    using BusChannel::deliver;
    using BusChannel::queue;

 private:
    const std::string& peerName() const override { return uniqueName_; }
    bool accepts(const bus::Question& question) override;

    const Parts parts_;
    const std::string uniqueName_;
    const XPCPeer peer_;
    std::atomic<bool> accepted_{false};
    std::atomic<bool> resumed_{false};
    std::atomic<bool> ended_{false};
};

}  // namespace cmn
