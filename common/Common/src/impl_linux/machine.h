#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// What the kernel's and the distribution's files say of the machine.
namespace cmn {

// Pure functions of the text.

// Value of `name` in lines "name=value", where the value may be quoted as in a shell (os-release).
std::optional<std::string> FindAssignment(std::string_view text, std::string_view name);

// Interfaces of the default routes in the text of /proc/net/route, the lowest metric first.
std::vector<std::string> DefaultRouteInterfaces(std::string_view routes);
// Interfaces of the default routes in the text of /proc/net/ipv6_route, the lowest metric first.
std::vector<std::string> DefaultRouteInterfacesV6(std::string_view routes);

// The first six bytes of "aa:bb:cc:dd:ee:ff" as twelve upper-case digits; zeros when the text has not that
// form.
std::string FormatMACAddress(std::string_view address);

// "{NAME} {VERSION_ID} ({machine})"; "Linux" for a missing name, no version when there is none, "?" for no
// machine.
std::string FormatOSName(std::string_view osRelease, std::string_view machine);

// The questions to the system that go by files, with the folder they begin at given from outside.

// The first mebibyte of a file, empty when it cannot be read.
std::optional<std::string> ReadText(const std::string& path);

// Address of the interface that the best default route goes through among those that have one (a tunnel has
// none), in the folder that holds "proc" and "sys". "" without a table of routes, zeros without such a route.
std::string MACAddressBelow(const std::string& root);

// The system's name for `machine`, by the os-release file below "etc", else the one below "usr/lib".
std::string OSNameBelow(const std::string& root, std::string_view machine);

// Whether the folder can be opened and read.
bool CanListFolder(const std::string& path);

}  // namespace cmn
