#pragma once

#include <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

@interface FIFinderSyncController : NSExtensionContext
@property(class, nonatomic, readonly, getter=isExtensionEnabled) BOOL extensionEnabled;
+ (void)showExtensionManagementInterface;
@end

NS_ASSUME_NONNULL_END
