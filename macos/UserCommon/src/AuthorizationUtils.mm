#import "macos_usercommon/AuthorizationUtils.h"

#import "MacAuthorizationAuthority.h"
#import "common_mac/FoundationBridges.h"
#include "usercommon/AuthorizationUtils.h"

namespace {

SFAuthorization* Unwrapped(const std::shared_ptr<cmn::Authorization>& authorization) {
    const auto granted = std::dynamic_pointer_cast<cmn::MacAuthorization>(authorization);
    return granted ? granted->authorization() : nil;
}

}  // namespace

@implementation AuthorizationUtils

+ (nullable SFAuthorization*)authorizationForRootAction:(BOOL)interactive {
    cmn::MacAuthorizationAuthority authority;
    return Unwrapped(cmn::AuthorizationUtils::authorizationForRootAction(authority, interactive != NO));
}

+ (nullable SFAuthorization*)askAuthorizationForRight:(NSString*)right {
    cmn::MacAuthorizationAuthority authority;
    return Unwrapped(cmn::AuthorizationUtils::askAuthorizationForRight(authority, cmn::ToStdString(right)));
}

+ (nullable SFAuthorization*)askAuthorizationForRight:(NSString*)right localizedMessage:(NSString*)message {
    cmn::MacAuthorizationAuthority authority;
    return Unwrapped(cmn::AuthorizationUtils::askAuthorizationForRight(authority, cmn::ToStdString(right),
                                                                       cmn::ToStdString(message)));
}

+ (nullable SFAuthorization*)askAuthorizationForRight:(NSString*)right
                                     localizedMessage:(NSString*)message
                                                flags:(AuthorizationFlags)flags {
    cmn::MacAuthorizationAuthority authority;
    return Unwrapped(cmn::AuthorizationUtils::askAuthorizationForRight(
        authority, cmn::ToStdString(right), cmn::ToStdString(message),
        static_cast<cmn::AuthorizationFlags>(flags)));
}

@end
