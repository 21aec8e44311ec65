#pragma once

#include <memory>

#import "macos_xpccommon/UserAgentProtocol.h"
#include "xpccommon/UserAgentProtocol.h"

NS_ASSUME_NONNULL_BEGIN

// The agent's extractor as the daemon calls it. Owns the portable one.
@interface URLExtractorImpl : NSObject <URLExtractor>
- (instancetype)initWithDelegate:(std::shared_ptr<cmn::URLExtractor>)delegate;
@end

NS_ASSUME_NONNULL_END
