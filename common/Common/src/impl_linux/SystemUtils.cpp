#include "common/SystemUtils.h"

#include <sys/utsname.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <filesystem>

#include "common/bundle.h"
#include "impl_linux/ConsoleUser.h"
#include "impl_linux/PropertyList.h"
#include "impl_linux/SystemFacts.h"
#include "impl_linux/SystemProbe.h"
#include "installed_user.h"

namespace cmn {

namespace {

constexpr auto kPersistPath = "/var/opt/tessarin";
constexpr auto kUsersRoot = "/home";
constexpr auto kAgentStartFile = ".config/autostart/com.tessarin.UserAgent.desktop";
constexpr auto kFullDiskAccessProbe = "/root";

}  // namespace

std::string GetHostName() {
    std::array<char, 256> name{};
    return gethostname(name.data(), name.size() - 1) == 0 ? std::string(name.data()) : std::string();
}

std::string GetMACAddress() {
    return MACAddressBelow("");
}

std::string GetInstalledUserName() {
    return InstalledUserBelow(kUsersRoot, kAgentStartFile);
}

std::string GetCurrentUserName() {
    const auto user = ConsoleUser();
    return user ? user->name : std::string();
}

std::string GetOSName() {
    utsname system{};
    const bool known = uname(&system) == 0;
    return OSNameBelow("", known ? system.machine : "");
}

std::string GetProcessPathForPID(unsigned int pid) {
    std::array<char, 4096> path{};
    const auto link = "/proc/" + std::to_string(pid) + "/exe";
    const auto length = readlink(link.c_str(), path.data(), path.size());
    return length < 1 ? std::string() : StripDeletedMark({path.data(), static_cast<std::size_t>(length)});
}

std::optional<std::string> GetBundleShortVersion() {
    const auto plist = ReadText(BundlePathOf(GetCurrentExecutablePath()) / "Contents/Info.plist");
    return plist ? FindPlistString(*plist, "CFBundleShortVersionString") : std::nullopt;
}

std::string GetInstallationUserHomePath() {
    const auto user = ConsoleUser();
    return user ? user->home : std::string();
}

std::string GetSharedPath() {
    const std::filesystem::path executable = GetCurrentExecutablePath();
    return SharedPathOf(BundlePathOf(executable), executable);
}

std::string GetPersistPath() {
    return kPersistPath;
}

std::string GetUsersRoot() {
    return kUsersRoot;
}

bool IsFullDiskAccessGranted() {
    return CanListFolder(kFullDiskAccessProbe);
}

void SystemLog(std::string_view message) {
    syslog(LOG_USER | LOG_NOTICE, "%.*s", static_cast<int>(message.size()), message.data());
}

}  // namespace cmn
