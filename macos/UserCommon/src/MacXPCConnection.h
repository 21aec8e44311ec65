#pragma once

#import <Foundation/Foundation.h>

#include <functional>
#include <memory>
#include <mutex>

#include "macos_usercommon/MacXPCInterface.h"

namespace cmn {

// One NSXPCConnection, either to a service or from a peer of a listener.
class MacXPCConnection final : public XPCConnection {
 public:
    // Wires the connection's handlers; it is not resumed.
    explicit MacXPCConnection(NSXPCConnection* connection);
    ~MacXPCConnection() override;
    MacXPCConnection(const MacXPCConnection&) = delete;
    MacXPCConnection& operator=(const MacXPCConnection&) = delete;

    void setInvalidationHandler(std::function<void()> handler) override;
    void setInterruptionHandler(std::function<void()> handler) override;
    void setRemoteObjectInterface(std::shared_ptr<const XPCInterface> interface) override;
    void setExportedInterface(std::shared_ptr<const XPCInterface> interface) override;
    void setExportedObject(std::shared_ptr<XPCVersioning> object) override;
    std::optional<XPCPeer> peer() const override;
    void resume() override;
    void invalidate() override;
    // Ignores the deadline: the platform keeps no list of calls that could be full, so nothing is occupied.
    std::shared_ptr<XPCVersioning> remoteObjectProxy(RemoteErrorHandler onError,
                                                     std::chrono::nanoseconds deadline) override;

    // For whoever keeps this object: called on the private queue after the invalidation handler.
    void setEnded(std::function<void()> ended);

 private:
    // Outlives this object for as long as the connection may call.
    struct Handlers {
        std::mutex mutex;  // guards the others, never held across a call
        std::function<void()> invalidation;
        std::function<void()> interruption;
        std::function<void()> ended;
        bool invalidating = false;
    };

    static void callInvalidation(Handlers& handlers);
    static void callInterruption(Handlers& handlers);

    NSXPCConnection* const connection_;
    const std::shared_ptr<Handlers> handlers_ = std::make_shared<Handlers>();

    std::mutex mutex_;  // guards the interfaces and the object
    std::shared_ptr<const MacXPCInterface> remoteInterface_;
    std::shared_ptr<const MacXPCInterface> exportedInterface_;
    std::shared_ptr<XPCVersioning> exportedObject_;
};

}  // namespace cmn
