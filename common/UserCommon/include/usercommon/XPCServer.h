#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "usercommon/XPCConnection.h"

namespace cmn {

// One listener under a service name. To be owned by a shared pointer: the listener holds its delegate weakly.
// Thread-safe.
class XPCServer : public XPCListenerDelegate, public std::enable_shared_from_this<XPCServer> {
 public:
    // Does not listen.
    XPCServer(std::shared_ptr<XPCTransport> transport, std::string machServiceName);
    ~XPCServer() override = default;
    XPCServer(const XPCServer&) = delete;
    XPCServer& operator=(const XPCServer&) = delete;

    void start();
    void stop();

    // Passes the question on to `shouldAcceptNewConnection`.
    bool listenerShouldAcceptNewConnection(XPCListener& listener,
                                           const std::shared_ptr<XPCConnection>& connection) override;

    // Hooks that a service overrides. The base rejects every peer and warns "Not overridden". Called on the
    // connection's private queue.
    virtual bool shouldAcceptNewConnection(const std::shared_ptr<XPCConnection>& connection);
    virtual void connectionDidInvalidate();
    virtual void connectionDidInterrupt();

    const std::string& machServiceName() const { return machServiceName_; }
    std::shared_ptr<XPCListener> listener() const;  // null before `start` and after `stop`

 protected:
    // For `shouldAcceptNewConnection`: serves the peer with the object. What happens to the connection is
    // told to the functions first, on its private queue, and then to the hooks of a server that is still
    // there.
    void accept(const std::shared_ptr<XPCConnection>& connection,
                std::shared_ptr<const XPCInterface> interface, std::shared_ptr<XPCVersioning> object,
                std::function<void()> onInvalid, std::function<void()> onInterrupt);
    // This object, of that class.
    template <typename Derived>
    std::shared_ptr<Derived> self() {
        return std::static_pointer_cast<Derived>(shared_from_this());
    }

 private:
    void setListener(std::shared_ptr<XPCListener> listener);

    const std::shared_ptr<XPCTransport> transport_;
    const std::string machServiceName_;

    mutable std::mutex propertyMutex_;  // guards listener_, never held across a call
    std::shared_ptr<XPCListener> listener_;
};

}  // namespace cmn
