#pragma once

#include <Foundation/Foundation.h>
#include <Security/Authorization.h>

@interface SFAuthorization : NSObject <NSSecureCoding>
+ (id)authorization;
- (instancetype)init;
// Asks the user where the flags allow it, and blocks meanwhile. False with an error when a right is not
// granted.
- (BOOL)obtainWithRights:(const AuthorizationRights*)rights
                   flags:(AuthorizationFlags)flags
             environment:(const AuthorizationEnvironment*)environment
        authorizedRights:(AuthorizationRights**)authorizedRights
                   error:(NSError**)error;
@end
