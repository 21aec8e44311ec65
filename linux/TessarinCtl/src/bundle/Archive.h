#pragma once

#include <filesystem>
#include <map>
#include <string>

#include "linux_bus/Connection.h"

namespace ctl {

// Writes a new .tar.gz with these files, by name, for its owner alone (mode 0600). Throws std::runtime_error
// with a sentence when there is such a file already, or the deadline passes; then nothing is left of it.
void WriteArchive(const std::filesystem::path& archive, const std::map<std::string, std::string>& files,
                  cmn::bus::Deadline deadline);

}  // namespace ctl
