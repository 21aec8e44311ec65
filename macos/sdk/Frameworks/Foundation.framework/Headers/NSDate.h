#pragma once

#include <Foundation/NSObject.h>

NS_ASSUME_NONNULL_BEGIN

// In seconds.
typedef double NSTimeInterval;

@interface NSDate : NSObject <NSCopying, NSSecureCoding>
@end

@interface NSDate (NSExtendedDate)
@property(readonly) NSTimeInterval timeIntervalSince1970;
@end

@interface NSDate (NSDateCreation)
+ (instancetype)date;
+ (instancetype)dateWithTimeIntervalSince1970:(NSTimeInterval)secs;
@end

NS_ASSUME_NONNULL_END
