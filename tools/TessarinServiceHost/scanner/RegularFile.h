#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <stdexcept>
#include <string>

#include "FileUser.h"

namespace host {

// There is nothing at the path.
class NoSuchFile : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

// Throws unless the status is that of a regular file.
void RequireRegular(const struct stat& status);

// A file opened for reading with a user's rights, through symbolic links. Anything but a regular file is
// refused without being opened: whoever waits at the other end of a FIFO does not notice. For another user
// than the host, so are relative paths, which begin in the host's folder, and the files of /proc, which tell
// about the process that reads them. The texts of its errors, std::runtime_error, are the reason alone. Not
// thread-safe.
class RegularFile {
 public:
    static constexpr std::size_t kPiece = 65'536;  // for reading it piece by piece

    RegularFile(const std::string& path, const FileUser& user);
    ~RegularFile();
    RegularFile(const RegularFile&) = delete;
    RegularFile& operator=(const RegularFile&) = delete;

    // As it was when the file was opened.
    const struct stat& status() const { return status_; }
    // The next bytes, fewer than `size` only at the file's end, whatever size the file claims to have.
    std::string read(std::size_t size);
    int descriptor() const { return descriptor_; }
    // Whether `now` is the status of this file with the content it had when it was opened.
    bool isUnchanged(const struct stat& now) const;

 private:
    int descriptor_ = -1;
    struct stat status_ {};
};

}  // namespace host
