#include "impl_linux/machine.h"

#include <dirent.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <fstream>
#include <map>
#include <sstream>
#include <utility>

#include "common/SystemUtils.h"

namespace cmn {

namespace {

constexpr auto kPersistPath = "/var/opt/tessarin";
constexpr auto kFullDiskAccessProbe = "/root";
constexpr std::size_t kMaxTextFile = 1 << 20;
constexpr std::uint32_t kRouteUp = 0x0001;
constexpr std::uint32_t kRouteReject = 0x0200;

// Calls back for every line until it returns true.
template <class F>
void ForEachLine(std::string_view text, F&& useLine) {
    while (!text.empty()) {
        const auto end = text.find('\n');
        if (useLine(text.substr(0, end)) || end == std::string_view::npos)
            return;
        text.remove_prefix(end + 1);
    }
}

std::string Unquote(std::string_view value) {
    const char quote =
        !value.empty() && (value.front() == '"' || value.front() == '\'') ? value.front() : '\0';
    if (quote != '\0')
        value.remove_prefix(1);
    std::string result;
    for (std::size_t i = 0; i < value.size(); ++i) {
        if (quote != '\0' && value[i] == quote)
            break;
        if (value[i] == '\\' && quote != '\'' && i + 1 < value.size())
            ++i;
        result += value[i];
    }
    return result;
}

std::vector<std::string> Columns(std::string_view line) {
    std::istringstream in{std::string(line)};
    std::vector<std::string> columns;
    for (std::string column; in >> column;)
        columns.push_back(std::move(column));
    return columns;
}

std::optional<std::uint32_t> Number(std::string_view text, int base) {
    std::uint32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

// The interfaces of usable routes, best first.
class Routes {
 public:
    void add(const std::string& interface, std::string_view flags, std::string_view metric, int metricBase) {
        const auto bits = Number(flags, 16);
        const auto cost = Number(metric, metricBase);
        if (bits && cost && (*bits & kRouteUp) != 0 && (*bits & kRouteReject) == 0)
            byCost_.emplace(*cost, interface);
    }
    std::vector<std::string> interfaces() const {
        std::vector<std::string> names;
        for (const auto& [cost, interface] : byCost_)
            names.push_back(interface);
        return names;
    }

 private:
    std::multimap<std::uint32_t, std::string> byCost_;  // keeps the order of equal costs
};

}  // namespace

std::optional<std::string> FindAssignment(std::string_view text, std::string_view name) {
    std::optional<std::string> value;
    ForEachLine(text, [&](std::string_view line) {
        if (line.size() > name.size() && line.starts_with(name) && line[name.size()] == '=')
            value = Unquote(line.substr(name.size() + 1));
        return value.has_value();
    });
    return value;
}

std::vector<std::string> DefaultRouteInterfaces(std::string_view routes) {
    // Iface Destination Gateway Flags RefCnt Use Metric Mask ...
    Routes found;
    ForEachLine(routes, [&](std::string_view line) {
        const auto columns = Columns(line);
        if (columns.size() >= 8 && columns[1] == "00000000" && columns[7] == "00000000")
            found.add(columns[0], columns[3], columns[6], 10);
        return false;
    });
    return found.interfaces();
}

std::vector<std::string> DefaultRouteInterfacesV6(std::string_view routes) {
    // destination length source length next-hop metric refcount use flags interface
    const std::string any(32, '0');
    Routes found;
    ForEachLine(routes, [&](std::string_view line) {
        const auto columns = Columns(line);
        if (columns.size() >= 10 && columns[0] == any && columns[1] == "00" && columns[9] != "lo")
            found.add(columns[9], columns[8], columns[5], 16);
        return false;
    });
    return found.interfaces();
}

std::string FormatMACAddress(std::string_view address) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::array<std::uint32_t, 6> bytes{};
    for (auto& byte : bytes) {
        const auto value = address.size() >= 2 ? Number(address.substr(0, 2), 16) : std::nullopt;
        if (!value) {
            bytes.fill(0);
            break;
        }
        byte = *value;
        address.remove_prefix(address.size() > 2 ? 3 : 2);
    }
    std::string text;
    for (const auto byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

std::string FormatOSName(std::string_view osRelease, std::string_view machine) {
    auto name = FindAssignment(osRelease, "NAME").value_or("");
    if (name.empty())
        name = "Linux";
    const auto version = FindAssignment(osRelease, "VERSION_ID").value_or("");
    if (!version.empty())
        name += " " + version;
    return name + " (" + std::string(machine.empty() ? "?" : machine) + ")";
}

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

std::string GetHostName() {
    std::array<char, 256> name{};
    return gethostname(name.data(), name.size() - 1) == 0 ? std::string(name.data()) : std::string();
}

std::string GetMACAddress() {
    return MACAddressBelow("");
}

std::string GetOSName() {
    utsname system{};
    const bool known = uname(&system) == 0;
    return OSNameBelow("", known ? system.machine : "");
}

std::string GetPersistPath() {
    return kPersistPath;
}

bool IsFullDiskAccessGranted() {
    return CanListFolder(kFullDiskAccessProbe);
}

}  // namespace cmn
