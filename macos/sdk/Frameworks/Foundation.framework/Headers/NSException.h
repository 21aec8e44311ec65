#pragma once

#include <Foundation/NSDictionary.h>
#include <Foundation/NSString.h>

NS_ASSUME_NONNULL_BEGIN

typedef NSString* NSExceptionName;

FOUNDATION_EXPORT const NSExceptionName NSInvalidArgumentException;

__attribute__((objc_exception))
@interface NSException : NSObject<NSCopying, NSSecureCoding>
+ (NSException*)exceptionWithName:(NSExceptionName)name
                           reason:(nullable NSString*)reason
                         userInfo:(nullable NSDictionary*)userInfo;
@property(readonly, copy) NSExceptionName name;
@property(nullable, readonly, copy) NSString* reason;
@property(nullable, readonly, copy) NSDictionary* userInfo;
- (void)raise;
@end

NS_ASSUME_NONNULL_END
