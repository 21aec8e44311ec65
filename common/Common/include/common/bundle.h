#pragma once

#include <filesystem>

namespace cmn {

// The application bundle around an executable: the folder "X.app" for "X.app/Contents/{platform}/X", else the
// folder that holds the executable.
std::filesystem::path BundlePathOf(const std::filesystem::path& executable);

// The folder that holds the program: the one around its bundle, else the executable's own. "" for "".
std::filesystem::path SharedPathOf(const std::filesystem::path& bundle,
                                   const std::filesystem::path& executable);

}  // namespace cmn
