#pragma once

#include <string>

// What the I/O Registry says. "" when it cannot be asked.
namespace cmn {

std::string PrimaryInterfaceMACAddress();
std::string ConsoleUserName();

}  // namespace cmn
