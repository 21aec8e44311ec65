#include "linux_usercommon/BusAddress.h"

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>
#include <charconv>
#include <cstdlib>
#include <optional>

namespace cmn {

namespace {

std::string Environment(const char* name) {
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

// "%2f" stands for a byte.
std::optional<std::string> Unescaped(std::string_view text) {
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            plain += text[i];
            continue;
        }
        unsigned char byte = 0;
        const std::string_view digits = text.substr(i + 1, 2);
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16);
        if (error != std::errc{} || digits.size() != 2 || end != digits.data() + 2) {
            return std::nullopt;
        }
        plain += static_cast<char>(byte);
        i += 2;
    }
    return plain;
}

std::optional<std::string> SocketName(std::string_view address) {
    constexpr std::string_view kUnix = "unix:";
    if (!address.starts_with(kUnix)) {
        return std::nullopt;
    }
    std::vector<std::string> pairs;
    boost::algorithm::split(pairs, address.substr(kUnix.size()), boost::algorithm::is_any_of(","));
    for (const std::string_view pair : pairs) {
        const std::size_t equals = pair.find('=');
        const std::string_view key = pair.substr(0, equals);
        if (equals == std::string_view::npos || (key != "path" && key != "abstract")) {
            continue;
        }
        const auto value = Unescaped(pair.substr(equals + 1));
        if (!value || value->empty()) {
            return std::nullopt;
        }
        return key == "path" ? *value : std::string(1, '\0') + *value;
    }
    return std::nullopt;
}

}  // namespace

std::vector<BusAddress> ParseBusAddresses(std::string_view list) {
    std::vector<std::string> entries;
    boost::algorithm::split(entries, list, boost::algorithm::is_any_of(";"));
    std::vector<BusAddress> addresses;
    for (const std::string& entry : entries) {
        if (const auto name = SocketName(entry)) {
            addresses.push_back({entry, *name});
        }
    }
    return addresses;
}

std::string SystemBusAddress() {
    const std::string address = Environment("DBUS_SYSTEM_BUS_ADDRESS");
    return !address.empty() ? address : "unix:path=/run/dbus/system_bus_socket";
}

std::string SessionBusAddress() {
    std::string address = Environment("DBUS_SESSION_BUS_ADDRESS");
    if (!address.empty()) {
        return address;
    }
    const std::string folder = Environment("XDG_RUNTIME_DIR");
    return !folder.empty() ? "unix:path=" + folder + "/bus" : "";
}

}  // namespace cmn
