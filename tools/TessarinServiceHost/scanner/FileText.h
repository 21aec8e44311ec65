#pragma once

#include <cstddef>
#include <ctime>
#include <string>

#include "FileUser.h"
#include "ScanBounds.h"

namespace host {

// What is scanned of a file.
struct FileText {
    std::string text;
    bool isCut = false;  // there is more behind it
    timespec modified{};
};

// The first `limit` bytes of a regular file, or as much as `bounds` allow to read; of a sealed one, of what
// is sealed in it. Throws std::runtime_error with the reason.
FileText ReadFileText(const std::string& path, const FileUser& user, std::size_t limit, ScanBounds& bounds);

}  // namespace host
