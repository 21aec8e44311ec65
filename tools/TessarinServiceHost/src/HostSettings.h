#pragma once

#include <string>

#include "HostOptions.h"

namespace host {

// Makes the product's settings those of the file, or of "settings.json" beside the program when `file` is
// empty; without that one all are at their defaults. The program is added to the products when it is not one
// of them, as installed where it is. Throws std::runtime_error when a file is there but cannot be read, or
// when the named one is not there.
void UseSettings(const std::string& file);

// Makes the file, or "settings.json" beside the program when `file` is empty, from a template as an
// installation does. What is there is replaced only when the new settings can be loaded. Throws
// std::runtime_error, or what loading them throws.
void MakeSettings(const SettingsTemplate& from, const std::string& file);

}  // namespace host
