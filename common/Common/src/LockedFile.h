#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>

namespace cmn {

// One open file and its inter-process lock on one descriptor: other descriptors of the file, in this process
// too, neither share the lock nor end it. A file's path is used to open it only, so that all that is done
// reaches the same file whatever is renamed meanwhile. Not thread-safe. The functions throw
// boost::interprocess::interprocess_exception with the system's reason.
class LockedFile {
 public:
    enum class Opening {
        existing,  // a regular file, which is there
        kept,      // made when it is not there
        emptied,   // made when it is not there, else emptied at once, whoever has its lock
    };

    // Gives up the lock, then closes the file; a failure to close it is not reported.
    virtual ~LockedFile() = default;

    // Takes the exclusive lock. False when somebody else has it.
    virtual bool tryLock() = 0;
    // Whether the path leads to this file still: no other one was renamed over it.
    virtual bool isAt(const std::filesystem::path& path) const = 0;
    // The whole content, an error when that is more than `limit` bytes.
    virtual std::string read(std::size_t limit) = 0;
    // Empties the file and writes the text.
    virtual void replace(const std::string& text) = 0;
};

// Waits for nobody, as for the other end of a pipe. What is opened to be written only may be a character
// device too.
std::unique_ptr<LockedFile> OpenLockedFile(const std::filesystem::path& path, LockedFile::Opening opening);

// The content of a regular file, read without a lock. Throws std::runtime_error, "failed to open stream" when
// it cannot be opened.
std::string ReadRegularFile(const std::filesystem::path& path, std::size_t limit);

}  // namespace cmn
