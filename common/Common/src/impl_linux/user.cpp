#include <systemd/sd-login.h>

#include <cstdlib>
#include <memory>
#include <string_view>

#include "common/SystemUtils.h"
#include "impl_posix/user_database.h"
#include "installed_user.h"

namespace cmn {

namespace {

constexpr auto kUsersRoot = "/home";
// The XDG_CONFIG_HOME of this process says nothing of where other users have theirs.
constexpr auto kAgentStartFile = ".config/autostart/com.tessarin.UserAgent.desktop";

struct Free {
    void operator()(char* text) const { std::free(text); }
};
using Text = std::unique_ptr<char, Free>;

// The login screen has a session of its own.
bool IsLoginScreen(const char* session) {
    char* kind = nullptr;
    const bool known = sd_session_get_class(session, &kind) >= 0;
    const Text owner(kind);
    return known && std::string_view(kind) == "greeter";
}

// The user whose session is in front at the first seat, by logind. Empty when nobody is logged in there. Does
// not wait.
std::optional<UserEntry> ConsoleUser() {
    char* session = nullptr;
    uid_t user = 0;
    const bool active = sd_seat_get_active("seat0", &session, &user) >= 0;
    const Text owner(session);
    if (!active || IsLoginScreen(session))
        return std::nullopt;
    return FindUser(user);
}

}  // namespace

std::string GetInstalledUserName() {
    return InstalledUserBelow(kUsersRoot, kAgentStartFile);
}

std::string GetCurrentUserName() {
    const auto user = ConsoleUser();
    return user ? user->name : std::string();
}

std::string GetInstallationUserHomePath() {
    const auto user = ConsoleUser();
    return user ? user->home : std::string();
}

std::string GetUsersRoot() {
    return kUsersRoot;
}

}  // namespace cmn
