#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>

#include "usercommon/Dispatch.h"
#include "usercommon/XPCConnection.h"

namespace cmn {

struct ConnectionValidation {
    std::chrono::nanoseconds deadline;  // how long an answer is waited for
    // The client's flag, shared with the client; it is not kept alive while the validation waits.
    std::weak_ptr<std::atomic<bool>> connected;
    RemoteErrorHandler onError;
    // Asked, on the connection's private queue, about the connection that answered; false leaves the flag as
    // it is.
    std::function<bool(const XPCConnection&)> accepts;
};

// Asks a new connection for its version on the high-priority queue and sets the flag when it answers and is
// accepted. In effect a single attempt: the one that is scheduled a second after an unanswered first normally
// finds nothing left to run. A late answer still sets the flag. Does not keep the connection alive: one that
// is replaced meanwhile must be gone, or its end would be reported, and answered with a reconnect, a second
// time.
void ValidateConnection(const std::shared_ptr<Dispatch>& dispatch,
                        const std::shared_ptr<XPCConnection>& connection, ConnectionValidation validation);

}  // namespace cmn
