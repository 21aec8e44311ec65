#pragma once

#include <memory>

#import "macos_xpccommon/FinderExtensionCommunicator.h"
#include "xpccommon/FinderExtensionProtocol.h"

NS_ASSUME_NONNULL_BEGIN

// The Finder extension service as its peers call it. Owns the portable one.
@interface FinderExtensionExportedObject : NSObject <FinderExtensionCommunicator>
- (instancetype)initWithService:(std::shared_ptr<cmn::FinderExtensionCommunicator>)service;
@end

// A client's delegate as the service calls it. Holds the portable one weakly: it usually is the client that
// owns the connection.
@interface FinderExtensionDelegateObject : NSObject <FinderExtensionDelegate>
- (instancetype)initWithDelegate:(std::weak_ptr<cmn::FinderExtensionDelegate>)delegate;
@end

NS_ASSUME_NONNULL_END
