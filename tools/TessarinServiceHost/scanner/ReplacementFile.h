#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>

namespace host {

// A file could not be rewritten. The text is the reason alone.
class RewriteError : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

// New content for a file, gathered in a temporary file beside it: at any time the file has either the old
// content or all of the new. The temporary file goes with the object. All functions throw RewriteError.
class ReplacementFile {
 public:
    // `target` must not be a symbolic link, or the link would be replaced.
    explicit ReplacementFile(std::filesystem::path target);
    ~ReplacementFile();
    ReplacementFile(const ReplacementFile&) = delete;
    ReplacementFile& operator=(const ReplacementFile&) = delete;

    void write(std::string_view bytes);
    // After the last write: takes over the permission bits and, where that is allowed, the owner, and waits
    // until the disk has everything.
    void complete(const struct stat& original);
    void replaceTarget();

 private:
    const std::filesystem::path target_;
    std::string temporary_;  // empty when there is none
    int descriptor_ = -1;
};

}  // namespace host
