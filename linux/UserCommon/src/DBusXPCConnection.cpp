#include "DBusXPCConnection.h"

#include <utility>

namespace cmn {

DBusXPCConnection::DBusXPCConnection(std::shared_ptr<DBusChannelCore> core) : core_(std::move(core)) {}

DBusXPCConnection::~DBusXPCConnection() {
    core_->abandon();
}

void DBusXPCConnection::setInvalidationHandler(std::function<void()> handler) {
    core_->setInvalidationHandler(std::move(handler));
}

void DBusXPCConnection::setInterruptionHandler(std::function<void()> handler) {
    core_->setInterruptionHandler(std::move(handler));
}

void DBusXPCConnection::setRemoteObjectInterface(std::shared_ptr<const XPCInterface> interface) {
    core_->setRemoteObjectInterface(std::dynamic_pointer_cast<const DBusXPCInterface>(interface));
}

void DBusXPCConnection::setExportedInterface(std::shared_ptr<const XPCInterface> interface) {
    core_->setExportedInterface(std::dynamic_pointer_cast<const DBusXPCInterface>(interface));
}

void DBusXPCConnection::setExportedObject(std::shared_ptr<XPCVersioning> object) {
    core_->setExportedObject(std::move(object));
}

void DBusXPCConnection::resume() {
    core_->resume();
}

void DBusXPCConnection::invalidate() {
    // Whoever invalidates usually lets go of it at once; the handler is still to be called.
    core_->invalidate(shared_from_this());
}

std::shared_ptr<XPCVersioning> DBusXPCConnection::remoteObjectProxy(RemoteErrorHandler onError,
                                                                    std::chrono::nanoseconds /*deadline*/) {
    return core_->remoteObjectProxy(std::move(onError));
}

}  // namespace cmn
