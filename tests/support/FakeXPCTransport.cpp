#include "support/FakeXPCTransport.h"

#include <gtest/gtest.h>

#include <atomic>

namespace fake {
namespace {

std::atomic<int> g_alive{0};

}  // namespace

XPCConnection::XPCConnection(std::string name, cmn::XPCConnectionOptions connectionOptions,
                             ProxyMaker makeProxy)
    : machServiceName(std::move(name)), options(connectionOptions), makeProxy_(std::move(makeProxy)) {
    ++g_alive;
}

XPCConnection::~XPCConnection() {
    --g_alive;
}

int XPCConnection::alive() {
    return g_alive;
}

void XPCConnection::setInvalidationHandler(std::function<void()> handler) {
    const std::lock_guard lock(mutex_);
    EXPECT_FALSE(resumed_) << "handlers are set before the connection is resumed";
    invalidationHandler_ = std::move(handler);
}

void XPCConnection::setInterruptionHandler(std::function<void()> handler) {
    const std::lock_guard lock(mutex_);
    EXPECT_FALSE(resumed_) << "handlers are set before the connection is resumed";
    interruptionHandler_ = std::move(handler);
}

void XPCConnection::setRemoteObjectInterface(std::shared_ptr<const cmn::XPCInterface> interface) {
    const std::lock_guard lock(mutex_);
    EXPECT_FALSE(resumed_) << "the interface is set before the connection is resumed";
    remoteObjectInterface_ = std::move(interface);
}

void XPCConnection::setExportedInterface(std::shared_ptr<const cmn::XPCInterface> interface) {
    const std::lock_guard lock(mutex_);
    EXPECT_FALSE(resumed_) << "the interface is set before the connection is resumed";
    exportedInterface_ = std::move(interface);
}

void XPCConnection::setExportedObject(std::shared_ptr<cmn::XPCVersioning> object) {
    const std::lock_guard lock(mutex_);
    EXPECT_FALSE(resumed_) << "the object is set before the connection is resumed";
    exportedObject_ = std::move(object);
}

void XPCConnection::resume() {
    const std::lock_guard lock(mutex_);
    EXPECT_FALSE(resumed_) << "a connection is resumed once";
    resumed_ = true;
}

void XPCConnection::invalidate() {
    sendInvalidation();
}

std::shared_ptr<cmn::XPCVersioning> XPCConnection::remoteObjectProxy(cmn::RemoteErrorHandler onError,
                                                                     std::chrono::nanoseconds deadline) {
    {
        const std::lock_guard lock(mutex_);
        EXPECT_TRUE(resumed_) << "a proxy is asked of a resumed connection";
        EXPECT_TRUE(onError) << "a proxy has an error handler";
    }
    EXPECT_GT(deadline.count(), 0) << "a proxy whose time is over is of no use";
    return makeProxy_ ? makeProxy_(std::move(onError), deadline) : nullptr;
}

void XPCConnection::sendInvalidation() {
    std::function<void()> handler;
    {
        const std::lock_guard lock(mutex_);
        if (invalidated_) {
            return;
        }
        invalidated_ = true;
        handler = invalidationHandler_;
    }
    if (handler) {
        handler();
    }
}

void XPCConnection::sendInterruption() {
    std::function<void()> handler;
    {
        const std::lock_guard lock(mutex_);
        handler = interruptionHandler_;
    }
    if (handler) {
        handler();
    }
}

std::optional<cmn::XPCPeer> XPCConnection::peer() const {
    const std::lock_guard lock(mutex_);
    return peer_;
}

void XPCConnection::setPeer(std::optional<cmn::XPCPeer> peer) {
    const std::lock_guard lock(mutex_);
    peer_ = peer;
}

bool XPCConnection::resumed() const {
    const std::lock_guard lock(mutex_);
    return resumed_;
}

bool XPCConnection::invalidated() const {
    const std::lock_guard lock(mutex_);
    return invalidated_;
}

bool XPCConnection::hasHandlers() const {
    const std::lock_guard lock(mutex_);
    return invalidationHandler_ && interruptionHandler_;
}

std::shared_ptr<const cmn::XPCInterface> XPCConnection::remoteObjectInterface() const {
    const std::lock_guard lock(mutex_);
    return remoteObjectInterface_;
}

std::shared_ptr<const cmn::XPCInterface> XPCConnection::exportedInterface() const {
    const std::lock_guard lock(mutex_);
    return exportedInterface_;
}

std::shared_ptr<cmn::XPCVersioning> XPCConnection::exportedObject() const {
    const std::lock_guard lock(mutex_);
    return exportedObject_;
}

void XPCListener::setDelegate(std::weak_ptr<cmn::XPCListenerDelegate> delegate) {
    delegate_ = std::move(delegate);
}

void XPCListener::resume() {
    EXPECT_FALSE(delegate_.expired()) << "a listener has a delegate when it is resumed";
    resumed = true;
}

void XPCListener::invalidate() {
    invalidated = true;
}

std::shared_ptr<XPCConnection> XPCListener::connectPeer(std::optional<cmn::XPCPeer> peer) {
    EXPECT_TRUE(resumed && !invalidated);
    const auto connection =
        std::make_shared<XPCConnection>(machServiceName, cmn::XPCConnectionOptions::none, nullptr);
    if (peer) {
        peer->connectionID = ++lastConnectionID_;
    }
    connection->setPeer(peer);
    const auto delegate = delegate_.lock();
    if (!delegate || !delegate->listenerShouldAcceptNewConnection(*this, connection)) {
        return nullptr;
    }
    EXPECT_TRUE(connection->resumed()) << "an accepted connection has been resumed";
    EXPECT_TRUE(connection->exportedObject() && connection->exportedInterface());
    return connection;
}

std::shared_ptr<cmn::XPCConnection> XPCTransport::createConnection(const std::string& machServiceName,
                                                                   cmn::XPCConnectionOptions options) {
    const auto connection = std::make_shared<XPCConnection>(machServiceName, options, makeProxy);
    connection->setPeer(service);
    {
        const std::lock_guard lock(mutex_);
        ++connectionsCreated_;
        lastConnection_ = connection;
    }
    if (onConnection) {
        onConnection(connection);
    }
    return connection;
}

std::shared_ptr<cmn::XPCListener> XPCTransport::createListener(const std::string& machServiceName) {
    const auto listener = std::make_shared<XPCListener>(machServiceName);
    const std::lock_guard lock(mutex_);
    lastListener_ = listener;
    return listener;
}

int XPCTransport::connectionsCreated() const {
    const std::lock_guard lock(mutex_);
    return connectionsCreated_;
}

std::shared_ptr<XPCConnection> XPCTransport::lastConnection() const {
    const std::lock_guard lock(mutex_);
    return lastConnection_.lock();
}

std::shared_ptr<XPCListener> XPCTransport::lastListener() const {
    const std::lock_guard lock(mutex_);
    return lastListener_.lock();
}

}  // namespace fake
