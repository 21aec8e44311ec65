#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "common/SystemUtils.h"
#include "impl_linux/journal.h"
#include "impl_posix/user_database.h"

namespace cmn {

namespace {

constexpr auto kSystemLogFolder = "/var/log/tessarin";
constexpr auto kJournal = "/run/systemd/journal/socket";

std::string EnvironmentFolder(const char* name) {
    const char* const value = std::getenv(name);
    return value != nullptr && *value == '/' ? value : "";
}

std::string OwnHome() {
    std::string home = EnvironmentFolder("HOME");
    if (home.empty()) {
        const auto user = FindUser(geteuid());
        home = user ? user->home : "";
    }
    return home;
}

}  // namespace

std::string GetUserLogFolder() {
    const std::string state = EnvironmentFolder("XDG_STATE_HOME");
    if (!state.empty())
        return state + "/tessarin";
    // A home that is not there, as that of a system's account, is not made.
    const std::string home = OwnHome();
    std::error_code error;
    return std::filesystem::is_directory(home, error) ? home + "/.local/state/tessarin" : "";
}

std::string GetSystemLogFolder() {
    // It is the installation's.
    std::error_code error;
    return std::filesystem::is_directory(kSystemLogFolder, error) ? kSystemLogFolder : "";
}

void SystemLog(std::string_view message) {
    syslog(LOG_USER | LOG_NOTICE, "%.*s", static_cast<int>(message.size()), message.data());
}

void SystemJournal(std::string_view message) noexcept {
    SendToJournal(kJournal, program_invocation_short_name, message);
}

}  // namespace cmn
