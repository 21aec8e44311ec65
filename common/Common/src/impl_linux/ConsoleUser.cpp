#include "impl_linux/ConsoleUser.h"

#include <systemd/sd-login.h>

#include <cstdlib>
#include <memory>
#include <string_view>

namespace cmn {

namespace {

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

}  // namespace

std::optional<UserEntry> ConsoleUser() {
    char* session = nullptr;
    uid_t user = 0;
    const bool active = sd_seat_get_active("seat0", &session, &user) >= 0;
    const Text owner(session);
    if (!active || IsLoginScreen(session))
        return std::nullopt;
    return FindUser(user);
}

}  // namespace cmn
