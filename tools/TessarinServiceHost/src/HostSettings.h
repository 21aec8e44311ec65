#pragma once

#include <string>

namespace host {

// Makes the product's settings those of the file, or of "settings.json" beside the program when `file` is
// empty; without that one all are at their defaults. The program is added to the products when it is not one
// of them, as installed where it is. Throws std::runtime_error when a file is there but cannot be read, or
// when the named one is not there.
void UseSettings(const std::string& file);

}  // namespace host
