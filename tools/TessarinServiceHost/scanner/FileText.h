#pragma once

#include <cstddef>
#include <ctime>
#include <string>

namespace host {

// What is scanned of a file.
struct FileText {
    std::string text;
    bool isCut = false;  // there is more behind it
    timespec modified{};
};

// The first `limit` bytes of a regular file; of a sealed one, of what is sealed in it. Throws
// std::runtime_error with the reason.
FileText ReadFileText(const std::string& path, std::size_t limit);

}  // namespace host
