#pragma once

#include <optional>
#include <string>
#include <string_view>

// The questions to the system that go by files, with the folder they begin at given from outside.
namespace cmn {

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
