#include "support/FakeXPCTransport.h"

#include <algorithm>
#include <atomic>
#include <utility>

namespace fake {
namespace {

std::atomic<int> g_alive{0};

}  // namespace

class XPCNames {
 public:
    void claim(const std::string& name, std::weak_ptr<XPCListener> listener) {
        const std::lock_guard lock(mutex_);
        EXPECT_TRUE(listeners_[name].expired()) << "two listen as " << name;
        listeners_[name] = std::move(listener);
    }
    // The clients that are told.
    std::vector<std::weak_ptr<XPCEnd>> giveUp(const std::string& name) {
        const std::lock_guard lock(mutex_);
        listeners_.erase(name);
        return clients_[name];
    }
    std::shared_ptr<XPCListener> find(const std::string& name) {
        const std::lock_guard lock(mutex_);
        const auto found = listeners_.find(name);
        return found == listeners_.end() ? nullptr : found->second.lock();
    }
    void addClient(const std::string& name, const std::shared_ptr<XPCEnd>& client) {
        const std::lock_guard lock(mutex_);
        std::erase_if(clients_[name], [](const auto& known) { return known.expired(); });
        clients_[name].push_back(client);
    }

 private:
    std::mutex mutex_;
    std::map<std::string, std::weak_ptr<XPCListener>> listeners_;
    std::map<std::string, std::vector<std::weak_ptr<XPCEnd>>> clients_;
};

XPCConnection::XPCConnection(std::shared_ptr<Dispatch> dispatch, std::string name,
                             cmn::XPCConnectionOptions connectionOptions, ProxyMaker makeProxy)
    : machServiceName(std::move(name)),
      options(connectionOptions),
      dispatch_(std::move(dispatch)),
      end_(std::make_shared<XPCEnd>(dispatch_)),
      makeProxy_(std::move(makeProxy)) {
    ++g_alive;
}

XPCConnection::~XPCConnection() {
    end_->abandon();
    --g_alive;
}

int XPCConnection::alive() {
    return g_alive;
}

void XPCConnection::checkNotResumed(const char* what) const {
    const std::lock_guard lock(mutex_);
    EXPECT_FALSE(resumed_) << what << " set before the connection is resumed";
}

void XPCConnection::setInvalidationHandler(std::function<void()> handler) {
    checkNotResumed("handlers are");
    end_->setInvalidationHandler(std::move(handler));
}

void XPCConnection::setInterruptionHandler(std::function<void()> handler) {
    checkNotResumed("handlers are");
    end_->setInterruptionHandler(std::move(handler));
}

void XPCConnection::setRemoteObjectInterface(std::shared_ptr<const cmn::XPCInterface> interface) {
    checkNotResumed("the interface is");
    const std::lock_guard lock(mutex_);
    remoteObjectInterface_ = std::move(interface);
}

void XPCConnection::setExportedInterface(std::shared_ptr<const cmn::XPCInterface> interface) {
    checkNotResumed("the interface is");
    const std::lock_guard lock(mutex_);
    exportedInterface_ = std::move(interface);
}

void XPCConnection::setExportedObject(std::shared_ptr<cmn::XPCVersioning> object) {
    checkNotResumed("the object is");
    end_->setExportedObject(std::move(object));
}

void XPCConnection::resume() {
    bool isWired = false;
    {
        const std::lock_guard lock(mutex_);
        EXPECT_FALSE(resumed_) << "a connection is resumed once";
        resumed_ = true;
        isWired = std::dynamic_pointer_cast<const WiredInterface>(remoteObjectInterface_) != nullptr;
    }
    if (isWired && onResume_) {
        onResume_();
    }
}

void XPCConnection::invalidate() {
    end_->end(shared_from_this());
}

std::shared_ptr<cmn::XPCVersioning> XPCConnection::remoteObjectProxy(cmn::RemoteErrorHandler onError,
                                                                     std::chrono::nanoseconds deadline) {
    std::shared_ptr<const cmn::XPCInterface> interface;
    {
        const std::lock_guard lock(mutex_);
        EXPECT_TRUE(resumed_) << "a proxy is asked of a resumed connection";
        interface = remoteObjectInterface_;
    }
    EXPECT_TRUE(onError) << "a proxy has an error handler";
    EXPECT_GT(deadline.count(), 0) << "a proxy whose time is over is of no use";
    if (makeProxy_) {
        return makeProxy_(std::move(onError), deadline);
    }
    const auto wired = std::dynamic_pointer_cast<const WiredInterface>(interface);
    const auto limit = deadline == cmn::kNoRequestDeadline ? deadline : dispatch_->now() + deadline;
    return wired ? wired->createProxy({end_, std::move(onError), limit}) : nullptr;
}

void XPCConnection::sendInvalidation() {
    end_->end(nullptr);
    settle();
}

void XPCConnection::sendInterruption() {
    end_->interrupt();
    settle();
}

void XPCConnection::settle() {
    if (!dispatch_->isInTask()) {
        dispatch_->runUntilIdle();
    }
}

bool XPCConnection::resumed() const {
    const std::lock_guard lock(mutex_);
    return resumed_;
}

std::shared_ptr<const cmn::XPCInterface> XPCConnection::remoteObjectInterface() const {
    const std::lock_guard lock(mutex_);
    return remoteObjectInterface_;
}

std::shared_ptr<const cmn::XPCInterface> XPCConnection::exportedInterface() const {
    const std::lock_guard lock(mutex_);
    return exportedInterface_;
}

XPCListener::~XPCListener() {
    leave();
}

void XPCListener::setDelegate(std::weak_ptr<cmn::XPCListenerDelegate> delegate) {
    delegate_ = std::move(delegate);
}

void XPCListener::resume() {
    EXPECT_FALSE(delegate_.expired()) << "a listener has a delegate when it is resumed";
    resumed = true;
    names_->claim(machServiceName, weak_from_this());
}

void XPCListener::invalidate() {
    invalidated = true;
    leave();
}

void XPCListener::leave() {
    std::set<std::shared_ptr<XPCConnection>> accepted;
    {
        const std::lock_guard lock(mutex_);
        accepted.swap(accepted_);
        if (!std::exchange(resumed, false)) {
            return;
        }
    }
    for (const auto& connection : accepted) {
        connection->invalidate();
    }
    for (const auto& client : names_->giveUp(machServiceName)) {
        if (const auto told = client.lock()) {
            told->interrupt();
        }
    }
}

std::shared_ptr<XPCConnection> XPCListener::makeConnection(std::optional<cmn::XPCPeer> peer) {
    const auto connection =
        std::make_shared<XPCConnection>(dispatch_, machServiceName, cmn::XPCConnectionOptions::none, nullptr);
    if (peer) {
        const std::lock_guard lock(mutex_);
        peer->connectionID = ++lastConnectionID_;
    }
    connection->setPeer(peer);
    return connection;
}

bool XPCListener::isAccepted(const std::shared_ptr<XPCConnection>& connection) {
    const auto delegate = delegate_.lock();
    if (!delegate || !delegate->listenerShouldAcceptNewConnection(*this, connection)) {
        return false;
    }
    EXPECT_TRUE(connection->resumed()) << "an accepted connection has been resumed";
    EXPECT_TRUE(connection->exportedObject() && connection->exportedInterface());
    return true;
}

std::shared_ptr<XPCConnection> XPCListener::connectPeer(std::optional<cmn::XPCPeer> peer) {
    EXPECT_TRUE(resumed && !invalidated);
    const auto connection = makeConnection(peer);
    return isAccepted(connection) ? connection : nullptr;
}

std::shared_ptr<XPCEnd> XPCListener::connectClient(const std::shared_ptr<XPCEnd>& client) {
    const auto connection = makeConnection(cmn::XPCPeer{.userID = 1000, .processID = 10});
    connection->end()->setOther(client);
    connection->end()->post([self = shared_from_this(), connection] {
        if (!self->isAccepted(connection)) {
            connection->end()->setRejected();
            return;
        }
        const std::lock_guard lock(self->mutex_);
        std::erase_if(self->accepted_, [](const auto& known) { return known->invalidated(); });
        self->accepted_.insert(connection);
    });
    return connection->end();
}

XPCTransport::XPCTransport(std::shared_ptr<Dispatch> dispatch)
    : dispatch_(std::move(dispatch)), names_(std::make_shared<XPCNames>()) {}

std::shared_ptr<cmn::XPCConnection> XPCTransport::createConnection(const std::string& machServiceName,
                                                                   cmn::XPCConnectionOptions options) {
    const auto connection = std::make_shared<XPCConnection>(dispatch_, machServiceName, options, makeProxy);
    connection->setPeer(service);
    if (!makeProxy) {
        connection->setOnResume([end = connection->end().get(), names = names_, machServiceName] {
            const auto self = end->shared_from_this();
            names->addClient(machServiceName, self);
            self->setReach(
                [weak = self->weak_from_this(), names, machServiceName]() -> std::shared_ptr<XPCEnd> {
                    const auto listener = names->find(machServiceName);
                    const auto client = weak.lock();
                    return listener && client ? listener->connectClient(client) : nullptr;
                });
            self->post([self, names, machServiceName] {
                if (!names->find(machServiceName)) {
                    self->end(nullptr);
                } else if (!self->peer()) {
                    self->setPeer(cmn::XPCPeer{.processID = 1});
                }
            });
        });
    }
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
    const auto listener = std::make_shared<XPCListener>(dispatch_, names_, machServiceName);
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
