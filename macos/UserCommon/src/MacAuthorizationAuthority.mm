#import "MacAuthorizationAuthority.h"

#import <Foundation/Foundation.h>
#import <Security/Security.h>

#include <stdexcept>

#import "common_mac/FoundationBridges.h"

namespace cmn {

namespace {

::AuthorizationItem ToPlatformItem(const AuthorizationItem& item) {
    void* const value = item.value.empty() ? nullptr : const_cast<char*>(item.value.data());
    return {item.name.c_str(), item.valueLength, value, item.flags};
}

}  // namespace

std::shared_ptr<Authorization> MacAuthorizationAuthority::obtain(const AuthorizationRequest& request) {
    @autoreleasepool {
        ::AuthorizationItem right = ToPlatformItem(request.right);
        ::AuthorizationItem prompt = ToPlatformItem(request.prompt);
        const ::AuthorizationRights rights{1, &right};
        const ::AuthorizationEnvironment environment{1, &prompt};
        SFAuthorization* const authorization = [[SFAuthorization alloc] init];
        NSError* error = nil;
        const BOOL granted = [authorization obtainWithRights:&rights
                                                       flags:static_cast<::AuthorizationFlags>(request.flags)
                                                 environment:&environment
                                            authorizedRights:nullptr
                                                       error:&error];
        if (!granted) {
            throw std::runtime_error(ToStdString(error.localizedDescription));
        }
        return std::make_shared<MacAuthorization>(authorization);
    }
}

std::shared_ptr<AuthorizationAuthority> SystemAuthorizationAuthority() {
    return std::make_shared<MacAuthorizationAuthority>();
}

}  // namespace cmn
