#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace cmn {

// The application bundle around an executable: the folder "X.app" for "X.app/Contents/{platform}/X", else the
// folder that holds the executable.
std::filesystem::path BundlePathOf(const std::filesystem::path& executable);

// The folder that holds the program: the one around its bundle, else the executable's own. "" for "".
std::filesystem::path SharedPathOf(const std::filesystem::path& bundle,
                                   const std::filesystem::path& executable);

// The string under `key` in the top dictionary of an XML property list; empty when there is none or the text
// is not such a list.
std::optional<std::string> FindPlistString(std::string_view plist, std::string_view key);

}  // namespace cmn
