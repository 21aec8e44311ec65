#pragma once

#include <Foundation/NSDictionary.h>
#include <Foundation/NSString.h>

NS_ASSUME_NONNULL_BEGIN

typedef NSString* NSErrorDomain;
typedef NSString* NSErrorUserInfoKey;

FOUNDATION_EXPORT const NSErrorDomain NSCocoaErrorDomain;
FOUNDATION_EXPORT const NSErrorUserInfoKey NSLocalizedDescriptionKey;
FOUNDATION_EXPORT const NSErrorUserInfoKey NSLocalizedRecoverySuggestionErrorKey;

@interface NSError : NSObject <NSCopying, NSSecureCoding>
+ (instancetype)errorWithDomain:(NSErrorDomain)domain
                           code:(NSInteger)code
                       userInfo:(nullable NSDictionary<NSErrorUserInfoKey, id>*)dict;
@property(readonly, copy) NSErrorDomain domain;
@property(readonly) NSInteger code;
@property(readonly, copy) NSDictionary<NSErrorUserInfoKey, id>* userInfo;
@property(readonly, copy) NSString* localizedDescription;
@property(nullable, readonly, copy) NSString* localizedFailureReason;
@property(nullable, readonly, copy) NSString* localizedRecoverySuggestion;
@end

NS_ASSUME_NONNULL_END
