#include "usercommon/XPCPeer.h"

#include <utility>

namespace cmn {

namespace {
thread_local std::optional<XPCPeer> t_currentPeer;
}  // namespace

std::optional<XPCPeer> CurrentXPCPeer() {
    return t_currentPeer;
}

XPCPeerScope::XPCPeerScope(std::optional<XPCPeer> peer) : outer_(std::exchange(t_currentPeer, peer)) {}

XPCPeerScope::~XPCPeerScope() {
    t_currentPeer = outer_;
}

}  // namespace cmn
