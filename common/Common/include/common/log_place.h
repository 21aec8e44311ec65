#pragma once

#include <filesystem>
#include <optional>
#include <vector>

namespace cmn {

// As the extension of a log's files: no file has such a name, so that the lines go to the standard error
// stream.
inline constexpr const char* kNoLogFile = "/";

// The stem of a log that is to have `wanted`: that one when its first file can be opened for writing, else
// one of the same base name in the first of `folders` where that is so. A folder that is missing is made for
// its owner alone; empty and relative names of folders are left out. Nothing when no file can be opened. The
// first file is made on the way, as SetLogPath makes it.
std::optional<std::filesystem::path> WritableLogStem(const std::filesystem::path& wanted,
                                                     const std::vector<std::filesystem::path>& folders);

// Makes a folder that is missing, and those above it, for their owner alone. What fails here shows when a
// file is opened in it.
void MakeOwnFolder(const std::filesystem::path& folder);

}  // namespace cmn
