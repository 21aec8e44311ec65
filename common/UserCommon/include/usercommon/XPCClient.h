#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "usercommon/Dispatch.h"
#include "usercommon/XPCConnection.h"

namespace cmn {

// One outgoing connection to a named service, with a fixed reconnect policy. To be owned by a shared pointer:
// the connection's handlers hold the client weakly. Thread-safe.
class XPCClient : public std::enable_shared_from_this<XPCClient> {
 public:
    // Does not connect.
    XPCClient(std::shared_ptr<Dispatch> dispatch, std::shared_ptr<XPCTransport> transport,
              std::string machServiceName, bool isServicePrivileged);
    virtual ~XPCClient() = default;
    XPCClient(const XPCClient&) = delete;
    XPCClient& operator=(const XPCClient&) = delete;

    // Opens a new connection, replacing an earlier one without invalidating it. Takes no lock. Never fails:
    // an absent service shows up later as invalidation.
    void connect();

    // Invalidates and drops the connection. The invalidation hook follows, so a subclass that reconnects
    // there comes back after the usual delay.
    void stop();

    // Hooks around `resume`, called by `connect` on its thread.
    virtual void willResumeConnection(const std::shared_ptr<XPCConnection>& connection);
    virtual void didResumeConnection(const std::shared_ptr<XPCConnection>& connection);

    // Hooks, called on the connection's private queue.
    virtual void connectionDidInvalidate();
    virtual void connectionDidInterrupt();

    // Schedules one `connect` three seconds from now, whatever the argument; keeps the client alive until
    // then. No back-off, no limit, no cancelling: overlapping calls all connect, one after the other.
    void reconnect(int attempts);

    std::shared_ptr<XPCConnection> connection() const;  // null before `connect` and after `stop`
    std::string machServiceName() const;
    void setMachServiceName(std::string machServiceName);
    bool isServicePrivileged() const { return isServicePrivileged_; }

 protected:
    void setConnection(std::shared_ptr<XPCConnection> connection);
    const std::shared_ptr<Dispatch>& dispatch() const { return dispatch_; }
    // This object, of that class.
    template <typename Derived>
    std::shared_ptr<Derived> self() {
        return std::static_pointer_cast<Derived>(shared_from_this());
    }

 private:
    const std::shared_ptr<Dispatch> dispatch_;
    const std::shared_ptr<XPCTransport> transport_;
    const bool isServicePrivileged_;

    mutable std::mutex propertyMutex_;  // guards the two properties below, never held across a call
    std::string machServiceName_;
    std::shared_ptr<XPCConnection> connection_;

    std::recursive_mutex objectLock_;  // makes reconnects run one after the other
};

}  // namespace cmn
