#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <utility>

#include "common/proto_settings.h"
#include "usercommon/XPCClient.h"

namespace cmn {

// Whose services a client uses.
enum class ServiceOwners { anybody, root };
ServiceOwners OwnersOf(const proto::TSettings& settings);

// What the agent's clients of both services have in common: a service of somebody who is not allowed counts
// as absent, each new connection is checked with `version`, and each that ended is made again.
class ServiceClient : public XPCClient {
 public:
    // True between an answered `version` of a service that is allowed and the next invalidation or
    // interruption. For information only: messages are sent in any case.
    bool connected() const { return connected_; }

 protected:
    // Does not connect.
    ServiceClient(std::shared_ptr<Dispatch> dispatch, std::shared_ptr<XPCTransport> transport,
                  const char* machServiceName, ServiceOwners owners);

    // Asks a new connection for its version on the high-priority queue, waits at most `deadline` and sets
    // `connected`. In effect a single attempt: the one that is scheduled a second after an unanswered first
    // normally finds nothing left to run. A late answer still counts. Does not keep the connection alive: one
    // that is replaced meanwhile must be gone, or its end would be reported, and answered with a reconnect, a
    // second time.
    void validateConnection(const std::shared_ptr<XPCConnection>& connection,
                            std::chrono::nanoseconds deadline, RemoteErrorHandler onError);
    // Called on the connection's private queue when a service that is allowed has answered that.
    virtual void didValidateConnection() {}

    // For the hooks of a connection's end.
    void connectionEnded(int attempts);

    ServiceOwners allowedOwners() const { return owners_; }

    // A proxy of the service; null while there is no connection and while the service is not allowed.
    template <typename Protocol>
    std::shared_ptr<Protocol> remoteObject(RemoteErrorHandler onError,
                                           std::chrono::nanoseconds deadline = kNoRequestDeadline) const {
        const auto current = connection();
        return current && isAllowed(*current) ? std::dynamic_pointer_cast<Protocol>(
                                                    current->remoteObjectProxy(std::move(onError), deadline))
                                              : nullptr;
    }

 private:
    // A service whose owner is not known is not root's.
    bool isAllowed(const XPCConnection& connection) const;
    // Tells in the log, once in the life of this object, of a service that is not root's.
    void reviewOwner(const XPCConnection& connection);
    void answered(const XPCConnection* connection);

    const ServiceOwners owners_;
    std::atomic<bool> ownerTold_{false};
    std::atomic<bool> connected_{false};
};

}  // namespace cmn
