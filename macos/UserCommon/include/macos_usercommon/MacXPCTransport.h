#pragma once

#include "usercommon/XPCConnection.h"

namespace cmn {

// Connections and listeners over NSXPC. A connection with the privileged option reaches a launch daemon of
// the system's domain, one without it an agent of the user's. Any thread.
class MacXPCTransport final : public XPCTransport {
 public:
    std::shared_ptr<XPCConnection> createConnection(const std::string& machServiceName,
                                                    XPCConnectionOptions options) override;
    std::shared_ptr<XPCListener> createListener(const std::string& machServiceName) override;
};

}  // namespace cmn
