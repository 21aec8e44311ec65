#include "usercommon/AuthorizationUtils.h"

#include <exception>

#include "common/log.h"
#include "common/utf8.h"

namespace cmn {

namespace {

AuthorizationRequest MakeRequest(const std::string& right, const std::string& localizedMessage,
                                 AuthorizationFlags flags) {
    AuthorizationRequest request;
    request.right.name = right;
    request.prompt.name = kPromptItemName;
    request.prompt.value = localizedMessage;
    // Kept: UTF-16 units, not bytes. For a text that is not plain ASCII it is less than the value's size.
    request.prompt.valueLength = Utf16Length(localizedMessage);
    request.flags = flags;
    return request;
}

}  // namespace

std::shared_ptr<Authorization> AuthorizationUtils::authorizationForRootAction(
    AuthorizationAuthority& authority, bool interactive) {
    return interactive
               ? askAuthorizationForRight(authority, kRootActionRight)
               : askAuthorizationForRight(authority, kRootActionRight, "", AuthorizationFlags::extendRights);
}

std::shared_ptr<Authorization> AuthorizationUtils::askAuthorizationForRight(AuthorizationAuthority& authority,
                                                                            const std::string& right) {
    return askAuthorizationForRight(authority, right, "");
}

std::shared_ptr<Authorization> AuthorizationUtils::askAuthorizationForRight(
    AuthorizationAuthority& authority, const std::string& right, const std::string& localizedMessage) {
    return askAuthorizationForRight(authority, right, localizedMessage,
                                    AuthorizationFlags::interactionAllowedAndExtendRights);
}

std::shared_ptr<Authorization> AuthorizationUtils::askAuthorizationForRight(
    AuthorizationAuthority& authority, const std::string& right, const std::string& localizedMessage,
    AuthorizationFlags flags) {
    try {
        return authority.obtain(MakeRequest(right, localizedMessage, flags));
    } catch (const std::exception& e) {
        TLOG_ERROR("Failed to authorize Installer Privileged Helper -- {}", e.what());
        return nullptr;
    }
}

}  // namespace cmn
