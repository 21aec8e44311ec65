#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "FileUser.h"

namespace host {

// A file could not be rewritten. The text is the reason alone.
class RewriteError : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

// The file is not where it was any more.
class TargetGone : public RewriteError {
 public:
    using RewriteError::RewriteError;
};

// New content for a file, gathered in a temporary file beside it: at any time the file has either the old
// content or all of the new. The temporary file goes with the object. The folder is opened once and stays the
// same whatever happens to its path meanwhile. What changes the folder is done with a user's rights. All
// functions throw RewriteError, and what FileUser throws.
class ReplacementFile {
 public:
    // Throws TargetGone unless `target` is there. It must not be a symbolic link, or the link would be
    // replaced. The user must outlive this object.
    ReplacementFile(const std::filesystem::path& target, const FileUser& user);
    ~ReplacementFile();
    ReplacementFile(const ReplacementFile&) = delete;
    ReplacementFile& operator=(const ReplacementFile&) = delete;

    void write(std::string_view bytes);
    // After the last write: takes over the permission bits and, where the host may give files away, the
    // owner, and waits until the disk has everything. What another user had a hand in does not run as someone
    // else.
    void complete(const struct stat& original);
    // What the target is now; nothing when it cannot be told.
    std::optional<struct stat> targetStatus() const;
    void replaceTarget();

 private:
    void removeTemporaryNoThrow();

    const FileUser& user_;
    const std::string name_;  // of the target in the folder
    std::string temporary_;   // name of the temporary file there; empty when there is none
    uid_t maker_ = 0;         // of the temporary file, before it got the target's owner
    int folder_ = -1;
    int descriptor_ = -1;
};

}  // namespace host
