#pragma once

#include <filesystem>
#include <map>
#include <string>

namespace ctl {

// All bytes of the archive without its compression: headers, names and texts.
std::string BytesOf(const std::filesystem::path& archive);

// The files in it, by name.
std::map<std::string, std::string> FilesOf(const std::filesystem::path& archive);

}  // namespace ctl
