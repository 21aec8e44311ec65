#pragma once

#import <SecurityFoundation/SecurityFoundation.h>

#include <memory>

#include "usercommon/AuthorizationUtils.h"

namespace cmn {

// A right that Authorization Services granted.
class MacAuthorization final : public Authorization {
 public:
    explicit MacAuthorization(SFAuthorization* authorization) : authorization_(authorization) {}

    SFAuthorization* authorization() const { return authorization_; }

 private:
    SFAuthorization* const authorization_;
};

class MacAuthorizationAuthority final : public AuthorizationAuthority {
 public:
    std::shared_ptr<Authorization> obtain(const AuthorizationRequest& request) override;
};

}  // namespace cmn
