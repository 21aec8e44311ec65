#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// What the kernel's and the distribution's text files say. Pure functions of the text.
namespace cmn {

// Value of `name` in lines "name=value", where the value may be quoted as in a shell (os-release).
std::optional<std::string> FindAssignment(std::string_view text, std::string_view name);

// Interfaces of the default routes in the text of /proc/net/route, the lowest metric first.
std::vector<std::string> DefaultRouteInterfaces(std::string_view routes);
// The same for /proc/net/ipv6_route.
std::vector<std::string> DefaultRouteInterfacesV6(std::string_view routes);

// The first six bytes of "aa:bb:cc:dd:ee:ff" as twelve upper-case digits; zeros when the text has not that
// form.
std::string FormatMACAddress(std::string_view address);

// "{NAME} {VERSION_ID} ({machine})"; "Linux" for a missing name, no version when there is none, "?" for no
// machine.
std::string FormatOSName(std::string_view osRelease, std::string_view machine);

// What /proc/{pid}/exe points to, without the mark of a program file that was replaced while it runs.
std::string StripDeletedMark(std::string path);

}  // namespace cmn
