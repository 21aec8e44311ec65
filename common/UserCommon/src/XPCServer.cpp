#include "usercommon/XPCServer.h"

#include <utility>

#include "common/log.h"

namespace cmn {

XPCServer::XPCServer(std::shared_ptr<XPCTransport> transport, std::string machServiceName)
    : transport_(std::move(transport)), machServiceName_(std::move(machServiceName)) {}

void XPCServer::start() {
    const std::shared_ptr<XPCListener> listener = transport_->createListener(machServiceName_);
    setListener(listener);
    listener->setDelegate(weak_from_this());
    listener->resume();
}

void XPCServer::stop() {
    if (const auto current = listener()) {
        current->invalidate();
    }
    setListener(nullptr);
}

bool XPCServer::listenerShouldAcceptNewConnection(XPCListener& /*listener*/,
                                                  const std::shared_ptr<XPCConnection>& connection) {
    return shouldAcceptNewConnection(connection);
}

bool XPCServer::shouldAcceptNewConnection(const std::shared_ptr<XPCConnection>& /*connection*/) {
    TLOG_WARN("Not overridden");
    return false;
}

void XPCServer::connectionDidInvalidate() {
    TLOG_WARN("Not overridden");
}

void XPCServer::connectionDidInterrupt() {
    TLOG_WARN("Not overridden");
}

void XPCServer::accept(const std::shared_ptr<XPCConnection>& connection,
                       std::shared_ptr<const XPCInterface> interface, std::shared_ptr<XPCVersioning> object,
                       std::function<void()> onInvalid, std::function<void()> onInterrupt) {
    const auto telling = [weakSelf = weak_from_this()](std::function<void()> first,
                                                       void (XPCServer::*hook)()) {
        return [weakSelf, first = std::move(first), hook] {
            first();
            if (const auto self = weakSelf.lock()) {
                (self.get()->*hook)();
            }
        };
    };
    connection->setInvalidationHandler(telling(std::move(onInvalid), &XPCServer::connectionDidInvalidate));
    connection->setInterruptionHandler(telling(std::move(onInterrupt), &XPCServer::connectionDidInterrupt));
    connection->setExportedInterface(std::move(interface));
    connection->setExportedObject(std::move(object));
    connection->resume();
}

std::shared_ptr<XPCListener> XPCServer::listener() const {
    const std::lock_guard lock(propertyMutex_);
    return listener_;
}

void XPCServer::setListener(std::shared_ptr<XPCListener> listener) {
    const std::lock_guard lock(propertyMutex_);
    listener_.swap(listener);
}

}  // namespace cmn
