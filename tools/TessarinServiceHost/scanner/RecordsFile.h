#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "xpccommon/IFinderExtensionOperations.h"

namespace host {

// Answers that are laid down for single paths; the paths are compared as texts.
using FixedRecords = std::map<std::string, std::vector<cmn::ScanRecord>>;

// Throws std::runtime_error "Cannot use FILE -- PATH: RECORD: MEMBER: what is wrong", as far as it applies.
FixedRecords LoadRecords(const std::filesystem::path& file);

}  // namespace host
