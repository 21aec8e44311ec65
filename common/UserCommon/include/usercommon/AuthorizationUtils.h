#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace cmn {

// May the user be asked, and may rights be added. Values are those of the platform that defined the flags.
enum class AuthorizationFlags : std::uint32_t {
    none = 0,
    interactionAllowed = 1,
    extendRights = 2,  // alone: only where that needs no dialog
    interactionAllowedAndExtendRights = 3,
};

inline constexpr const char* kRootActionRight = "system.privilege.admin";
// The product's own right, for its installer.
inline constexpr const char* kInstallationRight = "com.tessarin.installation";
inline constexpr const char* kPromptItemName = "prompt";

// One item of a set of rights or of the environment of a request.
struct AuthorizationItem {
    std::string name;
    std::string value;            // UTF-8
    std::size_t valueLength = 0;  // what the authority is told; need not be the value's size
    std::uint32_t flags = 0;
};

struct AuthorizationRequest {
    AuthorizationItem right;
    AuthorizationItem prompt;  // the text shown where a password is asked for
    AuthorizationFlags flags = AuthorizationFlags::none;
};

// A granted right. Letting go of it does not take the right back.
class Authorization {
 public:
    virtual ~Authorization() = default;
};

// The part of the system that grants rights. Any thread.
class AuthorizationAuthority {
 public:
    virtual ~AuthorizationAuthority() = default;

    // Blocks while the user is asked. Throws std::runtime_error with the reason when the right is refused,
    // the user gives up, or the authority cannot be asked. Never null.
    virtual std::shared_ptr<Authorization> obtain(const AuthorizationRequest& request) = 0;
};

// Of use to the product's other programs; the agent needs no rights.
//
// Obtains administrator rights. All functions may be called from any thread, throw nothing, block while the
// user is asked, and return null when the right was not granted; the reason is then in the log.
class AuthorizationUtils {
 public:
    // Without `interactive` the user is never asked.
    static std::shared_ptr<Authorization> authorizationForRootAction(AuthorizationAuthority& authority,
                                                                     bool interactive);
    // The user may be asked.
    static std::shared_ptr<Authorization> askAuthorizationForRight(AuthorizationAuthority& authority,
                                                                   const std::string& right);
    static std::shared_ptr<Authorization> askAuthorizationForRight(AuthorizationAuthority& authority,
                                                                   const std::string& right,
                                                                   const std::string& localizedMessage);
    static std::shared_ptr<Authorization> askAuthorizationForRight(AuthorizationAuthority& authority,
                                                                   const std::string& right,
                                                                   const std::string& localizedMessage,
                                                                   AuthorizationFlags flags);
};

// The authority of the running system. Provided by each platform end.
std::shared_ptr<AuthorizationAuthority> SystemAuthorizationAuthority();

}  // namespace cmn
