#pragma once

#import <Foundation/Foundation.h>

#include <optional>

#include "usercommon/XPCPeer.h"

NS_ASSUME_NONNULL_BEGIN

namespace cmn {

// The process at the other end; nothing for no connection and for one whose other end is not known yet. Any
// thread. To be asked of [NSXPCConnection currentConnection] by whatever peers call.
std::optional<XPCPeer> PeerOf(NSXPCConnection* _Nullable connection);

}  // namespace cmn

NS_ASSUME_NONNULL_END
