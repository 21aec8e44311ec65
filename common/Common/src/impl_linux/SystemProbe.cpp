#include "impl_linux/SystemProbe.h"

#include <dirent.h>

#include <cerrno>
#include <fstream>

#include "impl_linux/SystemFacts.h"
#include "impl_posix/UserDatabase.h"

namespace cmn {

namespace {

constexpr std::size_t kMaxTextFile = 1 << 20;

}  // namespace

std::optional<std::string> ReadText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return std::nullopt;
    std::string text(kMaxTextFile, '\0');
    in.read(text.data(), static_cast<std::streamsize>(text.size()));
    if (in.bad())
        return std::nullopt;
    text.resize(static_cast<std::size_t>(in.gcount()));
    return text;
}

std::string ConsoleUserOf(const std::string& runFolder) {
    const auto seat = ReadText(runFolder + "/seats/seat0").value_or("");
    const auto session = FindAssignment(seat, "ACTIVE").value_or("");
    const auto uid = ParseUserId(FindAssignment(seat, "ACTIVE_UID").value_or(""));
    if (session.empty() || !uid)
        return {};
    // Nobody is logged in while the login screen has the console.
    const auto details = ReadText(runFolder + "/sessions/" + session).value_or("");
    if (FindAssignment(details, "CLASS").value_or("user") == "greeter")
        return {};
    const auto user = FindUser(*uid);
    return user ? user->name : std::string();
}

std::string HomeOfConsoleUser(const std::string& runFolder) {
    const auto name = ConsoleUserOf(runFolder);
    const auto user = name.empty() ? std::nullopt : FindUser(name);
    return user ? user->home : std::string();
}

std::string MACAddressBelow(const std::string& root) {
    const auto routes = ReadText(root + "/proc/net/route");
    if (!routes)
        return {};
    auto interface = DefaultRouteInterface(*routes);
    if (interface.empty())
        interface = DefaultRouteInterfaceV6(ReadText(root + "/proc/net/ipv6_route").value_or(""));
    if (interface.empty())
        return FormatMACAddress("");
    return FormatMACAddress(ReadText(root + "/sys/class/net/" + interface + "/address").value_or(""));
}

bool CanListFolder(const std::string& path) {
    DIR* folder = opendir(path.c_str());
    if (folder == nullptr)
        return false;
    errno = 0;
    const bool listed = readdir(folder) != nullptr || errno == 0;
    closedir(folder);
    return listed;
}

}  // namespace cmn
