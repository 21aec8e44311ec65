#pragma once

#include <chrono>
#include <map>
#include <ostream>
#include <string>

#include "bundle/SupportBundle.h"
#include "doctor/Machine.h"

namespace ctl {

// Of making the archive, once everything for it has been read.
inline constexpr std::chrono::seconds kArchiveDeadline{60};

// What this machine has for support beside the reports, which are JSON by file name; "versions.json" comes
// along.
BundleSources SourcesOfThisMachine(const Machine& machine, std::map<std::string, std::string> reports);

// "tessarin-support-20261121-031150.tar.gz".
std::string ArchiveName(std::time_t now);

// Makes the archive and says what is in it. Returns the exit code: 0, or 1 with a sentence on `err`.
int RunBundle(const BundleSources& sources, const std::filesystem::path& archive, std::ostream& out,
              std::ostream& err, std::chrono::milliseconds deadline = kArchiveDeadline);

}  // namespace ctl
