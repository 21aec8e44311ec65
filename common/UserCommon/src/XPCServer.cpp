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

std::shared_ptr<XPCListener> XPCServer::listener() const {
    const std::lock_guard lock(propertyMutex_);
    return listener_;
}

void XPCServer::setListener(std::shared_ptr<XPCListener> listener) {
    const std::lock_guard lock(propertyMutex_);
    listener_.swap(listener);
}

}  // namespace cmn
