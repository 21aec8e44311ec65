#pragma once

#include <cstdint>
#include <optional>

namespace cmn {

// The process at the other end of a connection, as the system vouches for it.
struct XPCPeer {
    std::uint32_t userID = 0;         // the effective user
    std::int32_t processID = 0;       // a hint only: the system uses ids again
    std::int32_t auditSessionID = 0;  // macOS; else 0
    // Tells the connections of one listener apart for as long as they last, also two of one process. Without
    // meaning on a client's side.
    std::uint64_t connectionID = 0;

    bool operator==(const XPCPeer&) const = default;
};

// Who sent the message that the calling thread delivers now, to an exported object or to one that was passed
// along with a message. Nothing outside of a delivery and when the peer is not known.
std::optional<XPCPeer> CurrentXPCPeer();

// Makes a peer the current one of the calling thread while this object lives; then the one before is current
// again. The transports put one around each delivery.
class XPCPeerScope {
 public:
    explicit XPCPeerScope(std::optional<XPCPeer> peer);
    ~XPCPeerScope();
    XPCPeerScope(const XPCPeerScope&) = delete;
    XPCPeerScope& operator=(const XPCPeerScope&) = delete;

 private:
    const std::optional<XPCPeer> outer_;
};

}  // namespace cmn
