#include "linux_bus/WellKnown.h"

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>
#include <cstdlib>

namespace cmn::bus {

namespace {

std::string Environment(const char* name) {
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

}  // namespace

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

std::vector<std::string> LocalAddresses(std::string_view list) {
    std::vector<std::string> addresses;
    boost::algorithm::split(addresses, list, boost::algorithm::is_any_of(";"));
    std::erase_if(addresses, [](const std::string& address) { return !address.starts_with("unix:"); });
    return addresses;
}

}  // namespace cmn::bus
