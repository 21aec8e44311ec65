#pragma once

#include <optional>
#include <string>

// The questions to the system that go by files, with the folder they begin at given from outside.
namespace cmn {

// The first mebibyte of a file, empty when it cannot be read.
std::optional<std::string> ReadText(const std::string& path);

// The active user of the first seat, as logind's folder `runFolder` records it ("" when nobody is logged in
// there). Asking logind itself could wait for it.
std::string ConsoleUserOf(const std::string& runFolder);
// That user's home folder, "" likewise.
std::string HomeOfConsoleUser(const std::string& runFolder);

// Address of the default route's interface in the folder that holds "proc" and "sys". "" without a table of
// routes, zeros without a default route.
std::string MACAddressBelow(const std::string& root);

// Whether the folder can be opened and read.
bool CanListFolder(const std::string& path);

}  // namespace cmn
