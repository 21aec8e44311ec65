#pragma once

#include <atomic>
#include <string>

#include "common/proto_settings.h"
#include "usercommon/XPCConnection.h"

namespace cmn {

// Whose services a client uses.
enum class ServiceOwners { anybody, root };
ServiceOwners OwnersOf(const proto::TSettings& settings);

// A client's opinion of who runs its service. Thread-safe.
class ServiceOwnerCheck {
 public:
    ServiceOwnerCheck(std::string machServiceName, ServiceOwners allowed);

    ServiceOwners allowed() const { return allowed_; }

    // Whether the service may be used over this connection now. One whose owner is not known is not root's.
    bool allows(const XPCConnection& connection) const;

    // For a service that has answered: the same, and a service that is not root's is told in the log, once in
    // the life of this object.
    bool review(const XPCConnection& connection);

 private:
    const std::string machServiceName_;
    const ServiceOwners allowed_;
    std::atomic<bool> told_{false};
};

}  // namespace cmn
