#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>

namespace cmn {

// One file, under whatever name, and what it held last. The system reports a changed modification time as it
// reports a write, so the content tells which it was. The file's disk cannot be unmounted meanwhile. Not
// thread-safe.
class WatchedFile {
 public:
    // Of larger files, and of what is no regular one, the content is not looked at: whatever is reported of
    // them counts as written.
    static constexpr std::size_t kLargestContent = 1 << 20;

    // Throws std::system_error when the file cannot be opened. It is only looked at, so FIFOs and devices do
    // not notice.
    explicit WatchedFile(const std::filesystem::path& file);
    ~WatchedFile();
    WatchedFile(const WatchedFile&) = delete;
    WatchedFile& operator=(const WatchedFile&) = delete;

    // A path that leads to this very file while the object lives.
    std::string path() const;

    // Whether the content is another one than at the last call, or may be. A write of what was there already
    // is none.
    bool takeWritten();

 private:
    using Content = std::pair<std::size_t, std::size_t>;  // size and hash

    std::optional<Content> readContent() const;

    int descriptor_ = -1;
    std::optional<Content> content_;  // nothing when it is not known
};

}  // namespace cmn
