#pragma once

#import <Foundation/Foundation.h>
#import <Security/Security.h>
#import <SecurityFoundation/SecurityFoundation.h>

NS_ASSUME_NONNULL_BEGIN

// Obtains administrator rights. Any thread; blocks while the user is asked. Nil when the right was not
// granted; the reason is then in the log.
@interface AuthorizationUtils : NSObject

// With NO the user is never asked.
+ (nullable SFAuthorization*)authorizationForRootAction:(BOOL)interactive;
+ (nullable SFAuthorization*)askAuthorizationForRight:(NSString*)right;
+ (nullable SFAuthorization*)askAuthorizationForRight:(NSString*)right localizedMessage:(NSString*)message;
+ (nullable SFAuthorization*)askAuthorizationForRight:(NSString*)right
                                     localizedMessage:(NSString*)message
                                                flags:(AuthorizationFlags)flags;

@end

NS_ASSUME_NONNULL_END
