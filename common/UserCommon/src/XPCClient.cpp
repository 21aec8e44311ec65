#include "usercommon/XPCClient.h"

#include <chrono>
#include <utility>

namespace cmn {

namespace {
constexpr std::chrono::nanoseconds kReconnectDelay{3'000'000'000};
}  // namespace

XPCClient::XPCClient(std::shared_ptr<Dispatch> dispatch, std::shared_ptr<XPCTransport> transport,
                     std::string machServiceName, bool isServicePrivileged)
    : dispatch_(std::move(dispatch)),
      transport_(std::move(transport)),
      isServicePrivileged_(isServicePrivileged),
      machServiceName_(std::move(machServiceName)) {}

void XPCClient::connect() {
    const auto options =
        isServicePrivileged() ? XPCConnectionOptions::privileged : XPCConnectionOptions::none;
    const std::shared_ptr<XPCConnection> connection =
        transport_->createConnection(machServiceName(), options);
    setConnection(connection);
    const auto telling = [weakSelf = weak_from_this()](void (XPCClient::*hook)()) {
        return [weakSelf, hook] {
            if (const auto self = weakSelf.lock()) {
                (self.get()->*hook)();
            }
        };
    };
    connection->setInvalidationHandler(telling(&XPCClient::connectionDidInvalidate));
    connection->setInterruptionHandler(telling(&XPCClient::connectionDidInterrupt));
    willResumeConnection(connection);
    connection->resume();
    didResumeConnection(connection);
}

void XPCClient::stop() {
    if (const auto current = connection()) {
        current->invalidate();
    }
    setConnection(nullptr);
}

void XPCClient::willResumeConnection(const std::shared_ptr<XPCConnection>& /*connection*/) {}

void XPCClient::didResumeConnection(const std::shared_ptr<XPCConnection>& /*connection*/) {}

void XPCClient::connectionDidInvalidate() {}

void XPCClient::connectionDidInterrupt() {}

void XPCClient::reconnect(int /*attempts*/) {
    dispatch_->after(kReconnectDelay, QueuePriority::normal, [self = shared_from_this()] {
        const std::lock_guard lock(self->objectLock_);
        self->connect();
    });
}

std::shared_ptr<XPCConnection> XPCClient::connection() const {
    const std::lock_guard lock(propertyMutex_);
    return connection_;
}

void XPCClient::setConnection(std::shared_ptr<XPCConnection> connection) {
    // The earlier connection is destroyed after the lock is given back: its destructor is foreign code.
    const std::lock_guard lock(propertyMutex_);
    connection_.swap(connection);
}

std::string XPCClient::machServiceName() const {
    const std::lock_guard lock(propertyMutex_);
    return machServiceName_;
}

void XPCClient::setMachServiceName(std::string machServiceName) {
    const std::lock_guard lock(propertyMutex_);
    machServiceName_ = std::move(machServiceName);
}

}  // namespace cmn
