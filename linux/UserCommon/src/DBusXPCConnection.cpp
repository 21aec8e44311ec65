#include "DBusXPCConnection.h"

#include <utility>

namespace cmn {

DBusXPCConnection::DBusXPCConnection(std::shared_ptr<BusChannel> channel) : channel_(std::move(channel)) {}

DBusXPCConnection::~DBusXPCConnection() {
    channel_->abandon();
}

void DBusXPCConnection::setInvalidationHandler(std::function<void()> handler) {
    channel_->setInvalidationHandler(std::move(handler));
}

void DBusXPCConnection::setInterruptionHandler(std::function<void()> handler) {
    channel_->setInterruptionHandler(std::move(handler));
}

void DBusXPCConnection::setRemoteObjectInterface(std::shared_ptr<const XPCInterface> interface) {
    channel_->setRemoteObjectInterface(std::dynamic_pointer_cast<const ServiceInterface>(interface));
}

void DBusXPCConnection::setExportedInterface(std::shared_ptr<const XPCInterface> interface) {
    channel_->setExportedInterface(std::dynamic_pointer_cast<const ServiceInterface>(interface));
}

void DBusXPCConnection::setExportedObject(std::shared_ptr<XPCVersioning> object) {
    channel_->setExportedObject(std::move(object));
}

void DBusXPCConnection::resume() {
    channel_->resume();
}

void DBusXPCConnection::invalidate() {
    // Whoever invalidates usually lets go of it at once; the handler is still to be called.
    channel_->end("it was invalidated", shared_from_this());
}

std::shared_ptr<XPCVersioning> DBusXPCConnection::remoteObjectProxy(RemoteErrorHandler onError,
                                                                    std::chrono::nanoseconds deadline) {
    return channel_->remoteObjectProxy(std::move(onError), deadline);
}

}  // namespace cmn
