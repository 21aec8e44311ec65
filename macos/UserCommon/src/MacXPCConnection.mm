#import "MacXPCConnection.h"

#include <utility>

#import "common_mac/FoundationBridges.h"
#import "common_mac/standard_errors.h"
#import "macos_usercommon/MacXPCPeer.h"

namespace cmn {

namespace {

std::shared_ptr<const MacXPCInterface> AsMacInterface(const std::shared_ptr<const XPCInterface>& interface) {
    return std::dynamic_pointer_cast<const MacXPCInterface>(interface);
}

RemoteError ToRemoteError(NSError* error) {
    return {ToStdString(error.description), ToStdString(error.localizedRecoverySuggestion)};
}

}  // namespace

MacXPCConnection::MacXPCConnection(NSXPCConnection* connection) : connection_(connection) {
    const auto handlers = handlers_;
    connection_.invalidationHandler = ^{
      callInvalidation(*handlers);
    };
    connection_.interruptionHandler = ^{
      callInterruption(*handlers);
    };
}

MacXPCConnection::~MacXPCConnection() {
    {
        const std::lock_guard lock(handlers_->mutex);
        handlers_->interruption = nullptr;
        if (handlers_->invalidating) {
            return;  // its handler still follows
        }
        handlers_->invalidation = nullptr;
        handlers_->ended = nullptr;
    }
    // The platform wants every connection invalidated before it goes.
    [connection_ invalidate];
}

void MacXPCConnection::callInvalidation(Handlers& handlers) {
    std::function<void()> invalidation;
    std::function<void()> ended;
    {
        const std::lock_guard lock(handlers.mutex);
        invalidation = std::exchange(handlers.invalidation, nullptr);
        ended = std::exchange(handlers.ended, nullptr);
        handlers.interruption = nullptr;
    }
    if (invalidation) {
        invalidation();
    }
    if (ended) {
        ended();
    }
}

void MacXPCConnection::callInterruption(Handlers& handlers) {
    std::function<void()> interruption;
    {
        const std::lock_guard lock(handlers.mutex);
        interruption = handlers.interruption;
    }
    if (interruption) {
        interruption();
    }
}

void MacXPCConnection::setInvalidationHandler(std::function<void()> handler) {
    const std::lock_guard lock(handlers_->mutex);
    handlers_->invalidation = std::move(handler);
}

void MacXPCConnection::setInterruptionHandler(std::function<void()> handler) {
    const std::lock_guard lock(handlers_->mutex);
    handlers_->interruption = std::move(handler);
}

void MacXPCConnection::setEnded(std::function<void()> ended) {
    const std::lock_guard lock(handlers_->mutex);
    handlers_->ended = std::move(ended);
}

void MacXPCConnection::setRemoteObjectInterface(std::shared_ptr<const XPCInterface> interface) {
    const std::lock_guard lock(mutex_);
    remoteInterface_ = AsMacInterface(interface);
    connection_.remoteObjectInterface = remoteInterface_ ? remoteInterface_->createInterface() : nil;
}

void MacXPCConnection::setExportedInterface(std::shared_ptr<const XPCInterface> interface) {
    const std::lock_guard lock(mutex_);
    exportedInterface_ = AsMacInterface(interface);
    connection_.exportedInterface = exportedInterface_ ? exportedInterface_->createInterface() : nil;
}

void MacXPCConnection::setExportedObject(std::shared_ptr<XPCVersioning> object) {
    const std::lock_guard lock(mutex_);
    exportedObject_ = std::move(object);
}

std::optional<XPCPeer> MacXPCConnection::peer() const {
    return PeerOf(connection_);
}

void MacXPCConnection::resume() {
    WithStandardErrors("NSXPCConnection resume", [this] {
        {
            const std::lock_guard lock(mutex_);
            if (exportedInterface_ && exportedObject_) {
                connection_.exportedObject = exportedInterface_->createExportedObject(exportedObject_);
            }
            exportedObject_ = nullptr;  // the connection holds it from now on, and lets go of it when it ends
        }
        [connection_ resume];
    });
}

void MacXPCConnection::invalidate() {
    {
        const std::lock_guard lock(handlers_->mutex);
        handlers_->invalidating = true;
    }
    [connection_ invalidate];
}

std::shared_ptr<XPCVersioning> MacXPCConnection::remoteObjectProxy(RemoteErrorHandler onError,
                                                                   std::chrono::nanoseconds /*deadline*/) {
    std::shared_ptr<const MacXPCInterface> interface;
    {
        const std::lock_guard lock(mutex_);
        interface = remoteInterface_;
    }
    if (!interface) {
        return nullptr;
    }
    // Of any thread, also of one that has no pool.
    @autoreleasepool {
        return WithStandardErrors("NSXPCConnection remoteObjectProxy", [this, &interface, onError] {
            id const remote = [connection_ remoteObjectProxyWithErrorHandler:^(NSError* error) {
              if (onError) {
                  onError(ToRemoteError(error));
              }
            }];
            return interface->createProxy(remote);
        });
    }
}

}  // namespace cmn
