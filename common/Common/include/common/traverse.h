#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <vector>

namespace cmn {

// Calls back for every regular file below `root` that is in none of `skipFolders` and whose path ends,
// whatever the case, with one of `extensions` (every file when that is empty). Ends when `keepRunning` turns
// false. Holds few descriptors however deep the folders lie. Never throws: errors, also those of the
// callback, are logged.
void TraverseDirectoryNoThrow(const std::filesystem::path& root,
                              const std::function<void(const std::filesystem::path&)>& callback,
                              const std::atomic<bool>& keepRunning,
                              const std::vector<std::filesystem::path>& skipFolders,
                              const std::set<std::string>& extensions) noexcept;
void TraverseDirectoryNoThrow(const std::filesystem::path& root,
                              const std::function<void(const std::filesystem::path&)>& callback) noexcept;

}  // namespace cmn
