#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "common/Redaction.h"

namespace ctl {

// What goes into an archive for support.
struct BundleSources {
    std::map<std::string, std::string> reports;  // JSON, by the name of the file that it becomes
    std::filesystem::path settings;
    std::vector<std::filesystem::path> logFolders;
    std::vector<std::pair<cmn::SecretKind, std::string>> secrets;  // that are known beforehand
    std::vector<std::string> kept;                                 // see Redaction::keep
};

// Of a log only the end is taken, if it is longer.
inline constexpr std::uintmax_t kMostOfLog = std::uintmax_t{16} * 1024 * 1024;

// The archive's files with their texts, by name: nothing is left in them of what Redaction takes out. What
// cannot be read says so in its place.
std::map<std::string, std::string> RedactedFiles(const BundleSources& sources);

}  // namespace ctl
