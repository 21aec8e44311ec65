#pragma once

#include <memory>

#import "macos_xpccommon/UserAgentProtocol.h"
#include "xpccommon/UserAgentProtocol.h"

NS_ASSUME_NONNULL_BEGIN

// The user agent service as its peers call it. Owns the portable one.
@interface UserAgentExportedObject : NSObject <UserAgentProtocol>
- (instancetype)initWithService:(std::shared_ptr<cmn::UserAgentProtocol>)service;
@end

NS_ASSUME_NONNULL_END
