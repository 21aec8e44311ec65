#pragma once

#include <Foundation/NSDictionary.h>
#include <Foundation/NSString.h>

NS_ASSUME_NONNULL_BEGIN

typedef NSString* NSExceptionName;

__attribute__((objc_exception))
@interface NSException : NSObject<NSCopying, NSSecureCoding>
@property(readonly, copy) NSExceptionName name;
@property(nullable, readonly, copy) NSString* reason;
@property(nullable, readonly, copy) NSDictionary* userInfo;
@end

NS_ASSUME_NONNULL_END
