#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "usercommon/XPCConnection.h"

namespace fake {

// The fake connections need no description of the messages.
class PlainInterface : public cmn::XPCInterface {};

// A connection whose other end is the test. Records what is done to it and checks the order in which it is
// used.
class XPCConnection : public cmn::XPCConnection {
 public:
    using ProxyMaker = std::function<std::shared_ptr<cmn::XPCVersioning>(cmn::RemoteErrorHandler,
                                                                         std::chrono::nanoseconds deadline)>;

    XPCConnection(std::string machServiceName, cmn::XPCConnectionOptions options, ProxyMaker makeProxy);
    ~XPCConnection() override;

    void setInvalidationHandler(std::function<void()> handler) override;
    void setInterruptionHandler(std::function<void()> handler) override;
    void setRemoteObjectInterface(std::shared_ptr<const cmn::XPCInterface> interface) override;
    void setExportedInterface(std::shared_ptr<const cmn::XPCInterface> interface) override;
    void setExportedObject(std::shared_ptr<cmn::XPCVersioning> object) override;
    std::optional<cmn::XPCPeer> peer() const override;
    void resume() override;
    // Calls the invalidation handler on the caller's thread.
    void invalidate() override;
    std::shared_ptr<cmn::XPCVersioning> remoteObjectProxy(cmn::RemoteErrorHandler onError,
                                                          std::chrono::nanoseconds deadline) override;

    // The other end's doing, on the caller's thread.
    void sendInvalidation();
    void sendInterruption();
    // A message to the exported object, which must be of the protocol: calls `message` with it, as coming
    // from the peer.
    template <typename Protocol, typename Message>
    void deliver(Message message) {
        const auto object = std::dynamic_pointer_cast<Protocol>(exportedObject());
        ASSERT_NE(object, nullptr);
        const cmn::XPCPeerScope scope(peer());
        message(*object);
    }

    void setPeer(std::optional<cmn::XPCPeer> peer);

    const std::string machServiceName;
    const cmn::XPCConnectionOptions options;
    bool resumed() const;
    bool invalidated() const;
    bool hasHandlers() const;
    std::shared_ptr<const cmn::XPCInterface> remoteObjectInterface() const;
    std::shared_ptr<const cmn::XPCInterface> exportedInterface() const;
    std::shared_ptr<cmn::XPCVersioning> exportedObject() const;

    static int alive();  // connections that exist now

 private:
    const ProxyMaker makeProxy_;
    mutable std::mutex mutex_;
    std::function<void()> invalidationHandler_, interruptionHandler_;
    std::shared_ptr<const cmn::XPCInterface> remoteObjectInterface_, exportedInterface_;
    std::shared_ptr<cmn::XPCVersioning> exportedObject_;
    std::optional<cmn::XPCPeer> peer_;
    bool resumed_ = false;
    bool invalidated_ = false;
};

class XPCListener : public cmn::XPCListener {
 public:
    explicit XPCListener(std::string name) : machServiceName(std::move(name)) {}

    void setDelegate(std::weak_ptr<cmn::XPCListenerDelegate> delegate) override;
    void resume() override;
    void invalidate() override;

    // A new peer knocks: a connection that the delegate accepted, or null when it rejected. Each gets a
    // connection id of its own.
    std::shared_ptr<XPCConnection> connectPeer(std::optional<cmn::XPCPeer> peer = std::nullopt);

    const std::string machServiceName;
    bool resumed = false;
    bool invalidated = false;

 private:
    std::weak_ptr<cmn::XPCListenerDelegate> delegate_;
    std::uint64_t lastConnectionID_ = 0;
};

// Makes the connections above. `makeProxy` gives what a connection's proxies are; null gives none.
class XPCTransport : public cmn::XPCTransport {
 public:
    std::shared_ptr<cmn::XPCConnection> createConnection(const std::string& machServiceName,
                                                         cmn::XPCConnectionOptions options) override;
    std::shared_ptr<cmn::XPCListener> createListener(const std::string& machServiceName) override;

    XPCConnection::ProxyMaker makeProxy;
    // The owner of the services' names.
    std::optional<cmn::XPCPeer> service;
    // Called with each new connection before it is handed out.
    std::function<void(const std::shared_ptr<XPCConnection>&)> onConnection;

    int connectionsCreated() const;
    std::shared_ptr<XPCConnection> lastConnection() const;  // null when it is gone
    std::shared_ptr<XPCListener> lastListener() const;

 private:
    mutable std::mutex mutex_;
    int connectionsCreated_ = 0;
    std::weak_ptr<XPCConnection> lastConnection_;
    std::weak_ptr<XPCListener> lastListener_;
};

}  // namespace fake
