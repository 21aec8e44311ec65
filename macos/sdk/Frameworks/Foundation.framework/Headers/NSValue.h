#pragma once

#include <Foundation/NSObject.h>

@class NSString;

NS_ASSUME_NONNULL_BEGIN

@interface NSValue : NSObject <NSCopying, NSSecureCoding>
// The type of the value in the compiler's encoding, as in @encode.
@property(readonly) const char* objCType NS_RETURNS_INNER_POINTER;
@end

@interface NSNumber : NSValue
@property(readonly) int intValue;
@property(readonly) long long longLongValue;
@property(readonly) double doubleValue;
@property(readonly) BOOL boolValue;
@property(readonly, copy) NSString* stringValue;
@end

// What the compiler calls for @(value).
@interface NSNumber (NSNumberCreation)
+ (NSNumber*)numberWithBool:(BOOL)value;
@end

NS_ASSUME_NONNULL_END
