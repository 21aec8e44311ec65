#pragma once

#include <memory>
#include <string>

#include "usercommon/Dispatch.h"
#include "usercommon/XPCConnection.h"
#include "xpccommon/UserAgentObjCXPCServer.h"

namespace cmn {

struct UserAgentXPCServerImpl;

// The daemon's end of the user agent service. Listens from construction until `stop` or destruction.
// Thread-safe.
class UserAgentXPCServer {
 public:
    // A callback that is running when the server stops finishes; no new one starts after destruction.
    UserAgentXPCServer(URLReceivedBlock urlReceived, std::shared_ptr<Dispatch> dispatch,
                       std::shared_ptr<XPCTransport> transport);
    ~UserAgentXPCServer();
    UserAgentXPCServer(const UserAgentXPCServer&) = delete;
    UserAgentXPCServer& operator=(const UserAgentXPCServer&) = delete;

    void stop();

    // The URL that the agent of the active session's user, else the one registered last, knows for the
    // browser named in the text; empty when the text names none that can be asked, when no agent is
    // registered, or when it does not answer within three seconds. Blocks the caller.
    std::string getURL(const std::string& browser) const;

 private:
    std::shared_ptr<UserAgentXPCServerImpl> impl_;
};

std::unique_ptr<UserAgentXPCServer> CreateUserAgentXPCServer(URLReceivedBlock urlReceived,
                                                             std::shared_ptr<Dispatch> dispatch,
                                                             std::shared_ptr<XPCTransport> transport);

}  // namespace cmn
