#include "impl_linux/SystemProbe.h"

#include <dirent.h>

#include <cerrno>
#include <fstream>
#include <utility>

#include "impl_linux/SystemFacts.h"

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

std::string MACAddressBelow(const std::string& root) {
    const auto routes = ReadText(root + "/proc/net/route");
    if (!routes)
        return {};
    auto interfaces = DefaultRouteInterfaces(*routes);
    for (auto& interface : DefaultRouteInterfacesV6(ReadText(root + "/proc/net/ipv6_route").value_or("")))
        interfaces.push_back(std::move(interface));
    auto none = FormatMACAddress("");
    for (const auto& interface : interfaces) {
        std::string file = root + "/sys/class/net/";
        file.append(interface).append("/address");
        auto address = FormatMACAddress(ReadText(file).value_or(""));
        if (address != none)
            return address;
    }
    return none;
}

std::string OSNameBelow(const std::string& root, std::string_view machine) {
    auto release = ReadText(root + "/etc/os-release");
    if (!release)
        release = ReadText(root + "/usr/lib/os-release");
    return FormatOSName(release.value_or(""), machine);
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
