#pragma once

#include <Foundation/NSObject.h>

NS_ASSUME_NONNULL_BEGIN

@interface NSData : NSObject <NSCopying, NSMutableCopying, NSSecureCoding>
@property(readonly) NSUInteger length;
// May be null for empty data.
@property(readonly) const void* bytes NS_RETURNS_INNER_POINTER;
@end

@interface NSData (NSDataCreation)
+ (instancetype)dataWithBytes:(nullable const void*)bytes length:(NSUInteger)length;
@end

NS_ASSUME_NONNULL_END
