#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "support/FakeXPCEnd.h"
#include "usercommon/XPCConnection.h"

namespace fake {

// The service of the other end is the test: needs no description of the messages.
class PlainInterface : public cmn::XPCInterface {};

// A connection whose other end is the test, or a listener of the same transport when its interface is a
// `WiredInterface`. Records what is done to it and checks the order in which it is used.
class XPCConnection : public cmn::XPCConnection, public std::enable_shared_from_this<XPCConnection> {
 public:
    using ProxyMaker = std::function<std::shared_ptr<cmn::XPCVersioning>(cmn::RemoteErrorHandler,
                                                                         std::chrono::nanoseconds deadline)>;

    XPCConnection(std::shared_ptr<Dispatch> dispatch, std::string machServiceName,
                  cmn::XPCConnectionOptions options, ProxyMaker makeProxy);
    ~XPCConnection() override;
    XPCConnection(const XPCConnection&) = delete;
    XPCConnection& operator=(const XPCConnection&) = delete;

    void setInvalidationHandler(std::function<void()> handler) override;
    void setInterruptionHandler(std::function<void()> handler) override;
    void setRemoteObjectInterface(std::shared_ptr<const cmn::XPCInterface> interface) override;
    void setExportedInterface(std::shared_ptr<const cmn::XPCInterface> interface) override;
    void setExportedObject(std::shared_ptr<cmn::XPCVersioning> object) override;
    std::optional<cmn::XPCPeer> peer() const override { return end_->peer(); }
    void resume() override;
    void invalidate() override;
    std::shared_ptr<cmn::XPCVersioning> remoteObjectProxy(cmn::RemoteErrorHandler onError,
                                                          std::chrono::nanoseconds deadline) override;

    // The other end's doing. They return when the user of this connection has been told, unless a task calls
    // them.
    void sendInvalidation();
    void sendInterruption();
    // A message to the exported object, which must be of the protocol: calls `message` with it, as coming
    // from the peer.
    template <typename Protocol, typename Message>
    void deliver(Message message) {
        ASSERT_NE(std::dynamic_pointer_cast<Protocol>(exportedObject()), nullptr);
        end_->deliver([message](cmn::XPCVersioning& object) { message(dynamic_cast<Protocol&>(object)); },
                      [](const std::string& why) { ADD_FAILURE() << why; });
        settle();
    }

    void setPeer(std::optional<cmn::XPCPeer> peer) { end_->setPeer(peer); }
    // Called by `resume` when the interface is a `WiredInterface`.
    void setOnResume(std::function<void()> onResume) { onResume_ = std::move(onResume); }
    const std::shared_ptr<XPCEnd>& end() const { return end_; }

    const std::string machServiceName;
    const cmn::XPCConnectionOptions options;
    bool resumed() const;
    bool invalidated() const { return end_->ended(); }
    bool hasHandlers() const { return end_->hasHandlers(); }
    std::shared_ptr<const cmn::XPCInterface> remoteObjectInterface() const;
    std::shared_ptr<const cmn::XPCInterface> exportedInterface() const;
    std::shared_ptr<cmn::XPCVersioning> exportedObject() const { return end_->exportedObject(); }

    static int alive();  // connections that exist now

 private:
    void checkNotResumed(const char* what) const;
    void settle();

    const std::shared_ptr<Dispatch> dispatch_;
    const std::shared_ptr<XPCEnd> end_;
    const ProxyMaker makeProxy_;
    std::function<void()> onResume_;
    mutable std::mutex mutex_;  // guards what follows
    std::shared_ptr<const cmn::XPCInterface> remoteObjectInterface_, exportedInterface_;
    bool resumed_ = false;
};

// Who listens under which name, and who is connected there. Thread-safe.
class XPCNames;

class XPCListener : public cmn::XPCListener, public std::enable_shared_from_this<XPCListener> {
 public:
    XPCListener(std::shared_ptr<Dispatch> dispatch, std::shared_ptr<XPCNames> names, std::string name)
        : machServiceName(std::move(name)), dispatch_(std::move(dispatch)), names_(std::move(names)) {}
    ~XPCListener() override;
    XPCListener(const XPCListener&) = delete;
    XPCListener& operator=(const XPCListener&) = delete;

    void setDelegate(std::weak_ptr<cmn::XPCListenerDelegate> delegate) override;
    void resume() override;
    void invalidate() override;

    // A new peer knocks: a connection that the delegate accepted, or null when it rejected. Each gets a
    // connection id of its own.
    std::shared_ptr<XPCConnection> connectPeer(std::optional<cmn::XPCPeer> peer = std::nullopt);
    // A client of the same transport: the service's end, whose delegate is asked before the first message.
    std::shared_ptr<XPCEnd> connectClient(const std::shared_ptr<XPCEnd>& client);

    const std::string machServiceName;
    bool resumed = false;
    bool invalidated = false;

 private:
    std::shared_ptr<XPCConnection> makeConnection(std::optional<cmn::XPCPeer> peer);
    bool isAccepted(const std::shared_ptr<XPCConnection>& connection);
    void leave();

    const std::shared_ptr<Dispatch> dispatch_;
    const std::shared_ptr<XPCNames> names_;
    std::weak_ptr<cmn::XPCListenerDelegate> delegate_;
    std::mutex mutex_;  // guards what follows
    std::uint64_t lastConnectionID_ = 0;
    std::set<std::shared_ptr<XPCConnection>> accepted_;  // of this transport's clients
};

// Makes the connections above. `makeProxy` gives what a connection's proxies are; null gives those of a
// `WiredInterface`.
class XPCTransport : public cmn::XPCTransport {
 public:
    explicit XPCTransport(std::shared_ptr<Dispatch> dispatch = std::make_shared<Dispatch>());

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
    const std::shared_ptr<Dispatch> dispatch_;
    const std::shared_ptr<XPCNames> names_;
    mutable std::mutex mutex_;
    int connectionsCreated_ = 0;
    std::weak_ptr<XPCConnection> lastConnection_;
    std::weak_ptr<XPCListener> lastListener_;
};

}  // namespace fake
