#pragma once

#include <ctime>
#include <string>

#include "ClassifierFile.h"
#include "xpccommon/IFinderExtensionOperations.h"

namespace host {

// Nanoseconds since 1970 UTC, in decimal.
std::string NanosecondsText(const timespec& time);

// What is told about a classifier's matches in a file that was last changed at `modified`.
cmn::ScanRecord MakeScanRecord(const Classifier& classifier, const MatchCounts& counts,
                               const timespec& modified);

}  // namespace host
