#pragma once

#include <Foundation/NSObject.h>

@interface NSNull : NSObject <NSCopying, NSSecureCoding>
+ (nonnull NSNull*)null;
@end
