#pragma once

#include <unistd.h>

#include <cstdint>

#include "usercommon/XPCPeer.h"

namespace fake {

// A process that asks the scanner.
inline cmn::XPCPeer Asker(uid_t user) {
    cmn::XPCPeer asker;
    asker.userID = user;
    asker.processID = static_cast<std::int32_t>(getpid());
    return asker;
}

// This process itself: files are read with the rights it has.
inline cmn::XPCPeer Self() {
    return Asker(geteuid());
}

}  // namespace fake
