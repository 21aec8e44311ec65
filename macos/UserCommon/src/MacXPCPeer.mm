#import "macos_usercommon/MacXPCPeer.h"

#include <cstdint>

namespace cmn {

std::optional<XPCPeer> PeerOf(NSXPCConnection* connection) {
    // Before the service was reached there is no process, and the user id means nothing.
    if (connection == nil || connection.processIdentifier <= 0) {
        return std::nullopt;
    }
    return XPCPeer{connection.effectiveUserIdentifier, connection.processIdentifier,
                   connection.auditSessionIdentifier,
                   reinterpret_cast<std::uintptr_t>((__bridge void*)connection)};
}

}  // namespace cmn
