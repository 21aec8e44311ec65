#pragma once

#include <Foundation/NSArray.h>
#include <Foundation/NSString.h>

NS_ASSUME_NONNULL_BEGIN

@interface NSHost : NSObject
// May ask the network for the machine's names.
+ (instancetype)currentHost;
@property(nullable, readonly, copy) NSString* name;
@property(nullable, readonly, copy) NSString* localizedName;
@end

NS_ASSUME_NONNULL_END
