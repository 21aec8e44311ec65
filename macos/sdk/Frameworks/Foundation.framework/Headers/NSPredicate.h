#pragma once

#include <Foundation/NSString.h>

NS_ASSUME_NONNULL_BEGIN

@interface NSPredicate : NSObject <NSSecureCoding, NSCopying>
+ (NSPredicate*)predicateWithFormat:(NSString*)predicateFormat, ...;
- (BOOL)evaluateWithObject:(nullable id)object;
@end

NS_ASSUME_NONNULL_END
